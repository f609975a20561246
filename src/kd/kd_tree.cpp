#include "kd/kd_tree.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <stdexcept>

namespace morlu {

namespace {

// Leaves tell their start in 31 bits.
constexpr std::uint64_t max_entries = std::numeric_limits<std::int32_t>::max();

template <class T>
void move_to(std::unique_ptr<T[]>& array, std::uint64_t used, std::uint64_t capacity) {
  auto moved = std::make_unique_for_overwrite<T[]>(capacity);
  std::copy_n(array.get(), used, moved.get());
  array = std::move(moved);
}

}  // namespace

oc_tree_stats::oc_tree_stats() {
  clear();
}
oc_tree_stats& oc_tree_stats::operator=(const oc_tree_stats& other) = default;
void oc_tree_stats::clear() {
  nodes = leaves = max_depth = max_leaf_size = 0;
}

std::uint64_t kd_tree::grow_indices(std::uint64_t n) {
  if (n > max_entries - index_count) throw std::length_error("too many entries for a tree");
  if (index_count + n >= index_capacity) {
    const std::uint64_t capacity = n + 2 * index_count;
    move_to(indices, index_count, capacity);
    index_capacity = capacity;
  }
  index_count += n;
  return index_count - 1;
}

void kd_tree::ensure_node(std::uint64_t index) {
  if (index < node_capacity) return;
  const std::uint64_t capacity = std::max(2 * index, index + 1);
  move_to(nodes, node_capacity, capacity);
  node_capacity = capacity;
}

std::uint64_t kd_tree::count_elements(std::uint64_t node) const {
  // A subtree stands in one piece, which ends where as many leaves have been met as were promised.
  std::uint64_t sum = 0;
  for (std::uint64_t promised = 1; promised > 0; ++node) {
    if (nodes[node].is_leaf()) {
      sum += nodes[node].leaf_count;
      --promised;
    } else {
      ++promised;
    }
  }
  return sum;
}

void kd_tree::reset_indices(std::uint64_t n) {
  release();
  if (n > max_entries) throw std::length_error("too many elements for a tree");
  indices = std::make_unique_for_overwrite<std::uint64_t[]>(2 * n);
  index_capacity = 2 * n;
  index_count = n;
  std::iota(indices.get(), indices.get() + n, std::uint64_t{0});
}

void kd_tree::release() {
  nodes.reset();
  indices.reset();
  index_capacity = index_count = node_capacity = 0;
  stats.clear();
}

}  // namespace morlu
