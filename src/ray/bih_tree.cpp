#include "ray/bih_tree.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <stdexcept>

namespace morlu {

namespace {

// Elements and nodes are numbered in 31 bits. There can be far more nodes than elements: where
// elements share their centres, a leaf of four may end a chain of one-sided splits.
constexpr std::uint64_t most_numbers = (std::uint64_t{1} << 31) - 1;

}  // namespace

template <class T>
void bih_tree<T>::release() {
  nodes.reset();
  indices.reset();
  volumes.drop();
  node_capacity = 0;
  index_count = 0;
  stats.clear();
}

template <class T>
void bih_tree<T>::reset_indices(std::uint64_t n) {
  release();
  if (n > most_numbers) throw std::length_error("too many elements for a tree");
  indices = make_large<std::uint32_t>(n);
  if (!indices) throw std::bad_alloc();
  index_count = n;
  std::iota(indices.get(), indices.get() + n, 0u);
}

template <class T>
void bih_tree<T>::resize_nodes(std::uint64_t capacity) {
  const std::size_t bytes = capacity * sizeof(bih_node);
  void* const resized = nodes ? std::realloc(nodes.get(), bytes) : allocate_large(bytes);
  if (!resized) {
    release();
    throw std::bad_alloc();
  }
  static_cast<void>(nodes.release());
  nodes.reset(static_cast<bih_node*>(resized));
  node_capacity = capacity;
}

template <class T>
void bih_tree<T>::ensure_node(std::uint64_t index) {
  if (index < node_capacity) return;
  if (index >= most_numbers) {
    release();
    throw std::length_error("too many nodes for a tree");
  }
  resize_nodes(std::min(std::max(2 * index, index + 1), most_numbers));
}

template <class T>
void bih_tree<T>::trim_nodes() {
  if (stats.nodes + 1 < node_capacity) resize_nodes(stats.nodes + 1);
}

template class bih_tree<float>;

}  // namespace morlu
