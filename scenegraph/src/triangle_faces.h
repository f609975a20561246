#pragma once

#include <cmath>

#include "osg/geometry.h"

namespace osg::detail {

/// The normal of a triangle, as long as twice its area, or a sum of such normals.
///
/// In double, since differences and products of floats fit there: the length is zero for triangles
/// without area only, however small they are.
struct Face {
  double x = 0, y = 0, z = 0;
  double length = 0;  // of the normal; of a sum: sum of the lengths

  double dot(const Face& b) const { return x * b.x + y * b.y + z * b.z; }
  Face& operator+=(const Face& b) {
    x += b.x;
    y += b.y;
    z += b.z;
    length += b.length;
    return *this;
  }
};

inline Face face_of(const Pnt3f& a, const Pnt3f& b, const Pnt3f& c) {
  const double ux = double{b[0]} - a[0], uy = double{b[1]} - a[1], uz = double{b[2]} - a[2];
  const double vx = double{c[0]} - a[0], vy = double{c[1]} - a[1], vz = double{c[2]} - a[2];
  Face face{uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx};
  face.length = std::sqrt(face.dot(face));
  return face;
}

/// The direction of a sum of normals. Zeros where they cancel each other out: what is left then is
/// rounding. The measure is relative, so that parts modelled in small units keep their normals.
inline Vec3f direction_of(const Face& sum) {
  constexpr double kCancelled = 1e-6;
  const double length = std::sqrt(sum.dot(sum));
  if (!(length > kCancelled * sum.length)) return {};
  // Adding zero turns -0.0 into 0.0: equal directions have equal bits.
  return {static_cast<float>(sum.x / length) + 0.0f, static_cast<float>(sum.y / length) + 0.0f,
          static_cast<float>(sum.z / length) + 0.0f};
}

/// Calls `use(face, triangle)` with the triangles that have an area and finite coordinates, in
/// order.
template <class Use>
void for_each_face(const Geometry& geometry, Use use) {
  for (TriangleIterator it = geometry.beginTriangles(); !it.isAtEnd(); ++it) {
    const Face face = face_of(it.getPosition(0), it.getPosition(1), it.getPosition(2));
    if (face.length > 0 && std::isfinite(face.length)) use(face, it);
  }
}

}  // namespace osg::detail
