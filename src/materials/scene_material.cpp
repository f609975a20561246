// One material for a whole scene.

#include <osg/cores.h>
#include <osg/material.h>

#include <cstdint>
#include <map>

#include "morlu/materials.h"
#include "optimiser/scene_queries.h"
#include "primitives/primitive_count.h"

namespace morlu::osg {

namespace {

/// Without positions there are no primitives.
std::uint64_t weight_of(const ::osg::Geometry& geometry) {
  const auto& positions = geometry.getPositions();
  return positions && !positions->empty() ? count_primitives(geometry) : 0;
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
