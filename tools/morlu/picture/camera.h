#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "boxes.h"
#include "picture/ray.h"

namespace morlu::program {

/// The size of a picture in pixels.
struct PictureSize {
  int width, height;
};

/// Where a picture is seen from: a pinhole that looks through the pixels of a picture.
class Camera {
 public:
  /// At `eye`, with `target` in the middle of the picture and `up` pointing up in it. None if no
  /// such camera is: eye and target are one point, or `up` is zero or points along the view.
  static std::optional<Camera> looking(const ::osg::Pnt3d& eye, const ::osg::Pnt3d& target,
                                       const ::osg::Vec3d& up, PictureSize size);

  /// Through a point of the picture, in pixels from its top left corner.
  Ray ray(double x, double y) const;

  const ::osg::Pnt3d& eye() const { return eye_; }
  const ::osg::Vec3d& right() const { return right_; }
  const ::osg::Vec3d& up() const { return up_; }
  const ::osg::Vec3d& back() const { return back_; }
  /// What a pixel covers at distance 1.
  double pixel_width() const { return 2.0 * half_height_ / size_.height; }
  /// The picture's half width and half height at distance 1.
  double half_width() const { return half_height_ * size_.width / size_.height; }
  double half_height() const { return half_height_; }

 private:
  ::osg::Pnt3d eye_;
  ::osg::Vec3d right_, up_, back_;  // unit vectors, `back_` against the view
  double half_height_ = 0.0;
  PictureSize size_{1, 1};
};

/// Names of the views, the first of them the usual one.
std::vector<std::string> view_names();

/// The camera that sees all of the boxes, of which there is at least one, from the side that `view`
/// names. "Top" looks against `up`. With y up "front" looks along -z and "right" along -x; any
/// other `up` turns them along with it on the shortest way. None for a zero `up`.
std::optional<Camera> named_view(const std::string& view, const ::osg::Vec3d& up,
                                 std::span<const Box> boxes, PictureSize size);

}  // namespace morlu::program
