#pragma once

#include <osg/image.h>

#include "sample/random.h"

namespace morlu::sample {

/// What a generated image shows.
enum class Picture { Checker, Stripes, Noise, Plate };
inline constexpr unsigned picture_kinds = 4;

/// True if the picture repeats without a seam.
constexpr bool tiles(Picture picture) {
  return picture != Picture::Plate;
}

/// A new image: RGB, or RGBA with parts that can be seen through. A plate shows `number`.
::osg::ImagePtr make_picture(Picture picture, bool with_alpha, unsigned number, Random& random);

}  // namespace morlu::sample
