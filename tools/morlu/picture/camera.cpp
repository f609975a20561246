#include "picture/camera.h"

#include <algorithm>
#include <cmath>

namespace morlu::program {
namespace {

using ::osg::Pnt3d;
using ::osg::Vec3d;

// Half the height of the picture at distance 1: an angle of 35 degrees from top to bottom, that of
// a lens which makes things look neither flat nor bulged.
constexpr double usual_half_height = 0.3153;
constexpr double frame = 1.04;  // what is left free around a scene that is fitted in

std::optional<Vec3d> unit(const Vec3d& vector) {
  const double length = vector.length();
  if (!(length > 0.0) || std::isinf(length)) return std::nullopt;
  return vector / length;
}

struct NamedView {
  const char* name;
  Vec3d to_viewer, up;  // with y up
};
const NamedView views[] = {
    {"iso", {1, 0.8, 1}, {0, 1, 0}},   {"front", {0, 0, 1}, {0, 1, 0}},
    {"back", {0, 0, -1}, {0, 1, 0}},   {"left", {-1, 0, 0}, {0, 1, 0}},
    {"right", {1, 0, 0}, {0, 1, 0}},   {"top", {0, 1, 0}, {0, 0, -1}},
    {"bottom", {0, -1, 0}, {0, 0, 1}},
};

/// Turns `v` as the shortest turn does that takes y to the unit vector `up` (Rodrigues' formula
/// with the sine in the axis); half a turn goes about x.
Vec3d turned(const Vec3d& v, const Vec3d& up) {
  const double cosine = up[1];
  if (cosine < -1.0 + 1e-12) return {v[0], -v[1], -v[2]};
  const Vec3d axis = Vec3d(0, 1, 0).cross(up);
  return v + axis.cross(v) + axis.cross(axis.cross(v)) / (1.0 + cosine);
}

/// A point as one axis of the picture sees it: how far across, and how far to the back.
struct Seen {
  double across, depth;
};

/// How far back the eye has to be at least, somewhere along the axis, to have all points within
/// `half` of the middle at distance 1. A point is if |across| <= half * (eye - depth); each of the
/// two sides asks for a depth of the eye, and where both ask for the same it is least.
double least_depth(std::span<const Seen> points, double half) {
  double low = -INFINITY, high = -INFINITY;
  for (const Seen& point : points) {
    low = std::max(low, point.depth - point.across / half);
    high = std::max(high, point.depth + point.across / half);
  }
  return (low + high) / 2.0;
}

/// Where along the axis an eye at that depth sees as much on either side, by halving.
double middle_seen_from(double depth, std::span<const Seen> points) {
  double low = INFINITY, high = -INFINITY;
  for (const Seen& point : points) {
    low = std::min(low, point.across);
    high = std::max(high, point.across);
  }
  for (int step = 0; step < 40; ++step) {
    const double middle = (low + high) / 2.0;
    double left = INFINITY, right = -INFINITY;
    for (const Seen& point : points) {
      const double slope = (point.across - middle) / (depth - point.depth);
      left = std::min(left, slope);
      right = std::max(right, slope);
    }
    (left + right > 0.0 ? low : high) = middle;
  }
  return (low + high) / 2.0;
}

}  // namespace

std::optional<Camera> Camera::looking(const Pnt3d& eye, const Pnt3d& target, const Vec3d& up,
                                      PictureSize size) {
  const auto back = unit(eye - target);
  const auto up_unit = unit(up);
  if (!back || !up_unit) return std::nullopt;
  const Vec3d across = up_unit->cross(*back);
  if (!(across.length() > 1e-9)) return std::nullopt;
  Camera camera;
  camera.eye_ = eye;
  camera.back_ = *back;
  camera.right_ = across / across.length();
  camera.up_ = back->cross(camera.right_);
  camera.half_height_ = usual_half_height;
  camera.size_ = size;
  return camera;
}

Ray Camera::ray(double x, double y) const {
  const double across = (x - size_.width / 2.0) * pixel_width();
  const double upwards = (size_.height / 2.0 - y) * pixel_width();
  const Vec3d direction = right_ * across + up_ * upwards - back_;
  return {eye_, direction / direction.length()};
}

std::vector<std::string> view_names() {
  std::vector<std::string> names;
  for (const NamedView& view : views) names.push_back(view.name);
  return names;
}

std::optional<Camera> named_view(const std::string& view, const Vec3d& up,
                                 std::span<const Box> boxes, PictureSize size) {
  const auto up_unit = unit(up);
  const auto* named = std::find_if(std::begin(views), std::end(views),
                                   [&](const NamedView& each) { return each.name == view; });
  if (!up_unit || named == std::end(views)) return std::nullopt;
  const Box all = box_around(boxes);
  const Pnt3d middle = all.min + (all.max - all.min) * 0.5;
  const Vec3d to_viewer = turned(named->to_viewer, *up_unit);
  const auto axes = Camera::looking(middle + to_viewer, middle, turned(named->up, *up_unit), size);
  if (!axes) return std::nullopt;

  std::vector<Seen> across, upwards;
  for (const Box& box : boxes) {
    for (const Pnt3d& corner : corners_of(box)) {
      const Vec3d from_middle = corner - middle;
      const double depth = from_middle.dot(axes->back());
      across.push_back({from_middle.dot(axes->right()), depth});
      upwards.push_back({from_middle.dot(axes->up()), depth});
    }
  }
  // Outside of the scene, however small it is across.
  const double depth =
      std::max({least_depth(across, axes->half_width() / frame),
                least_depth(upwards, axes->half_height() / frame), 0.501 * diagonal_of(all)});
  const Pnt3d target = middle + axes->right() * middle_seen_from(depth, across) +
                       axes->up() * middle_seen_from(depth, upwards);
  return Camera::looking(target + axes->back() * depth, target, axes->up(), size);
}

}  // namespace morlu::program
