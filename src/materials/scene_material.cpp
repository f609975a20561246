// One material for a whole scene.

#include <osg/cores.h>
#include <osg/material.h>

#include <algorithm>
#include <cstdint>
#include <map>

#include "morlu/materials.h"
#include "optimiser/scene_queries.h"

namespace morlu::osg {

namespace {

/// What a primitive counts, in whole numbers.
std::uint64_t weight_of_primitive(std::uint32_t type, std::uint32_t length) {
  switch (type) {
    case ::osg::kPoints:
      return length;
    case ::osg::kLines:
    case ::osg::kQuads:
      return length / 2;
    case ::osg::kTriangles:
      return length / 3;
    case ::osg::kTriangleStrip:
    case ::osg::kTriangleFan:
    case ::osg::kPolygon:
      return length < 2 ? 0 : length - 2;
    default:
      return 0;
  }
}

/// By the lengths as they stand; without positions there are no primitives.
std::uint64_t weight_of(const ::osg::Geometry& geometry) {
  const auto& positions = geometry.getPositions();
  if (!geometry.getTypes() || !geometry.getLengths() || !positions || positions->empty()) return 0;
  const ::osg::GeoPTypes& types = *geometry.getTypes();
  const ::osg::GeoPLengths& lengths = *geometry.getLengths();
  std::uint64_t sum = 0;
  for (std::uint32_t i = 0; i < std::min(types.size(), lengths.size()); ++i)
    sum += weight_of_primitive(types.getValue(i), lengths.getValue(i));
  return sum;
}

::osg::MaterialPtr heaviest_material(const std::vector<::osg::NodePtr>& nodes) {
  std::map<::osg::MaterialPtr, std::uint64_t> weights;
  for (const ::osg::NodePtr& node : nodes)
    weights[getEffectiveMaterial(node)] += weight_of(*::osg::Geometry::dcast(node->getCore()));
  ::osg::MaterialPtr heaviest;
  std::uint64_t most = 0;
  for (const auto& [material, weight] : weights) {
    if (weight <= most) continue;
    heaviest = material;
    most = weight;
  }
  return heaviest;
}

void set_material(const ::osg::NodePtr& node, const ::osg::MaterialPtr& material) {
  if (const auto group = searchMaterialGroup(node))
    ::osg::MaterialGroup::dcast(group->getCore())->setMaterial(material);
  else
    ::osg::Geometry::dcast(node->getCore())->setMaterial(material);
}

}  // namespace

void reduceSceneMaterialsToOne(::osg::NodePtr tree) {
  if (!tree) return;
  std::vector<::osg::NodePtr> nodes;
  getGeometryNodes(tree, nodes, false);
  const ::osg::MaterialPtr chosen = heaviest_material(nodes);
  for (const ::osg::NodePtr& node : nodes)  // a group that changes changes the nodes that follow
    if (getEffectiveMaterial(node) != chosen) set_material(node, chosen);
}

}  // namespace morlu::osg
