#pragma once

#include <cstdint>
#include <memory>

#include "morlu/kd.h"

namespace morlu {

/// An inner node or a leaf, told apart by `axis`. The left child of the inner node at i stands at
/// i + 1.
struct kd_node {
  static constexpr std::uint32_t no_axis = 0xFFFFFFFF;

  union {
    std::int64_t right_child;
    std::int32_t leaf_start;  // first place in the tree's `indices`
  };
  union {
    float split;               // the plane x[axis] = split
    std::uint32_t leaf_count;  // may be 0
  };
  std::uint32_t axis;  // `no_axis` in a leaf

  bool is_leaf() const { return axis == no_axis; }
};
static_assert(sizeof(kd_node) == 16);

/// A tree of runs of element numbers. The runs of its leaves, in node order, make up `indices`; an
/// element may stand in several.
///
/// A tree without arrays has not been compiled. Below, `std::bad_alloc` and, for more than the
/// records can number, `std::length_error` leave the tree as it was.
class kd_tree {
 public:
  std::unique_ptr<kd_node[]> nodes;
  std::unique_ptr<std::uint64_t[]> indices;
  std::uint64_t index_capacity = 0;
  std::uint64_t index_count = 0;
  std::uint64_t node_capacity = 0;
  oc_tree_stats stats;  // during a build `stats.nodes` is the last node taken

  /// Makes room for `n` more entries, which count from now on; returns the number of the last
  /// entry. A full array moves to one of twice its count.
  std::uint64_t grow_indices(std::uint64_t n);
  /// Makes room for the node at `index`, doubling.
  void ensure_node(std::uint64_t index);

  /// Entries below a node, O(nodes below).
  std::uint64_t count_elements(std::uint64_t node) const;

  /// Elements 0 to n - 1 in their own order, room for as many again, and no nodes.
  void reset_indices(std::uint64_t n);
  /// Gives all memory back.
  void release();
};

}  // namespace morlu
