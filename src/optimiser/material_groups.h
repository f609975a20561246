#pragma once

#include <osg/geometry.h>
#include <osg/material.h>
#include <osg/node.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace morlu::osg {

/// Nodes that become one geometry, in order of arrival.
using material_group = std::vector<::osg::NodePtr>;

/// The groups of a merge by material, by serial, null first; of equal material in order of arrival.
struct material_groups {
  bool same_name = false;    // a group also shares a name
  bool no_material = false;  // there is one group, without material
  std::multimap<::osg::MaterialPtr, material_group> groups;

  /// Of each material and name; the name is empty without `same_name`.
  std::map<std::pair<::osg::MaterialPtr, std::string>, material_group*> known;
};

/// Adds a node with geometry to the group of its material: its own or, unless `keepNull`, that of
/// the MaterialGroup above. With `same_name` a node without a name gets its core's or "NoName".
void addToMaterialGroups(material_groups& groups, const ::osg::NodePtr& node, bool keepNull);

/// Moves materials' colours into the vertices of groups that have fewer triangles than `threshold`,
/// rogues not counted. Nodes whose colour has moved go over to the group without material; a group
/// may be left empty. A geometry that is also seen elsewhere is copied for the group's nodes.
void moveColorsOfSmallGroups(material_groups& groups, std::int32_t threshold);

}  // namespace morlu::osg
