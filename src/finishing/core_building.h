#pragma once

#include <osg/node.h>

#include "kd/kd_tree.h"
#include "morlu/geoset.h"

/// The way back from sets into scenes: runs of a tree's elements become nodes with new geometry.
///
/// All is written once for `osg_geoset`, `osg_line_geoset` and `osg_point_geoset`, which must be
/// set up. Sets and trees are only read; a core copies its values, so that it outlives both. A core
/// carries the set's material and those attributes that the set has for all its elements, as three
/// floats an entry, texture coordinates as two, ids as (id, 0). A worker may build from its own set
/// and tree while others do the same.
///
/// `level` is how a core is indexed:
///   0  not at all, every corner by value (with `calcnormals` by one index)
///   1  by a single index
///   2  by a column of indices for each attribute
///   3  by a single index, in triangle strips where they save something
/// Any other says so and counts as 0. Indices are 16 bits wide below 65535 of them. `calcnormals`
/// replaces the set's normals by new ones with a crease angle of 30 degrees; lines and points,
/// which have no surface, are left without.
namespace morlu::osg {

/// A node with one geometry of the elements `tree.indices[first]` to `[first + count - 1]`, in this
/// order, both with a new name. An element that the set does not have is left out, with two lines.
/// Null for a `count` of 0, and no name is drawn.
///
/// Nothing is thrown: a core that fails says so in one line and is an empty geometry, or null if
/// there is no memory even for that. O(count) time but for level 3; about three times the core's
/// bytes at most while it is built.
template <class Set>
::osg::NodePtr MakeGeoCore(const kd_tree& tree, const Set& set, unsigned first, unsigned count,
                           unsigned level, bool calcnormals);

/// Builds the subtree at node `index` as cores of at most `limit` elements, as far as its leaves
/// allow: groups follow the tree's inner nodes down to where the elements below fit. A subtree that
/// fits as a whole gives a group with one core, a leaf its core itself, or null if it is empty.
///
/// If `group` is not null and has a MaterialGroup core, the root gets that core in place of its
/// own; a root that is a geometry is put below a new one first.
///
/// O(elements + nodes) time whatever the tree's depth. `std::bad_alloc` leaves if there is no
/// memory for the groups.
template <class Set>
::osg::NodePtr Splitmodel(const kd_tree& tree, const Set& set, unsigned index, unsigned limit,
                          const ::osg::NodePtr& group, unsigned level, bool calcnormals);

/// The same by number: about `parts` cores, shared out by the elements on either side of each inner
/// node. One part gives the core itself. Parts beyond the tree's leaves, none and a negative number
/// give one core for each leaf that is not empty.
template <class Set>
::osg::NodePtr SplitmodelParts(const kd_tree& tree, const Set& set, unsigned index, int parts,
                               const ::osg::NodePtr& group, unsigned level, bool calcnormals);

/// What both rest on: by `limit` for 0 `parts` and less, else by `parts` where there are more than
/// `limit` elements.
template <class Set>
::osg::NodePtr splitmodelNode(const kd_tree& tree, const Set& set, unsigned index, int parts,
                              unsigned limit, unsigned level, bool calcnormals);

/// A group with one core for each side of the inner node `index`; a side without elements has none.
template <class Set>
::osg::NodePtr splitmodelPair(const kd_tree& tree, const Set& set, unsigned index, unsigned level,
                              bool calcnormals);

/// How many of `parts`, at least 2, go to the left side: its share of the elements, rounded, and at
/// least one for each side that has elements. A side without elements has none.
int partsForLeft(unsigned left, unsigned right, int parts);

/// One primitive of triangles without an entry of lengths, and no position.
::osg::GeometryPtr createEmptyGeometry();

}  // namespace morlu::osg
