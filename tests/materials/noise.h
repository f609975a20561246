#pragma once

#include <osg/image.h>

#include <algorithm>
#include <random>

namespace morlu::tests {

inline ::osg::ImagePtr noise(std::mt19937& random, ::osg::UInt32 format, int width, int height) {
  const auto image = ::osg::Image::create();
  image->set(format, width, height);
  std::generate_n(image->getData(), image->getSize(),
                  [&] { return static_cast<::osg::UInt8>(random()); });
  return image;
}

}  // namespace morlu::tests
