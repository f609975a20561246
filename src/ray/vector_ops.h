#pragma once

#include "morlu/primitives.h"

/// Arithmetic of points and directions, in single precision and in the order written here: results
/// of rays and collisions are the same bits on every machine.
namespace morlu::math {

using vector3 = vector<float, 3>;

inline vector3 operator+(const vector3& a, const vector3& b) {
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
inline vector3 operator-(const vector3& a, const vector3& b) {
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline vector3 operator*(const vector3& a, float s) {
  return {a[0] * s, a[1] * s, a[2] * s};
}

inline float dot(const vector3& a, const vector3& b) {
  return 0 + a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
inline vector3 cross(const vector3& a, const vector3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline float distance(const vector3& a, const vector3& b) {
  return length(a - b);
}

/// A vector of length 0 stays as it is.
inline vector3 unit(const vector3& a) {
  const float size = length(a);
  if (size == 0) return a;
  return {a[0] / size, a[1] / size, a[2] / size};
}

}  // namespace morlu::math
