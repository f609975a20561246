#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "picture/camera.h"
#include "picture/drawn_scene.h"
#include "picture/shading.h"

namespace morlu::program {

struct PictureSettings {
  PictureSize size{800, 600};
  int samples = 2;  // rays along a pixel's width and height
  ShadeMode mode = ShadeMode::Lit;
  bool transparent = false;  // the background
  unsigned threads = 1;
};

/// Pixels in rows from the top, 8 bits a channel: red, green, blue, and alpha, not multiplied in,
/// where the background is transparent.
struct Picture {
  PictureSize size;
  int channels;
  std::vector<std::uint8_t> pixels;
};

/// The colour behind everything, as displayed, of pictures that have one.
inline const ::osg::Vec3d background_color(0.93, 0.94, 0.955);

/// Shoots rays through all pixels, in `threads` threads; calls `row_done` from any of them after
/// each row. The same picture whatever their number. Throws what a thread throws.
Picture draw_picture(const DrawnScene& scene, const Camera& camera, const PictureSettings& settings,
                     const std::function<void()>& row_done);

}  // namespace morlu::program
