#include "picture/picture.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <mutex>
#include <thread>

#include "morlu/ray.h"
#include "picture/color_space.h"

namespace morlu::program {
namespace {

using ::osg::Vec3d;

// Surfaces that a ray goes through one after the other: more of them let hardly any light past.
constexpr int most_layers = 64;
constexpr double dark = 1.0 / 1024.0;

/// The nearest of 256 steps.
std::uint8_t to_byte(double share) {
  return static_cast<std::uint8_t>(std::lround(std::clamp(share, 0.0, 1.0) * 255.0));
}

/// Light along a ray: what surfaces give, and the share of what is behind them that comes through.
struct Light {
  Vec3d color;
  double through = 1.0;
};

class Painter {
 public:
  Painter(const DrawnScene& scene, const Camera& camera, const PictureSettings& settings,
          Picture& picture)
      : camera_(camera),
        settings_(settings),
        picture_(picture),
        caster_(scene),
        shader_(scene, camera, settings.mode),
        step_(scene.thinnest_gap()) {}

  void paint_row(int row) {
    const auto stride =
        static_cast<std::size_t>(picture_.size.width) * static_cast<std::size_t>(picture_.channels);
    std::uint8_t* pixel = picture_.pixels.data() + static_cast<std::size_t>(row) * stride;
    for (int column = 0; column < picture_.size.width; ++column, pixel += picture_.channels)
      write(sampled(column, row), pixel);
  }

 private:
  Light sampled(int column, int row) {
    Light sum{{}, 0.0};
    const int n = settings_.samples;
    for (int sample = 0; sample < n * n; ++sample) {
      const int across = sample % n, down = sample / n;
      const Light light = along(camera_.ray(column + (across + 0.5) / n, row + (down + 0.5) / n));
      sum.color += light.color;
      sum.through += light.through;
    }
    const double share = 1.0 / (n * n);
    return {sum.color * share, sum.through * share};
  }

  Light along(const Ray& ray) {
    Light light;
    double from = 0.0;
    for (int layer = 0; layer < most_layers && light.through > dark; ++layer) {
      const auto hit = caster_.nearest(ray, from);
      if (!hit) break;
      const Shade shade = shader_.shade(ray, *hit);
      light.color += shade.color * (light.through * shade.opacity);
      light.through *= 1.0 - shade.opacity;
      from = hit->t + step_;
    }
    return light;
  }

  void write(const Light& light, std::uint8_t* pixel) const {
    const double opacity = 1.0 - light.through;
    Vec3d color = light.color;
    if (!settings_.transparent)
      color += background_ * light.through;
    else if (opacity > 0.0)
      color /= opacity;
    for (unsigned i = 0; i < 3; ++i) pixel[i] = to_byte(to_displayed(color[i]));
    if (settings_.transparent) pixel[3] = to_byte(opacity);
  }

  const Camera& camera_;
  const PictureSettings& settings_;
  Picture& picture_;
  RayCaster caster_;
  const Shader shader_;
  const Vec3d background_ = to_linear(background_color);
  const double step_;
};

/// Calls `work` in that many threads, this one among them, and throws what the first of them threw.
void run_in_threads(unsigned threads, const std::function<void()>& work) {
  std::mutex mutex;
  std::exception_ptr thrown;
  const auto guarded = [&] {
    try {
      work();
    } catch (...) {
      const std::lock_guard lock(mutex);
      if (!thrown) thrown = std::current_exception();
    }
  };
  {
    std::vector<std::jthread> others;
    for (unsigned i = 1; i < threads; ++i) others.emplace_back(guarded);
    guarded();
  }
  if (thrown) std::rethrow_exception(thrown);
}

}  // namespace

Picture draw_picture(const DrawnScene& scene, const Camera& camera, const PictureSettings& settings,
                     const std::function<void()>& row_done) {
  Picture picture{settings.size, settings.transparent ? 4 : 3, {}};
  picture.pixels.resize(static_cast<std::size_t>(settings.size.width) *
                        static_cast<std::size_t>(settings.size.height) *
                        static_cast<std::size_t>(picture.channels));
  osg::register_morlu_intersect();
  std::atomic<int> next_row{0};
  run_in_threads(settings.threads, [&] {
    Painter painter(scene, camera, settings, picture);
    for (int row = next_row++; row < settings.size.height; row = next_row++) {
      painter.paint_row(row);
      row_done();
    }
  });
  return picture;
}

}  // namespace morlu::program
