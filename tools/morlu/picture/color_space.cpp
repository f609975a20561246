#include "picture/color_space.h"

#include <cmath>

namespace morlu::program {

double to_linear(double displayed) {
  return displayed <= 0.04045 ? displayed / 12.92 : std::pow((displayed + 0.055) / 1.055, 2.4);
}

double to_displayed(double linear) {
  return linear <= 0.0031308 ? linear * 12.92 : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
}

::osg::Vec3d to_linear(const ::osg::Vec3d& displayed) {
  return {to_linear(displayed[0]), to_linear(displayed[1]), to_linear(displayed[2])};
}

}  // namespace morlu::program
