#pragma once

#include <cmath>

#include "morlu/primitives.h"

namespace morlu::osg {

/// `is_rogue` for loops over all triangles of a geometry: the compiler sees it.
class rogue_filter {
 public:
  using point = ::osg::Point<float, 3>;

  static bool is_rogue(const point& p0, const point& p1, const point& p2) {
    return coincide(p0, p1) || coincide(p1, p2) || coincide(p0, p2) || on_axis_line(p0, p1, p2) ||
           out_of_range(p0) || out_of_range(p1) || out_of_range(p2);
  }

  /// On all axes. A NaN difference is within no bound.
  static bool coincide(const point& a, const point& b) {
    for (unsigned axis = 0; axis < 3; ++axis)
      if (!(std::fabs(a[axis] - b[axis]) <= coincidence)) return false;
    return true;
  }

 private:
  static constexpr float coincidence = 1e-6f;
  static constexpr float farthest = 1e12f;  // 999999995904.0, the nearest float

  // On two axes: the triangle is a line along the third, or a point.
  static bool on_axis_line(const point& p0, const point& p1, const point& p2) {
    int shared_axes = 0;
    for (unsigned axis = 0; axis < 3; ++axis)
      if (p0[axis] == p1[axis] && p1[axis] == p2[axis]) ++shared_axes;
    return shared_axes > 1;
  }

  static bool out_of_range(const point& p) {
    for (unsigned axis = 0; axis < 3; ++axis)
      if (!(p[axis] <= farthest && p[axis] >= -farthest)) return true;  // NaN too
    return false;
  }
};

}  // namespace morlu::osg
