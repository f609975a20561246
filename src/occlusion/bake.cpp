// Ambient occlusion in vertex colours.

#include <osg/cores.h>
#include <osg/material.h>

#include "materials/own_copy.h"
#include "morlu/materials.h"
#include "morlu/occlusion.h"
#include "occlusion/occlusion_scene.h"
#include "optimiser/scene_queries.h"
#include "primitives/progress.h"

namespace morlu::osg {

namespace {

using ::osg::GeometryPtr;
using ::osg::NodePtr;

void drop_materials(const NodePtr& node) {
  geometry_at(node)->setMaterial(::osg::NullFC);
  while (const NodePtr group = searchMaterialGroup(node)) group->setCore(::osg::Group::create());
}

void prepare_material(const NodePtr& node, bool overwrite) {
  if (overwrite)
    drop_materials(node);
  else if (!hasMaterialImage(node))
    MaterialColorIntoVertex(node);
}

void set_grey(::osg::Geometry& geometry, const std::vector<float>& values) {
  const auto colors = ::osg::GeoColors3f::create();
  colors->reserve(values.size());
  for (const float value : values) colors->push_back({value, value, value});
  geometry.setColors(colors);
}

void multiply(::osg::Geometry& geometry, const std::vector<float>& values) {
  const auto colors = own_copy(geometry.getColors());
  ::osg::beginEditCP(colors);
  colors->reserve(values.size());
  while (colors->size() < values.size()) colors->push_back({0.5f, 0.5f, 0.5f});
  for (std::uint32_t i = 0; i < values.size(); ++i) {
    ::osg::Color3f color = colors->getValue(i);
    for (unsigned k = 0; k < 3; ++k) color[k] *= values[i];
    colors->setValue(color, i);
  }
  ::osg::endEditCP(colors);
  geometry.setColors(colors);
}

void bake(occlusion_scene& scene, const NodePtr& node, bool overwrite,
          const occlusion_query& query) {
  const GeometryPtr geometry = geometry_at(node);
  if (!geometry->getNormals() || geometry->getNormals()->empty()) make_vertex_normals(geometry);
  const auto values =
      values_by_position(scene, placed_vertices(node), rays_lean::to_the_normal, query);
  if (overwrite || !geometry->getColors())
    set_grey(*geometry, values);
  else
    multiply(*geometry, values);
}

}  // namespace

void AddAmbientOcclusion(NodePtr node, bool overwrite, int samples, unsigned int) {
  if (!node) return;
  std::vector<NodePtr> nodes;
  getGeometryNodes(node, nodes, false);
  part_shared_cores(nodes);
  for (const NodePtr& each : nodes) prepare_material(each, overwrite);
  for (const NodePtr& each : nodes) make_single_vertices(geometry_at(each));
  occlusion_scene scene(node);
  const occlusion_query query{samples, scene.diagonal(), false};
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    if (!geometry_at(nodes[i])->getPositions()) {
      say_without_positions();
      continue;
    }
    bake(scene, nodes[i], overwrite, query);
    say_percentage(i, nodes.size());
  }
  say("\rdone.\n");
}

}  // namespace morlu::osg
