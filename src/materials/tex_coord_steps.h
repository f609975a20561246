#pragma once

#include <cmath>
#include <limits>

#include <osg/vector.h>

/// The steps that bring a triangle's texture coordinates near 0 to 1, for single triangles and for
/// loops over rows of them.
namespace morlu::osg::tex_coord_steps {

using tex_coord = ::osg::Vector<float, 2>;

/// `std::floor`, to the bit, by arithmetic that compilers know to do in vectors on any processor.
inline float floor_of(float value) {
  constexpr float all_whole = 8388608.0f;  // from 2^23 on floats have no fraction
  const float size = std::fabs(value);
  const float nearest = std::copysign((size + all_whole) - all_whole, value);
  const float below = nearest > value ? nearest - 1.0f : nearest;
  return size < all_whole ? below : value;  // NaN too
}

inline float rounded(float value) {
  constexpr float near = 0.001f;
  const float below = floor_of(value);
  const float above = -floor_of(-value);
  const float up = std::fabs(above - value) <= near ? above : value;
  return std::fabs(value - below) <= near ? below : up;
}

/// What is infinite has no fraction, and stays.
inline float fraction(float value) {
  const float rest = value - floor_of(value);
  return std::isnan(rest) ? value : rest;
}

/// The smallest of the numbers among `start` and the corners' values.
inline float smallest(float start, const tex_coord& a, const tex_coord& b, const tex_coord& c,
                      unsigned axis) {
  for (const float value : {a[axis], b[axis], c[axis]}) start = value < start ? value : start;
  return start;
}
inline float largest(float start, const tex_coord& a, const tex_coord& b, const tex_coord& c,
                     unsigned axis) {
  for (const float value : {a[axis], b[axis], c[axis]}) start = value > start ? value : start;
  return start;
}

inline void subtract_floor(float of, tex_coord& a, tex_coord& b, tex_coord& c, unsigned axis) {
  const float shift = floor_of(of);
  if (!std::isfinite(shift)) return;
  a[axis] -= shift;
  b[axis] -= shift;
  c[axis] -= shift;
}

inline void make_positive(tex_coord& a, tex_coord& b, tex_coord& c) {
  for (unsigned axis = 0; axis < 2; ++axis)
    if (const float low = smallest(0.0f, a, b, c, axis); low < 0)
      subtract_floor(low, a, b, c, axis);
}

inline void move_near_zero(tex_coord& a, tex_coord& b, tex_coord& c) {
  constexpr float no_number = std::numeric_limits<float>::infinity();
  for (unsigned axis = 0; axis < 2; ++axis)
    if (const float low = smallest(no_number, a, b, c, axis); low > 1)
      subtract_floor(low, a, b, c, axis);
}

inline void cut_corner(tex_coord& corner, float limit) {
  for (unsigned axis = 0; axis < 2; ++axis) {
    if (!(corner[axis] > limit)) continue;
    float& other = corner[1 - axis];
    corner[axis] = fraction(corner[axis]);
    if (other > 1) other = fraction(other);
  }
}

}  // namespace morlu::osg::tex_coord_steps
