#pragma once

#include "osg/vector.h"

namespace osg {

/// A ray: the points position + t * direction with t at or above 0.
class Line {
 public:
  /// At the origin, with a zero direction.
  Line() = default;

  /// `direction` is scaled to unit length, however short or long it is (formed in double, so
  /// that no float is out of range). Zero stays zero; one that isn't finite stays as it is.
  Line(const Pnt3f& position, const Vec3f& direction) { setValue(position, direction); }

  /// As the constructor.
  void setValue(const Pnt3f& position, const Vec3f& direction) {
    position_ = position;
    direction_ = direction;
    const Vec3d wide(direction[0], direction[1], direction[2]);
    const Real64 size = wide.length();
    if (!(size > 0) || std::isinf(size)) return;
    for (UInt32 i = 0; i < 3; ++i) direction_[i] = static_cast<Real32>(wide[i] / size);
  }

  const Pnt3f& getPosition() const { return position_; }
  /// Of unit length, or zero.
  const Vec3f& getDirection() const { return direction_; }

  /// The point at distance `t` from the position.
  Pnt3f getPoint(Real32 t) const { return position_ + direction_ * t; }

 private:
  Pnt3f position_;
  Vec3f direction_;
};

}  // namespace osg
