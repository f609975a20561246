#include "optimiser/material_groups.h"

#include <osg/cores.h>

#include <algorithm>

#include "morlu/materials.h"
#include "morlu/optimiser.h"
#include "morlu/primitives.h"

namespace morlu::osg {

namespace {

using ::osg::GeometryPtr;
using ::osg::MaterialPtr;
using ::osg::NodePtr;

MaterialPtr key_of(const NodePtr& node, const GeometryPtr& geometry, bool keep_null) {
  if (geometry->getMaterial() || keep_null) return geometry->getMaterial();
  const NodePtr above = searchMaterialGroup(node);
  return above ? ::osg::MaterialGroup::dcast(above->getCore())->getMaterial() : ::osg::NullFC;
}

/// The name that the node is merged by, which it has from now on.
std::string named(const NodePtr& node) {
  for (const char* name : {::osg::getName(node), ::osg::getName(node->getCore()), "NoName"})
    if (name && *name) {
      const std::string text = name;
      if (const char* own = ::osg::getName(node); !own || !*own) ::osg::setName(node, text);
      return text;
    }
  return {};
}

double triangles_of(const material_group& group) {
  double sum = 0;
  for (const NodePtr& node : group) sum += count_triangles(::osg::Geometry::dcast(node->getCore()));
  return sum;
}

/// Gives each core of a group its colour once.
class group_coloring {
 public:
  explicit group_coloring(const material_group& group) {
    for (const NodePtr& node : group) ++cores_[node->getCore()].nodes_here;
  }

  /// Whether the node's colour is in its vertices now.
  bool color(const NodePtr& node) {
    const ::osg::NodeCorePtr own = node->getCore();
    core_state& state = cores_[own];
    if (!state.is_done) {
      state.is_done = true;
      const bool is_elsewhere = own->getNumParents() > state.nodes_here;
      if (is_elsewhere) node->setCore(::osg::Geometry::dcast(own)->clone());
      state.has_moved = MaterialColorIntoVertex(node);
      state.result = node->getCore();
    }
    node->setCore(state.has_moved ? state.result : own);
    return state.has_moved;
  }

 private:
  struct core_state {
    std::size_t nodes_here = 0;
    bool is_done = false;
    bool has_moved = false;
    ::osg::NodeCorePtr result;
  };
  std::map<::osg::NodeCorePtr, core_state> cores_;
};

}  // namespace

void addToMaterialGroups(material_groups& groups, const NodePtr& node, bool keepNull) {
  const GeometryPtr geometry = node ? ::osg::Geometry::dcast(node->getCore()) : ::osg::NullFC;
  if (!geometry) return;
  const MaterialPtr key = groups.no_material ? ::osg::NullFC : key_of(node, geometry, keepNull);
  const std::string name = groups.same_name ? named(node) : std::string();
  material_group*& group = groups.known[{key, name}];
  if (!group) group = &groups.groups.emplace(key, material_group())->second;
  group->push_back(node);
}

void moveColorsOfSmallGroups(material_groups& groups, std::int32_t threshold) {
  if (threshold < 1) return;
  for (auto& [material, group] : groups.groups) {
    if (!material || !(threshold > triangles_of(group))) continue;
    group_coloring coloring(group);
    std::erase_if(group, [&](const NodePtr& node) {
      const bool has_moved = coloring.color(node);
      if (has_moved) addToMaterialGroups(groups, node, true);
      return has_moved;
    });
  }
}

}  // namespace morlu::osg
