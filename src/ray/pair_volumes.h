#pragma once

#include <cstdint>
#include <memory>

#include "ray/triangle_set.h"

namespace morlu {

template <class T>
class bih_tree;

/// Tight volumes about the nodes of a tree, for collisions. Made at the first one that reaches the
/// tree and kept with it; rays do without.
///
/// The volume of a node is what a box and a slab have in common, both about the corners of its
/// triangles. The slab lies across their mean normal: on a smooth surface its thickness falls with
/// the square of the node's size, where that of a tilted box falls with the size.
class pair_volumes {
 public:
  /// Volumes of the two children of an inner node, the left one's first. A child is the number of
  /// another record, or ~n for a leaf, n being its number among the tree's nodes.
  struct record {
    float centre[3][2];
    float half[3][2];    // of the box's size; very negative about nothing
    float normal[3][2];  // of the slab; unit length or, for want of a mean, zero
    float middle[2];     // the slab's, along the normal from the box's centre
    float reach[2];      // half the slab's thickness
    std::int32_t child[2];
  };

  /// O(n) time; 48 bytes a triangle with leaves of two.
  pair_volumes(const bih_tree<float>& tree, const osg::triangle_set& set);

  const record& root() const { return records_[0]; }
  const record& at(std::int32_t number) const { return records_[static_cast<std::size_t>(number)]; }
  /// No triangle has a coordinate farther from the origin along that axis.
  const math::vector3& bound() const { return bound_; }

 private:
  std::unique_ptr<record[]> records_;
  math::vector3 bound_;
};

/// The tree's volumes, made if they aren't there yet. The tree is usable. May be called by several
/// threads at once.
const pair_volumes& volumes_of(const bih_tree<float>& tree, const osg::triangle_set& set);

}  // namespace morlu
