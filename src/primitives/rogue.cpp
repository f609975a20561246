// The one filter that decides which triangles geometry code works on.
#include <cmath>

#include <osg/geometry.h>
#include <osg/primitive_iterators.h>

#include "morlu/primitives.h"

namespace morlu::osg {
namespace {

using point = ::osg::Point<float, 3>;

constexpr float coincidence = 1e-6f;
constexpr float farthest = 1e12f;  // 999999995904.0, the nearest float

// A NaN difference is within no bound.
bool coincide(const point& a, const point& b) {
  for (unsigned axis = 0; axis < 3; ++axis) {
    if (!(std::fabs(a[axis] - b[axis]) <= coincidence)) return false;
  }
  return true;
}

// On two axes: the triangle is a line along the third, or a point.
bool on_axis_line(const point& p0, const point& p1, const point& p2) {
  int shared_axes = 0;
  for (unsigned axis = 0; axis < 3; ++axis) {
    if (p0[axis] == p1[axis] && p1[axis] == p2[axis]) ++shared_axes;
  }
  return shared_axes > 1;
}

bool out_of_range(const point& p) {
  for (unsigned axis = 0; axis < 3; ++axis) {
    if (!(p[axis] <= farthest && p[axis] >= -farthest)) return true;  // NaN too
  }
  return false;
}

inline bool rogue(const point& p0, const point& p1, const point& p2) {
  return coincide(p0, p1) || coincide(p1, p2) || coincide(p0, p2) || on_axis_line(p0, p1, p2) ||
         out_of_range(p0) || out_of_range(p1) || out_of_range(p2);
}

}  // namespace

bool is_rogue(const point& p0, const point& p1, const point& p2) {
  return rogue(p0, p1, p2);
}

int count_triangles(const ::osg::GeometryPtr& geo) {
  if (!geo) return 0;
  int usable = 0;
  for (auto triangle = geo->beginTriangles(); !triangle.isAtEnd(); ++triangle) {
    if (!rogue(triangle.getPosition(0), triangle.getPosition(1), triangle.getPosition(2))) ++usable;
  }
  return usable;
}

}  // namespace morlu::osg
