#include "picture/png_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli.h"

// Of the encoder everything stays in this file.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb_image_write.h>
#pragma GCC diagnostic pop

namespace morlu::program {
namespace {

namespace fs = std::filesystem;

Failure unwritable(const std::string& file, const std::string& reason) {
  return {unwritable_output, file + ": cannot be written: " + reason};
}

std::vector<char> encoded(const Picture& picture) {
  std::vector<char> bytes;
  const auto append = [](void* context, void* data, int size) {
    const char* from = static_cast<const char*>(data);
    auto& to = *static_cast<std::vector<char>*>(context);
    to.insert(to.end(), from, from + size);
  };
  stbi_write_png_to_func(append, &bytes, picture.size.width, picture.size.height, picture.channels,
                         picture.pixels.data(), picture.size.width * picture.channels);
  return bytes;
}

}  // namespace

void expect_png_file(const std::string& file) {
  std::string suffix = fs::path(file).extension().string();
  std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (suffix != ".png") throw unwritable(file, "pictures are .png files");
  std::error_code ignored;
  if (fs::is_directory(file, ignored)) throw unwritable(file, "it is a directory");
  const fs::path folder = fs::path(file).parent_path();
  if (!folder.empty() && !fs::is_directory(folder, ignored))
    throw unwritable(file, "there is no directory '" + folder.string() + "'");
}

void write_png(const Picture& picture, const std::string& file) {
  const std::vector<char> bytes = encoded(picture);
  if (bytes.empty()) throw Failure(work_failed, "there is not enough memory for the picture");
  std::ofstream out(file, std::ios::binary);
  if (!out) throw unwritable(file, std::strerror(errno));
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (out) return;
  const std::string reason = std::strerror(errno);
  std::error_code ignored;
  if (fs::is_regular_file(file, ignored)) fs::remove(file, ignored);
  throw unwritable(file, reason);
}

}  // namespace morlu::program
