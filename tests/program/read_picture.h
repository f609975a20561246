#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <ostream>
#include <vector>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb_image.h>
#pragma GCC diagnostic pop

struct Pixel {
  int r, g, b, a;
  bool operator==(const Pixel&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const Pixel& p) {
    return out << p.r << ' ' << p.g << ' ' << p.b << ' ' << p.a;
  }
};

struct Picture {
  int width = 0, height = 0, channels = 0;
  std::vector<unsigned char> bytes;  // four a pixel, however many channels the file has

  Pixel at(int x, int y) const {
    const auto* p = &bytes[static_cast<std::size_t>(4 * (y * width + x))];
    return {p[0], p[1], p[2], p[3]};
  }
  Pixel middle() const { return at(width / 2, height / 2); }
};

inline Picture read_picture(const std::filesystem::path& file) {
  Picture picture;
  const std::unique_ptr<stbi_uc, decltype(&std::free)> pixels(
      stbi_load(file.c_str(), &picture.width, &picture.height, &picture.channels, 4), &std::free);
  EXPECT_TRUE(pixels) << file;
  const auto size = static_cast<std::size_t>(4 * picture.width * picture.height);
  if (pixels) picture.bytes.assign(pixels.get(), pixels.get() + size);
  return picture;
}
