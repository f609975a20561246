#pragma once

#include <cstdint>

#include <osg/node.h>

#include "kd/kd_tree.h"
#include "morlu/geoset.h"

/// What all splits of geometry begin with: out of the scene into a set, and a tree over that.
namespace morlu::osg {

/// The triangles of one geometry and the tree that parts them.
struct rebuilt {
  osg_geoset set;
  kd_tree tree;
  std::uint64_t taken = 0;  // elements before any was cut
};

/// Takes a node's triangles in its own space and compiles the tree with `kd`. False if there is
/// nothing to build from, or if not all would be there again: without usable triangles, with lines
/// or points, which the set doesn't carry, and where memory has failed the extraction. Texture
/// coordinates that nothing may refer to are gone, as with `extract`. `std::bad_alloc` may leave.
bool rebuild(const ::osg::NodePtr& node, const kd_build_setup& kd, rebuilt& out);

/// Elements by kind.
struct element_counts {
  std::uint64_t triangles = 0, lines = 0, points = 0;

  std::uint64_t sum() const { return triangles + lines + points; }
  bool holds(const element_counts& other) const {
    return triangles >= other.triangles && lines >= other.lines && points >= other.points;
  }
};

/// What any extraction takes of a geometry: no rogue triangles, no lines without length.
element_counts usable_elements(const ::osg::Geometry& geometry);

/// What types and lengths say of all geometry at and below a node of few levels. Null: none.
element_counts elements_below(const ::osg::NodePtr& node);

/// The result, if it has all triangles of the set, else null: a core may have failed.
::osg::NodePtr if_complete(const ::osg::NodePtr& result, const rebuilt& from);

/// Whether texture coordinates of the node's geometry may be in use: its effective material has an
/// image, for the base colour or another purpose, or the geometry carries notes, which may say that
/// some of them are ids.
bool may_use_tex_coords(const ::osg::NodePtr& node);

}  // namespace morlu::osg
