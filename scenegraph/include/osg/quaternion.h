#pragma once

#include "osg/export.h"
#include "osg/matrix.h"

namespace osg {

/// A rotation as a unit quaternion x i + y j + z k + w. Default constructed: no rotation.
///
/// The components are doubles: rounded to float, a quarter turn would already tilt an axis by an
/// ulp, and normals that should stay equal would fall apart.
class Quaternion {
 public:
  constexpr Quaternion() = default;

  /// Taken as given; `rotate` and `toMatrix` expect unit length.
  constexpr Quaternion(Real64 x, Real64 y, Real64 z, Real64 w) : x_(x), y_(y), z_(z), w_(w) {}

  /// Counter-clockwise by `radians` when `axis` points at the viewer. The axis needs no unit
  /// length; a zero, infinite or NaN axis or angle gives no rotation.
  OSG_API static Quaternion fromAxisAngle(const Vec3d& axis, Real64 radians);

  /// From the upper left 3x3 of `rotation`, which must be a proper rotation (to rounding).
  /// The identity gives exactly no rotation, and so does a 3x3 that isn't finite.
  /// Source: S. W. Shepperd, "Quaternion from rotation matrix" (1978).
  OSG_API explicit Quaternion(const Matrix& rotation);

  constexpr Real64 x() const { return x_; }
  constexpr Real64 y() const { return y_; }
  constexpr Real64 z() const { return z_; }
  constexpr Real64 w() const { return w_; }

  /// `v` turned, computed in double and rounded once; equals the product with the matrix to
  /// float accuracy. Without rotation `v` comes back bit for bit.
  constexpr Vec3f rotate(const Vec3f& v) const {
    if (x_ == 0 && y_ == 0 && z_ == 0) return v;
    // v + 2 w (q x v) + 2 q x (q x v), with q the vector part
    const Vec3d q(x_, y_, z_);
    const Vec3d wide(v[0], v[1], v[2]);
    const Vec3d t = q.cross(wide) * 2.0;
    const Vec3d turned = wide + t * w_ + q.cross(t);
    return Vec3f(turned[0], turned[1], turned[2]);
  }

  /// The matrix of this rotation, for a quaternion of unit length.
  OSG_API Matrix4d toMatrix() const;

  constexpr bool operator==(const Quaternion&) const = default;

 private:
  Real64 x_ = 0, y_ = 0, z_ = 0, w_ = 1;
};

}  // namespace osg
