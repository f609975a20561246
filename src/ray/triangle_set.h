#pragma once

#include <cstdint>
#include <iostream>
#include <memory>
#include <new>
#include <span>

#include "morlu/ray.h"
#include "ray/bounding_box.h"
#include "ray/large_memory.h"

namespace morlu {

/// Three corners in a row, nothing else.
template <class T, class Point, class Vector>
struct simple_triangle {
  Point corners[3];

  const Point& operator[](int corner) const { return corners[corner]; }
  /// Lowest and highest coordinate along `axis`.
  T low(int axis) const {
    const T a = corners[0][axis], b = corners[1][axis], c = corners[2][axis];
    const T ab = b < a ? b : a;
    return c < ab ? c : ab;
  }
  T high(int axis) const {
    const T a = corners[0][axis], b = corners[1][axis], c = corners[2][axis];
    const T ab = b > a ? b : a;
    return c > ab ? c : ab;
  }
};

using triangle = simple_triangle<float, math::vector3, math::vector3>;
static_assert(sizeof(triangle) == 9 * sizeof(float));

/// The triangles of one geometry, as the geometry gives them; a triangle's number is its place
/// here.
template <class Triangle, class Stored>
class geo_set_convertable {
 public:
  large_array<Stored> triangles;
  std::uint64_t count = 0;  // also the array's capacity, as far as it is known
  bounding_box box{};       // where builds start and rays are tested first

  /// Grows by a new array with undefined content; a smaller count keeps the array. Out of memory is
  /// told on the standard error stream and leaves an empty set.
  void resize(std::uint64_t new_count) {
    if (new_count > count) {
      triangles.reset();
      triangles = make_large<Stored>(new_count);
      if (!triangles) {
        std::cerr << "Out of memory!" << std::endl;
        new_count = 0;
      }
    }
    count = new_count;
  }

  std::span<const Stored> all() const { return {triangles.get(), count}; }

  // What a build wants to know of an element.
  std::uint64_t size() const { return count; }
  float low(std::uint64_t element, int axis) const { return triangles[element].low(axis); }
  float high(std::uint64_t element, int axis) const { return triangles[element].high(axis); }
};

/// The box of all corners, flat axes widened. `set` holds a triangle at least.
bounding_box compute_bounding_box(const osg::triangle_set& set);

namespace osg {

/// Fills `set` with the usable triangles of the node's geometry, in object space, winding kept.
/// Returns how many were left out as rogue. Without an exact Geometry core or a usable triangle the
/// set stays as it is.
std::uint32_t collect_triangles(const ::osg::NodePtr& node, triangle_set& set);

}  // namespace osg
}  // namespace morlu
