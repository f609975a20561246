// The ray test is the slab method (T. Kay, J. Kajiya, "Ray tracing complex scenes", 1986), in
// double and with a margin that covers its own rounding.

#include "osg/volume.h"

#include <algorithm>
#include <cmath>

namespace osg {
namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr double largest_float = std::numeric_limits<Real32>::max();

/// The largest float at or below `value`.
Real32 rounded_down(double value) {
  const Real32 nearest = static_cast<Real32>(value);
  return nearest > value ? std::nextafter(nearest, -INFINITY) : nearest;
}

/// The smallest float at or above `value`.
Real32 rounded_up(double value) {
  return -rounded_down(-value);
}

bool affine_part_has_nan(const Matrix& m) {
  for (UInt32 i = 0; i < 16; ++i) {
    if (i % 4 != 3 && std::isnan(m[i])) return true;
  }
  return false;
}

bool is_finite(const Line& line) {
  const Pnt3f& p = line.getPosition();
  const Vec3f& d = line.getDirection();
  return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]) && std::isfinite(d[0]) &&
         std::isfinite(d[1]) && std::isfinite(d[2]);
}

/// The range of distances for which a ray is inside all slabs looked at so far.
struct RayRange {
  double enter = 0;
  double exit = infinite;

  /// Cuts the range down to one axis' slab.
  ///
  /// The distance of a plane, fl(fl(plane - from) / direction), is two roundings off the exact
  /// one: by less than 2.01 units of rounding u = 2^-53, relative to itself. (Floats differ by at
  /// least 2^-149 and a direction is at least that, so nothing underflows in double.) A margin of
  /// 4 u on either side covers this and the rounding of the margin's own sum, so the exact range
  /// lies within the computed one and no exact hit is lost.
  void clip(double from, double direction, double low, double high) {
    if (direction == 0) {  // also -0.0: the ray runs along the slab
      if (!(low <= from && from <= high)) exit = -infinite;
      return;
    }
    constexpr double margin = 4 * 0x1p-53;
    double nearer = (low - from) / direction;
    double farther = (high - from) / direction;
    if (direction < 0) std::swap(nearer, farther);
    nearer -= std::abs(nearer) * margin;
    farther += std::abs(farther) * margin;
    // Infinite bounds may give a NaN, which compares false and cuts nothing.
    if (nearer > enter) enter = nearer;
    if (farther < exit) exit = farther;
  }
};

}  // namespace

Volume::~Volume() = default;

void Volume::setEmpty() {
  min_ = Pnt3f(infinity_, infinity_, infinity_);
  max_ = Pnt3f(-infinity_, -infinity_, -infinity_);
  valid_ = true;
}

void Volume::setBounds(const Pnt3f& a, const Pnt3f& b) {
  const Pnt3f first = a, second = b;  // either may be a bound of this very box
  setEmpty();
  extendBy(first);
  extendBy(second);
}

Pnt3f Volume::getCenter() const {
  Pnt3f center;
  if (isEmpty()) return center;
  for (UInt32 i = 0; i < 3; ++i) {
    center[i] = static_cast<Real32>((static_cast<double>(min_[i]) + max_[i]) * 0.5);
  }
  return center;
}

Real32 Volume::getScalarVolume() const {
  if (isEmpty()) return 0;
  double product = 1;
  for (UInt32 i = 0; i < 3; ++i) {
    if (min_[i] == max_[i]) return 0;
    product *= static_cast<double>(max_[i]) - min_[i];
  }
  return std::max(static_cast<Real32>(product), std::numeric_limits<Real32>::denorm_min());
}

void Volume::transform(const Matrix& m) {
  const bool was_valid = valid_;
  const Pnt3f low = min_, high = max_;
  const bool has_image = !isEmpty() && !affine_part_has_nan(m);
  setEmpty();
  valid_ = was_valid;
  if (!has_image) return;
  // Each coordinate of a corner's image is a sum with one term an axis, so the extreme images take
  // the smaller or the larger term of each axis; no need to visit the eight corners.
  for (UInt32 row = 0; row < 3; ++row) {
    double from = m[12 + row], to = from;
    for (UInt32 axis = 0; axis < 3; ++axis) {
      const double scale = m[4 * axis + row];
      if (scale == 0) continue;  // an infinite extent along this axis adds nothing either
      const double a = scale * low[axis], b = scale * high[axis];
      from += scale < 0 ? b : a;
      to += scale < 0 ? a : b;
    }
    min_[row] = std::isnan(from) ? -infinity_ : rounded_down(from);
    max_[row] = std::isnan(to) ? infinity_ : rounded_up(to);
  }
}

bool Volume::intersect(const Volume& other) const {
  if (isEmpty() || other.isEmpty()) return false;
  for (UInt32 i = 0; i < 3; ++i) {
    if (min_[i] > other.max_[i] || other.min_[i] > max_[i]) return false;
  }
  return true;
}

bool Volume::intersect(const Line& line) const {
  Real32 enter, exit;
  return intersect(line, enter, exit);
}

bool Volume::intersect(const Line& line, Real32& enter, Real32& exit) const {
  if (isEmpty() || !is_finite(line)) return false;
  RayRange range;
  for (UInt32 i = 0; i < 3; ++i) {
    range.clip(line.getPosition()[i], line.getDirection()[i], min_[i], max_[i]);
  }
  if (range.enter > range.exit) return false;
  enter = static_cast<Real32>(std::min(range.enter, largest_float));
  exit = static_cast<Real32>(std::min(range.exit, largest_float));
  return true;
}

}  // namespace osg
