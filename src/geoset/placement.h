#pragma once

#include <span>

#include <osg/matrix.h>
#include <osg/quaternion.h>

namespace morlu::osg {

/// From the space of a source to that of a set, for rows of values.
class placement {
 public:
  placement() = default;
  explicit placement(const ::osg::Matrix& matrix);

  /// False if all values stay as they are.
  bool moves() const { return moves_; }
  void move(std::span<::osg::Pnt3f> points) const;
  /// By the rotation in the matrix, without its stretch and mirroring, and to unit length.
  void turn(std::span<::osg::Vec3f> normals) const;
  /// By the upper left of the matrix; the length becomes what it may.
  void transform(std::span<::osg::Vec3f> normals) const;

 private:
  bool moves_ = false;
  ::osg::Matrix matrix_;
  ::osg::Quaternion rotation_;
};

}  // namespace morlu::osg
