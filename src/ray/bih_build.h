#pragma once

#include <cstdint>
#include <memory>
#include <new>

#include "ray/bih_partition.h"
#include "ray/bih_tree.h"

namespace morlu {

/// What a tree can be built over: numbered things with an extent on each axis.
template <class Elements>
concept bounded_elements = requires(const Elements& elements, std::uint64_t i, int axis) {
  { elements.size() } -> std::convertible_to<std::uint64_t>;
  { elements.low(i, axis) } -> std::convertible_to<float>;
  { elements.high(i, axis) } -> std::convertible_to<float>;
};

/// Splits cells at the middle of their longest axis; an element goes to the side of its own centre.
///
/// The run that a node partitions is carried along as records with the elements' extents, so that
/// each level reads memory in order; the swaps are those that the index array alone would see.
class bih_builder {
 public:
  bih_builder(bih_tree<float>& tree, const build_setup& setup) : tree_(tree), setup_(setup) {}

  /// Builds over all `elements`, whose cell is `box`; O(n log n) time, 32 bytes an element while it
  /// runs, at most 51 levels deep. Equal input gives equal trees. Throws `std::bad_alloc` or
  /// `std::length_error`; the tree has no arrays then.
  template <bounded_elements Elements>
  void build(const Elements& elements, const bounding_box& box) {
    const std::uint64_t count = elements.size();
    tree_.reset_indices(count);
    tree_.ensure_node(count);
    records_ = make_large<bih_record>(count + 1);  // one may be read beyond
    if (!records_) {
      tree_.release();
      throw std::bad_alloc();
    }
    collect_records(elements, count);
    split(0, 0, static_cast<std::uint32_t>(count), box, 0);
    for (std::uint64_t i = 0; i < count; ++i) tree_.indices[i] = records_[i].element;
    tree_.trim_nodes();
  }

 private:
  template <class Elements>
  void collect_records(const Elements& elements, std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
      bih_record& to = records_[i];
      for (int axis = 0; axis < 3; ++axis) {
        to.low[axis] = elements.low(i, axis);
        to.high[axis] = elements.high(i, axis);
      }
      to.element = static_cast<std::uint32_t>(i);
      to.unused = 0;
    }
  }

  void split(std::uint64_t node, std::uint32_t start, std::uint32_t count, const bounding_box& box,
             std::uint32_t depth);
  void make_side(std::uint32_t start, std::uint32_t count, const bounding_box& box,
                 std::uint32_t depth);
  void write_leaf(std::uint64_t node, std::uint32_t start, std::uint32_t count);

  bih_tree<float>& tree_;
  build_setup setup_;
  large_array<bih_record> records_;
};

}  // namespace morlu
