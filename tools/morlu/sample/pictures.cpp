#include "sample/pictures.h"

#include <array>
#include <string>
#include <vector>

namespace morlu::sample {
namespace {

using ::osg::UInt8;

struct Color {
  int red, green, blue;
};

/// Pixels in the making. `tone` mixes the two colours, 0 to 255; it is also the alpha value.
struct Canvas {
  int width, height;
  bool with_alpha;
  Color low, high;
  std::vector<UInt8> bytes;

  void put(int tone) {
    const auto mixed = [tone](int a, int b) {
      return static_cast<UInt8>(a + (b - a) * tone / 255);
    };
    bytes.push_back(mixed(low.red, high.red));
    bytes.push_back(mixed(low.green, high.green));
    bytes.push_back(mixed(low.blue, high.blue));
    if (with_alpha) bytes.push_back(static_cast<UInt8>(64 + tone * 191 / 255));
  }
};

void draw_checker(Canvas& canvas, int cell) {
  for (int y = 0; y < canvas.height; ++y) {
    for (int x = 0; x < canvas.width; ++x) canvas.put((x / cell + y / cell) % 2 * 255);
  }
}

// Slanted warning stripes, as wide as their gaps.
void draw_stripes(Canvas& canvas, int period) {
  for (int y = 0; y < canvas.height; ++y) {
    for (int x = 0; x < canvas.width; ++x) canvas.put((x + y) % period < period / 2 ? 255 : 0);
  }
}

// Values on a grid, linear in between; the grid wraps around.
void draw_noise(Canvas& canvas, int cell, Random& random) {
  const int columns = canvas.width / cell, rows = canvas.height / cell;
  std::vector<int> grid;
  for (int i = 0; i < columns * rows; ++i) grid.push_back(random.between(0, 255));
  const auto at = [&](int x, int y) {
    return grid[static_cast<std::size_t>(y % rows * columns + x % columns)];
  };
  for (int y = 0; y < canvas.height; ++y) {
    for (int x = 0; x < canvas.width; ++x) {
      const int i = x / cell, j = y / cell, dx = x % cell, dy = y % cell;
      const int below = at(i, j) * (cell - dx) + at(i + 1, j) * dx;
      const int above = at(i, j + 1) * (cell - dx) + at(i + 1, j + 1) * dx;
      canvas.put((below * (cell - dy) + above * dy) / (cell * cell));
    }
  }
}

// Digits of 3 x 5 dots, a row an octal digit, the top row first.
constexpr std::array<int, 10> digit_dots = {075557, 026227, 071747, 071717, 055711,
                                            074717, 074757, 071111, 075757, 075717};

bool dot_of_text(const std::string& text, int x, int y) {
  if (x < 0 || y < 0 || y >= 5 || x % 4 == 3) return false;
  const auto place = static_cast<std::size_t>(x / 4);
  if (place >= text.size()) return false;
  const int dots = digit_dots[static_cast<std::size_t>(text[place] - '0')];
  return dots >> (14 - 3 * y - x % 4) & 1;
}

// A frame with a number of five digits in it; rows run upwards.
void draw_plate(Canvas& canvas, unsigned number) {
  std::string text = std::to_string(number % 100000);
  text.insert(0, 5 - text.size(), '0');
  const int dot = canvas.width / 25;
  const int left = (canvas.width / dot - 19) / 2, top = (canvas.height / dot - 5) / 2;
  for (int y = canvas.height - 1; y >= 0; --y) {
    for (int x = 0; x < canvas.width; ++x) {
      const bool frame = x < dot || y < dot || x >= canvas.width - dot || y >= canvas.height - dot;
      canvas.put(frame || dot_of_text(text, x / dot - left, y / dot - top) ? 255 : 0);
    }
  }
}

Color random_color(Random& random, int darkest, int lightest) {
  const int red = random.between(darkest, lightest);
  const int green = random.between(darkest, lightest);
  return {red, green, random.between(darkest, lightest)};
}

}  // namespace

::osg::ImagePtr make_picture(Picture picture, bool with_alpha, unsigned number, Random& random) {
  const int width = 32 << random.below(3);
  const int height = picture == Picture::Plate ? width / 2 : width;
  const Color low = random_color(random, 120, 250);
  const Color high = random_color(random, 10, 110);
  Canvas canvas{width, height, with_alpha, low, high, {}};
  switch (picture) {
    case Picture::Checker:
      draw_checker(canvas, width / 8);
      break;
    case Picture::Stripes:
      draw_stripes(canvas, width / 2);
      break;
    case Picture::Noise:
      draw_noise(canvas, 8, random);
      break;
    case Picture::Plate:
      draw_plate(canvas, number);
      break;
  }
  const ::osg::ImagePtr image = ::osg::Image::create();
  image->set(with_alpha ? ::osg::gl::kRGBA : ::osg::gl::kRGB, width, height, 1, 1, 1, 0.0f,
             canvas.bytes.data());
  return image;
}

}  // namespace morlu::sample
