#pragma once

#include <array>
#include <span>

#include <osg/matrix.h>
#include <osg/vector.h>

namespace morlu::program {

/// An axis-aligned box with at least one point in it.
struct Box {
  ::osg::Pnt3d min, max;
};

/// The box around boxes, of which there is at least one.
Box box_around(std::span<const Box> boxes);
/// Widens `box` by a point.
void widen(Box& box, const ::osg::Pnt3d& point);

std::array<::osg::Pnt3d, 8> corners_of(const Box& box);
double diagonal_of(const Box& box);
/// The coordinate that is farthest from 0, without its sign.
double largest_coordinate(const Box& box);

::osg::Pnt3d in_double(const ::osg::Pnt3f& point);
::osg::Matrix4d in_double(const ::osg::Matrix& matrix);

}  // namespace morlu::program
