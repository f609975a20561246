#pragma once

#include <osg/vector.h>

namespace morlu::program {

// Light adds up and is mixed in proportion to its energy; files of pictures hold it bent, so that
// the steps of their bytes look even. The curve is that of IEC 61966-2-1 (sRGB); it has its ends in
// common with the straight line from 0 to 1.

/// The light that a picture's value stands for, and back.
double to_linear(double displayed);
double to_displayed(double linear);

::osg::Vec3d to_linear(const ::osg::Vec3d& displayed);

}  // namespace morlu::program
