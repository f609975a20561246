#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <utility>

#include "ray/bounding_box.h"

namespace morlu {

/// What a ray test reports. Only `hit` means something as long as it is false.
struct ray_hit {
  bool hit;
  math::vector3 point;
  math::vector3 normal;  // of unit length when a trace returns
  float t;               // entry distance of a box; 0 to 1 on the segment of a triangle test; the
                         // distance from the origin when a trace returns
  std::uint64_t index;   // the triangle's number, or the object's in a tree of objects
  bool two_sided;        // asks a triangle test to take back faces too
};

/// Slab test. The result is the distance at which the ray leaves the box, 0 on a miss; `out` gets
/// the entry. Comparisons are written so that a NaN never makes a miss of a hit.
inline float intersect_box(const bounding_box& box, const math::vector3& origin,
                           const math::vector3& direction, ray_hit& out) {
  constexpr float parallel_below = 1e-6f;
  out.hit = false;
  float t_enter = 0;
  float t_exit = FLT_MAX;
  for (int axis = 0; axis < 3; ++axis) {
    if (parallel_below > std::fabs(direction[axis])) {
      if (box.min[axis] > origin[axis] || origin[axis] > box.max[axis]) return 0;
      continue;
    }
    const float inverse = 1 / direction[axis];
    float t1 = (box.min[axis] - origin[axis]) * inverse;
    float t2 = (box.max[axis] - origin[axis]) * inverse;
    if (t1 > t2) std::swap(t1, t2);
    if (t1 > t_enter) t_enter = t1;
    if (t_exit > t2) t_exit = t2;
    if (t_enter > t_exit) return 0;
  }
  out.hit = true;
  out.point = origin + direction * t_enter;
  out.t = t_enter;
  return t_exit;
}

/// Yes or no for the segment from p to q against the front face of a triangle, and on yes the
/// unnormalised normal and the numerator and denominator of the parameter.
///
/// d = n . qp is the denominator of all three coordinates; each numerator is compared with it
/// before anything is divided. Hits on edges, corners and both ends count.
struct triangle_test {
  math::vector3 n;
  float t;
  float d;

  bool operator()(const math::vector3& c0, const math::vector3& c1, const math::vector3& c2,
                  const math::vector3& p, const math::vector3& q) {
    const math::vector3 ab = c1 - c0;
    const math::vector3 ac = c2 - c0;
    const math::vector3 qp = p - q;
    n = math::cross(ab, ac);
    d = math::dot(n, qp);
    if (!(d > 0)) return false;
    const math::vector3 ap = p - c0;
    t = math::dot(n, ap);
    if (t < 0 || t > d) return false;
    const math::vector3 e = math::cross(qp, ap);
    const float v = math::dot(ac, e);
    if (v < 0 || v > d) return false;
    const float w = -math::dot(ab, e);
    return !(w < 0 || v + w > d);
  }
};

inline bool segment_hits_triangle(const math::vector3& c0, const math::vector3& c1,
                                  const math::vector3& c2, const math::vector3& p,
                                  const math::vector3& q) {
  return triangle_test()(c0, c1, c2, p, q);
}

/// The segment from p to q against a triangle's front face, or with `two_sided` against the back
/// face first.
inline void intersect_triangle(const math::vector3& c0, const math::vector3& c1,
                               const math::vector3& c2, const math::vector3& p,
                               const math::vector3& q, ray_hit& out) {
  if (out.two_sided) {
    out.two_sided = false;
    intersect_triangle(c0, c2, c1, p, q, out);
    out.two_sided = true;
    if (out.hit) return;
  }
  triangle_test test{};
  out.hit = test(c0, c1, c2, p, q);
  out.normal = test.n;
  out.t = test.t;
  if (!out.hit) return;
  out.t = (1 / test.d) * test.t;
  out.point = p + (q - p) * out.t;
}

}  // namespace morlu
