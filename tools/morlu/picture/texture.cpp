#include "picture/texture.h"

#include <algorithm>
#include <cmath>

#include "picture/color_space.h"

namespace morlu::program {
namespace {

using ::osg::Image;
namespace gl = ::osg::gl;

/// The pixel that stands for pixel `i` of an endless row of `count` pixels.
int wrapped(double i, int count, ::osg::UInt32 mode) {
  if (mode == gl::kClamp || mode == gl::kClampToEdge)
    return static_cast<int>(std::clamp(i, 0.0, count - 1.0));
  const double period = mode == gl::kMirroredRepeat ? 2.0 * count : count;
  const double rest = std::fmod(i, period);  // exact, however far out
  const int place = static_cast<int>(rest < 0.0 ? rest + period : rest);
  return std::clamp(place < count ? place : 2 * count - 1 - place, 0, count - 1);
}

/// The two pixels around a coordinate, and the share of the second.
struct Pair {
  int first, second;
  double share;
};

Pair pixels_around(double coordinate, int count, ::osg::UInt32 wrap, bool nearest) {
  const double place = std::isfinite(coordinate) ? coordinate * count : 0.0;
  if (nearest) {
    const int pixel = wrapped(std::floor(place), count, wrap);
    return {pixel, pixel, 0.0};
  }
  const double first = std::floor(place - 0.5);
  return {wrapped(first, count, wrap), wrapped(first + 1.0, count, wrap), place - 0.5 - first};
}

}  // namespace

Texture::Texture(const Image& image) {
  const auto level = Image::create();
  level->set(image.getPixelFormat(), image.getWidth(), image.getHeight(), 1, 1, 1, 0.0f,
             image.getData());
  level->reformat(gl::kRGBA);
  for (;;) {
    const int width = level->getWidth(), height = level->getHeight();
    levels_.push_back({width, height, {level->getData(), level->getData() + level->getSize()}});
    if (width == 1 && height == 1) return;
    if (!level->scale(std::max(1, width / 2), std::max(1, height / 2))) return;
  }
}

const Texture::Level& Texture::level_for(double footprint) const {
  const double pixels = footprint * std::max(width(), height());
  const double last = static_cast<double>(levels_.size() - 1);
  if (!(pixels > 1.0)) return levels_[0];
  return levels_[static_cast<std::size_t>(std::min(std::log2(pixels), last))];
}

Texel Texture::at(double s, double t, double footprint, const Sampler& sampler) const {
  const Level& level = level_for(footprint);
  const bool nearest = sampler.mag_filter == gl::kNearest && &level == &levels_[0];
  const Pair x = pixels_around(s, level.width, sampler.wrap_s, nearest);
  const Pair y = pixels_around(t, level.height, sampler.wrap_t, nearest);
  const auto channel = [&](std::size_t c) {
    const auto pixel = [&](int column, int row) {
      const auto place = static_cast<std::size_t>(row) * static_cast<std::size_t>(level.width) +
                         static_cast<std::size_t>(column);
      return level.rgba[4 * place + c] / 255.0;
    };
    const double above =
        pixel(x.first, y.first) * (1 - x.share) + pixel(x.second, y.first) * x.share;
    const double below =
        pixel(x.first, y.second) * (1 - x.share) + pixel(x.second, y.second) * x.share;
    return above * (1 - y.share) + below * y.share;
  };
  return {to_linear(channel(0)), to_linear(channel(1)), to_linear(channel(2)), channel(3)};
}

}  // namespace morlu::program
