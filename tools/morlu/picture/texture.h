#pragma once

#include <cstdint>
#include <vector>

#include <osg/image.h>

namespace morlu::program {

/// Light from 0 to 1, and alpha.
struct Texel {
  double r = 1.0, g = 1.0, b = 1.0, a = 1.0;
};

/// How a texture goes on outside 0 to 1, and whether its pixels show; `gl::` constants.
struct Sampler {
  ::osg::UInt32 wrap_s = ::osg::gl::kRepeat;
  ::osg::UInt32 wrap_t = ::osg::gl::kRepeat;
  ::osg::UInt32 mag_filter = ::osg::gl::kLinear;
};

/// An image to be looked up by coordinates: (0, 0) is the corner where its first pixel lies. Each
/// further level is half as wide and high as the last.
class Texture {
 public:
  /// `image` has pixels.
  explicit Texture(const ::osg::Image& image);

  /// The colour at (s, t), as wide as `footprint` of the image's size: linear between the pixels of
  /// the level whose pixels are about as large. Coordinates that aren't finite count as 0.
  Texel at(double s, double t, double footprint, const Sampler& sampler) const;

  int width() const { return levels_[0].width; }
  int height() const { return levels_[0].height; }

 private:
  struct Level {
    int width, height;
    std::vector<std::uint8_t> rgba;
  };

  const Level& level_for(double footprint) const;

  std::vector<Level> levels_;
};

}  // namespace morlu::program
