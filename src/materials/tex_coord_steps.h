#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>

/// The steps that bring texture coordinates near 0 to 1, on one axis each.
namespace morlu::osg::tex_coord_steps {

/// One of both by their bits: with a branch, even one that compilers could turn into this, they
/// make no vector code of a loop.
inline float select(bool which, float yes, float no) {
  const auto bits = [](float value) { return std::bit_cast<std::uint32_t>(value); };
  const std::uint32_t all = which ? ~std::uint32_t{0} : 0;
  return std::bit_cast<float>((bits(yes) & all) | (bits(no) & ~all));
}

/// `std::floor`, to the bit, by arithmetic that all processors have for vectors.
inline float floor_of(float value) {
  constexpr float all_whole = 8388608.0f;  // from 2^23 on floats have no fraction
  const float size = std::fabs(value);
  const float nearest = std::copysign((size + all_whole) - all_whole, value);
  const float below = nearest - select(nearest > value, 1.0f, 0.0f);
  return select(size < all_whole, below, value);  // NaN stays
}

/// To the whole number that is near, if there is one.
inline float rounded(float value) {
  constexpr float near = 0.001f;
  const float below = floor_of(value);
  const float above = -floor_of(-value);
  return select(value - below <= near, below, select(above - value <= near, above, value));
}

/// What is infinite has no fraction, and stays.
inline float fraction(float value) {
  const float rest = value - floor_of(value);
  return std::isnan(rest) ? value : rest;
}

/// The smallest that is a number; `start` among them.
inline float smallest(float start, float a, float b, float c) {
  for (const float value : {a, b, c}) start = value < start ? value : start;
  return start;
}

/// Nothing is shifted by what is not finite.
inline void subtract_floor(float of, float& a, float& b, float& c) {
  const float shift = floor_of(of);
  if (!std::isfinite(shift)) return;
  a -= shift;
  b -= shift;
  c -= shift;
}

inline void make_positive(float& a, float& b, float& c) {
  if (const float low = smallest(0.0f, a, b, c); low < 0) subtract_floor(low, a, b, c);
}

inline void move_near_zero(float& a, float& b, float& c) {
  constexpr float no_number = std::numeric_limits<float>::infinity();
  if (const float low = smallest(no_number, a, b, c); low > 1) subtract_floor(low, a, b, c);
}

/// Takes the whole numbers off a corner that has `u` above the limit; the other value goes along.
inline void cut_axis(float& u, float& v, float limit) {
  if (!(u > limit)) return;
  u = fraction(u);
  if (v > 1) v = fraction(v);
}

inline void cut_corner(float& u, float& v, float limit) {
  cut_axis(u, v, limit);
  cut_axis(v, u, limit);
}

}  // namespace morlu::osg::tex_coord_steps
