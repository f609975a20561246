// Source: S. W. Shepperd, "Quaternion from rotation matrix", J. Guidance and Control 1 (1978).

#include "osg/quaternion.h"

#include <algorithm>
#include <cmath>

namespace osg {

Quaternion Quaternion::fromAxisAngle(const Vec3d& axis, Real64 radians) {
  const Real64 size = axis.length();
  if (!(size > 0) || std::isinf(size) || !std::isfinite(radians)) return {};
  const Vec3d q = axis * (std::sin(radians / 2) / size);
  return {q[0], q[1], q[2], std::cos(radians / 2)};
}

Quaternion::Quaternion(const Matrix& rotation) {
  const Matrix& r = rotation;
  for (UInt32 i = 0; i < 11; ++i) {
    if (i % 4 != 3 && !std::isfinite(r[i])) return;
  }
  // Four times the squares of the components, up to the unit: the largest one is the safe divisor.
  const Real64 xx = r[0], yy = r[5], zz = r[10];
  const Real64 squares[4] = {1 + xx - yy - zz, 1 - xx + yy - zz, 1 - xx - yy + zz,
                             1 + xx + yy + zz};
  // Products of two components, times four. The order of the candidates makes the unit win ties.
  const Real64 xy = Real64(r[1]) + r[4], xz = Real64(r[2]) + r[8], yz = Real64(r[6]) + r[9];
  const Real64 wx = Real64(r[6]) - r[9], wy = Real64(r[8]) - r[2], wz = Real64(r[1]) - r[4];
  const Real64 rows[4][4] = {{squares[0], xy, xz, wx},
                             {xy, squares[1], yz, wy},
                             {xz, yz, squares[2], wz},
                             {wx, wy, wz, squares[3]}};
  UInt32 best = 3;
  for (UInt32 i = 0; i < 3; ++i) {
    if (squares[i] > squares[best]) best = i;
  }
  // Row `best` is the quaternion times four times its component `best`.
  const Vector<Real64, 4> q(rows[best][0], rows[best][1], rows[best][2], rows[best][3]);
  const Real64 size = q.length();
  if (!(size > 0)) return;
  x_ = q[0] / size;
  y_ = q[1] / size;
  z_ = q[2] / size;
  w_ = q[3] / size;
}

Matrix4d Quaternion::toMatrix() const {
  const Real64 x = x_, y = y_, z = z_, w = w_;
  return Matrix4d({1 - 2 * (y * y + z * z), 2 * (x * y + w * z), 2 * (x * z - w * y), 0,  //
                   2 * (x * y - w * z), 1 - 2 * (x * x + z * z), 2 * (y * z + w * x), 0,  //
                   2 * (x * z + w * y), 2 * (y * z - w * x), 1 - 2 * (x * x + y * y), 0,  //
                   0, 0, 0, 1});
}

}  // namespace osg
