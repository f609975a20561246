#pragma once

#include <cstdint>
#include <vector>

#include <osg/material.h>

namespace morlu::sample {

/// A material and what parts need to know of it.
struct Paint {
  ::osg::MaterialPtr material;
  bool transparent = false;
  bool textured = false;
  bool tiled = false;  // the texture repeats, in coordinates of metres
};

/// `count` materials: a tenth of them are transparent, one at least of two or more; `textured` of
/// them, at most all, carry an image of their own. Names are unique.
std::vector<Paint> make_palette(std::uint32_t count, std::uint32_t textured, std::uint64_t seed);

}  // namespace morlu::sample
