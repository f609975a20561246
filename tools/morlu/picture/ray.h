#pragma once

#include <osg/vector.h>

namespace morlu::program {

/// The points origin + t * direction; the direction has unit length, so t is a distance.
struct Ray {
  ::osg::Pnt3d origin;
  ::osg::Vec3d direction;

  ::osg::Pnt3d at(double t) const { return origin + direction * t; }
};

}  // namespace morlu::program
