#pragma once

#include <cstdint>
#include <memory>

#include "morlu/ray.h"
#include "ray/bounding_box.h"
#include "ray/large_memory.h"
#include "ray/lazily_made.h"
#include "ray/pair_volumes.h"

namespace morlu {

/// An inner node or a leaf, told apart by `axis`. The left child of the inner node at i stands at
/// i + 1. Numbers of nodes and elements are below 2^31.
struct bih_node {
  std::int32_t right_child;  // -1 in a leaf
  std::int16_t axis;         // -1 in a leaf
  std::uint16_t empty;       // sides that are leaves without elements: 1 left, 2 right
  union {
    float left_plane;         // highest coordinate on `axis` that the left side reaches, widened
    std::int32_t leaf_start;  // first place in the tree's `indices`
  };
  union {
    float right_plane;        // lowest coordinate on `axis` that the right side reaches, widened
    std::int32_t leaf_count;  // may be 0
  };

  bool is_leaf() const { return axis == -1; }
};
static_assert(sizeof(bih_node) == 16);

/// A binary tree over numbered elements: each stands in one leaf, inner nodes hold one clip plane a
/// side. It knows nothing of what the elements are; queries are handed both.
template <class T>
class bih_tree {
 public:
  bool active = false;  // a build has finished
  large_array<bih_node> nodes;
  std::uint64_t node_capacity = 0;
  large_array<std::uint32_t> indices;  // a permutation of the elements' numbers
  std::uint64_t index_count = 0;
  bih_tree_stats stats;               // during a build `stats.nodes` is the last node taken
  lazily_made<pair_volumes> volumes;  // what collisions want beside; `volumes_of` makes them

  /// Whether queries may walk the tree. One whose rebuild ran out of memory has no arrays.
  bool is_usable() const { return active && nodes && indices; }

  /// Elements 0 to n - 1 in their own order, no nodes. Throws `std::bad_alloc`, or
  /// `std::length_error` for more than a tree can number; the tree is left without arrays.
  void reset_indices(std::uint64_t n);
  /// Makes room for the node at `index`, doubling. Throws as above, and leaves the same.
  void ensure_node(std::uint64_t index);
  /// Gives back the room beyond the last node in use.
  void trim_nodes();

  /// Gives all memory back.
  void release();

 private:
  void resize_nodes(std::uint64_t capacity);
};

extern template class bih_tree<float>;

}  // namespace morlu
