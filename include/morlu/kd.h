#pragma once

#include <cstdint>

#include "morlu/export.h"

/// How kd trees cut scenes and geometry sets into the runs that become pieces of geometry.
namespace morlu {

/// What a build of a kd tree leaves behind. `nodes` is the highest node index in use, `max_depth`
/// the depth of the deepest node that was not made a leaf from the start; the root has depth 0.
struct oc_tree_stats {
  std::uint64_t nodes;
  std::uint64_t leaves;
  std::uint64_t max_depth;
  std::uint64_t max_leaf_size;

  MORLU_API oc_tree_stats();
  oc_tree_stats(const oc_tree_stats&) = default;
  MORLU_API oc_tree_stats& operator=(const oc_tree_stats& other);
  /// Sets all to 0.
  MORLU_API void clear();
};

/// When a build stops, and what becomes of the elements that a plane cuts.
///
/// No leaf is promised to be within `leaf_size`: elements that no plane can part stay together, and
/// so does what is left at `max_depth`.
struct kd_build_setup {
  /// A root with fewer elements is a leaf, a side with at most this many too. 0 counts as 1.
  std::uint32_t leaf_size = 5;
  /// A node at this depth is a leaf. With `strategy` 2 this is what bounds the tree: elements that
  /// reach over everything are in both sides of every plane.
  std::uint32_t max_depth = 30;
  /// 1: elements are cut, where they can be. 2: both sides refer to them. Else: the side of their
  /// centre has them.
  std::uint32_t strategy = 1;

  // Of the surface-area strategy alone: the cost of testing an element, the cost of a step in the
  // tree, a factor on the elements' cost of a split, and whether planes that cut elements are out.
  float intersect_cost = 1;
  float traversal_cost = 2;
  float cost_scale = 0.95f;
  bool no_straddle = false;
};

}  // namespace morlu
