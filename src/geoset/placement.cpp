// Loops of their own, each around one call, so that the compiler puts the call's body into the
// loop.

#include "geoset/placement.h"

namespace morlu::osg {

placement::placement(const ::osg::Matrix& matrix)
    : moves_(true), matrix_(matrix), rotation_(matrix.polarDecompose().properRotation()) {}

void placement::move(std::span<::osg::Pnt3f> points) const {
  const ::osg::Matrix matrix = matrix_;
  for (::osg::Pnt3f& point : points) point = matrix * point;
}

void placement::turn(std::span<::osg::Vec3f> normals) const {
  const ::osg::Quaternion rotation = rotation_;
  for (::osg::Vec3f& normal : normals) {
    ::osg::Vec3f turned = rotation.rotate(normal);
    turned.normalize();
    normal = turned;
  }
}

void placement::transform(std::span<::osg::Vec3f> normals) const {
  const ::osg::Matrix matrix = matrix_;
  for (::osg::Vec3f& normal : normals) normal = matrix * normal;
}

}  // namespace morlu::osg
