#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace morlu {

/// Memory of the C library, which can shrink an array without copying it.
struct free_memory {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using large_array = std::unique_ptr<T[], free_memory>;

/// Memory with undefined content; null without memory. Walks of trees and triangles jump about in
/// it, so what is large asks the system for large pages: far fewer address translations to miss.
void* allocate_large(std::size_t bytes);

/// An array of plain values; null without memory.
template <class T>
large_array<T> make_large(std::size_t count) {
  static_assert(alignof(T) <= 64);
  return large_array<T>(static_cast<T*>(allocate_large(count * sizeof(T))));
}

}  // namespace morlu
