#include "boxes.h"

#include <algorithm>
#include <cmath>

namespace morlu::program {

using ::osg::Pnt3d;

void widen(Box& box, const Pnt3d& point) {
  for (unsigned axis = 0; axis < 3; ++axis) {
    box.min[axis] = std::min(box.min[axis], point[axis]);
    box.max[axis] = std::max(box.max[axis], point[axis]);
  }
}

Box box_around(std::span<const Box> boxes) {
  Box all = boxes.front();
  for (const Box& box : boxes) {
    widen(all, box.min);
    widen(all, box.max);
  }
  return all;
}

std::array<Pnt3d, 8> corners_of(const Box& box) {
  std::array<Pnt3d, 8> corners;
  for (unsigned corner = 0; corner < 8; ++corner)
    for (unsigned axis = 0; axis < 3; ++axis)
      corners[corner][axis] = corner >> axis & 1 ? box.max[axis] : box.min[axis];
  return corners;
}

double diagonal_of(const Box& box) {
  return (box.max - box.min).length();
}

double largest_coordinate(const Box& box) {
  double largest = 0.0;
  for (unsigned axis = 0; axis < 3; ++axis)
    largest = std::max({largest, std::fabs(box.min[axis]), std::fabs(box.max[axis])});
  return largest;
}

Pnt3d in_double(const ::osg::Pnt3f& point) {
  return {point[0], point[1], point[2]};
}

::osg::Matrix4d in_double(const ::osg::Matrix& matrix) {
  ::osg::Matrix4d wide;
  for (unsigned i = 0; i < 16; ++i) wide[i] = matrix[i];
  return wide;
}

}  // namespace morlu::program
