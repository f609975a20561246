#pragma once

#include <osg/matrix.h>

/// Placements from sums and products alone, so that every machine gets the same bits.
namespace morlu::sample {

using ::osg::Matrix;
using ::osg::Vec3f;

inline Matrix move(float x, float y, float z) {
  return Matrix::translation(x, y, z);
}
inline Matrix move(const Vec3f& by) {
  return Matrix::translation(by);
}
inline Matrix stretch(float x, float y, float z) {
  return Matrix::scale(x, y, z);
}

/// The images of the three axes; right-handed unit vectors give a rotation.
inline Matrix axes(const Vec3f& x, const Vec3f& y, const Vec3f& z) {
  Matrix m;
  for (unsigned row = 0; row < 3; ++row) {
    m[row] = x[row];
    m[4 + row] = y[row];
    m[8 + row] = z[row];
  }
  return m;
}

/// Turns about z by the angle whose cosine and sine are given.
inline Matrix turn_z(float cosine, float sine) {
  return axes({cosine, sine, 0.0f}, {-sine, cosine, 0.0f}, {0.0f, 0.0f, 1.0f});
}
/// About z, by quarters of a circle.
inline Matrix quarter_turns(unsigned count) {
  constexpr float cosines[] = {1.0f, 0.0f, -1.0f, 0.0f};
  return turn_z(cosines[count % 4], cosines[(count + 3) % 4]);
}

/// Turns z into `direction`, a unit vector along an axis.
inline Matrix along(const Vec3f& direction) {
  const Vec3f side = direction[0] == 0.0f ? Vec3f(1.0f, 0.0f, 0.0f) : Vec3f(0.0f, 1.0f, 0.0f);
  return axes(side, direction.cross(side), direction);
}

}  // namespace morlu::sample
