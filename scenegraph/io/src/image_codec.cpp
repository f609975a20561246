#include "image_codec.h"

#include <algorithm>
#include <memory>

#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_NO_STDIO
#define STBI_NO_HDR
#define STBI_NO_PIC
#define STBI_NO_PNM
#define STBI_MAX_DIMENSIONS 65536
#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STBI_WRITE_NO_STDIO
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb_image.h>
#include <stb_image_write.h>
#pragma GCC diagnostic pop

namespace osg::io {
namespace {

struct FreePixels {
  void operator()(stbi_uc* pixels) const { stbi_image_free(pixels); }
};

bool begins_with(std::span<const UInt8> bytes, std::initializer_list<int> start) {
  return bytes.size() >= start.size() && std::equal(start.begin(), start.end(), bytes.begin());
}

void append_bytes(void* context, void* data, int size) {
  auto& bytes = *static_cast<std::vector<UInt8>*>(context);
  const auto* first = static_cast<const UInt8*>(data);
  bytes.insert(bytes.end(), first, first + size);
}

}  // namespace

std::string image_mime_type(std::span<const UInt8> bytes) {
  if (begins_with(bytes, {0x89, 'P', 'N', 'G'})) return "image/png";
  if (begins_with(bytes, {0xFF, 0xD8, 0xFF})) return "image/jpeg";
  return {};
}

ImagePtr decode_image(std::span<const UInt8> bytes, std::string mime_type, UInt64 max_bytes,
                      std::string& reason) {
  if (bytes.size() > 0x7fffffff) {
    reason = "the file is longer than 2 GiB";
    return NullFC;
  }
  const int size = static_cast<int>(bytes.size());
  int width = 0;
  int height = 0;
  int channels = 0;
  if (!stbi_info_from_memory(bytes.data(), size, &width, &height, &channels)) {
    reason = "the image format is unknown or broken";
    return NullFC;
  }
  const int wanted = channels == 2 || channels == 4 ? 4 : 3;
  const UInt64 pixel_bytes = UInt64(width) * UInt64(height) * UInt64(wanted);
  if (pixel_bytes > std::min(max_bytes, Image::kMaxBytes)) {
    reason = std::to_string(width) + " x " + std::to_string(height) +
             " pixels are more than a file of this size can mean";
    return NullFC;
  }
  const std::unique_ptr<stbi_uc, FreePixels> pixels(
      stbi_load_from_memory(bytes.data(), size, &width, &height, &channels, wanted));
  if (!pixels) {
    reason = "the image is broken";
    return NullFC;
  }
  const ImagePtr image = Image::create();
  image->set(wanted == 4 ? gl::kRGBA : gl::kRGB, width, height, 1, 1, 1, 0.0f, pixels.get());
  if (const std::string told = image_mime_type(bytes); !told.empty()) mime_type = told;
  image->setEncoded({bytes.begin(), bytes.end()}, std::move(mime_type));
  return image;
}

EncodedImage encode_image(const Image& image) {
  if (image.empty()) return {};
  const bool writable =
      image.getEncodedMimeType() == "image/png" || image.getEncodedMimeType() == "image/jpeg";
  if (writable && image.encodedMatchesPixels())
    return {image.getEncoded(), image.getEncodedMimeType()};
  // Channels in the order of the file: PNG has grey, grey with alpha, RGB and RGBA.
  const auto plain = FCPtr<Image>(Image::dcast(image.shallowCopy()));
  if (image.getPixelFormat() == gl::kBGR) plain->reformat(gl::kRGB);
  if (image.getPixelFormat() == gl::kBGRA) plain->reformat(gl::kRGBA);
  EncodedImage encoded{{}, "image/png"};
  const int channels = static_cast<int>(plain->getChannels());
  stbi_write_png_to_func(append_bytes, &encoded.bytes, plain->getWidth(), plain->getHeight(),
                         channels, plain->getData(), plain->getWidth() * channels);
  return encoded;
}

}  // namespace osg::io
