#pragma once

#include <osg/image.h>

namespace morlu::osg {

/// A new image of the first slice's pixels, whatever else the image holds.
inline ::osg::ImagePtr copy_of_pixels(const ::osg::Image& image) {
  const auto copy = ::osg::Image::create();
  copy->set(image.getPixelFormat(), image.getWidth(), image.getHeight(), 1, 1, 1, 0.0f,
            image.getData());
  return copy;
}

}  // namespace morlu::osg
