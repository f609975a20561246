#pragma once

#include <span>
#include <string>
#include <vector>

#include "osg/image.h"

namespace osg::io {

/// Decodes a PNG, JPEG, BMP, TGA, GIF or PSD file to RGB, or RGBA if it has an alpha channel; grey
/// expands, 16 bits a channel are reduced to 8. The image keeps the bytes
/// with their MIME type, which the first bytes tell for PNG and JPEG. Null, and `reason` set, if
/// they can't be decoded or the pixels would take more than `max_bytes`; that is known before any
/// are decoded.
ImagePtr decode_image(std::span<const UInt8> bytes, std::string mime_type, UInt64 max_bytes,
                      std::string& reason);

/// "image/png" or "image/jpeg" by the first bytes; empty for others.
std::string image_mime_type(std::span<const UInt8> bytes);

/// The bytes of an image file: those it was decoded from, if they still match and glTF has the
/// format, else a PNG of the finest level's first slice. Empty for an image without pixels.
struct EncodedImage {
  std::vector<UInt8> bytes;
  std::string mime_type;
};
EncodedImage encode_image(const Image& image);

}  // namespace osg::io
