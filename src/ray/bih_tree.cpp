#include "ray/bih_tree.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <stdexcept>

namespace morlu {

namespace {

// A tree of n elements has at most as many leaves as 50 levels of one-sided splits and n runs can
// make; numbers of both have to fit 31 bits.
constexpr std::uint64_t max_elements = std::uint64_t{1} << 30;

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
  if (n > max_elements) throw std::length_error("too many elements for a tree");
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
  if (index >= node_capacity) resize_nodes(std::max(2 * index, index + 1));
}

template <class T>
void bih_tree<T>::trim_nodes() {
  if (stats.nodes + 1 < node_capacity) resize_nodes(stats.nodes + 1);
}

template class bih_tree<float>;

}  // namespace morlu
