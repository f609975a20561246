#include "world_bounds.h"

#include <cmath>

namespace morlu::program {
namespace {

using ::osg::Matrix4d;
using ::osg::Pnt3d;
using ::osg::Pnt3f;

bool is_finite(const Pnt3d& p) {
  return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
}

/// None if there is no position, or one that isn't finite.
std::optional<Box> box_of(std::span<const Pnt3f> positions) {
  std::optional<Box> box;
  for (const Pnt3f& position : positions) {
    const Pnt3d point = in_double(position);
    if (!is_finite(point)) return std::nullopt;
    if (!box) box = Box{point, point};
    widen(*box, point);
  }
  return box;
}

}  // namespace

// The corner of the object's box that lies lowest on a world axis, put through the same sums as its
// points: rounding is monotonic, so no point comes out lower. The same for the highest.
bool WorldBounds::holds(const Box& object_box, const Matrix4d& world_from_object) const {
  if (!box_) return false;
  for (unsigned axis = 0; axis < 3; ++axis) {
    Pnt3d low, high;
    for (unsigned i = 0; i < 3; ++i) {
      const bool descends = world_from_object[4 * i + axis] < 0.0;
      low[i] = descends ? object_box.max[i] : object_box.min[i];
      high[i] = descends ? object_box.min[i] : object_box.max[i];
    }
    const bool inside = (world_from_object * low)[axis] >= box_->min[axis] &&
                        (world_from_object * high)[axis] <= box_->max[axis];
    if (!inside) return false;  // NaN too
  }
  return true;
}

void WorldBounds::extend(const Pnt3d& point) {
  if (!is_finite(point)) {
    ++dropped_;
    return;
  }
  if (!box_) box_ = Box{point, point};
  widen(*box_, point);
}

void WorldBounds::extend(std::span<const Pnt3f> positions,
                         std::span<const Matrix4d> world_from_object) {
  const std::optional<Box> object_box = box_of(positions);
  for (const Matrix4d& matrix : world_from_object) {
    if (object_box && holds(*object_box, matrix)) continue;
    for (const Pnt3f& position : positions) extend(matrix * in_double(position));
  }
}

}  // namespace morlu::program
