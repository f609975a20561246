#include "assimp/images.h"

#include <assimp/scene.h>
#include <algorithm>
#include <filesystem>

#include "file_bytes.h"
#include "image_codec.h"

namespace osg::io {
namespace {

// What deflate can at most make of a byte, rounded up; and what a few small files may always take.
constexpr UInt64 kPixelBytesPerByte = 1100;
constexpr UInt64 kPixelBytesAlways = UInt64{64} << 20;

/// Where the file of a texture may lie: where its name says, as it stands or decoded from a URI,
/// and, since names often come from another machine, beside the model.
std::vector<std::filesystem::path> places_of(std::string name, const std::string& base_dir) {
  std::replace(name.begin(), name.end(), '\\', '/');
  if (name.starts_with("file:///")) name.erase(0, 7);
  std::vector<std::filesystem::path> places;
  for (const std::string& path : {name, percent_decoded(name)}) {
    const std::filesystem::path relative(path);
    const bool drive = path.size() > 1 && path[1] == ':';
    if (relative.is_relative() && !drive) places.push_back(base_dir / relative);
    places.push_back(base_dir / relative.filename());
  }
  return places;
}

}  // namespace

ModelImages::ModelImages(const aiScene& scene, std::string base_dir, UInt64 file_bytes,
                         Warnings& warnings)
    : scene_(scene), base_dir_(std::move(base_dir)), warnings_(warnings), file_bytes_(file_bytes) {}

ImagePtr ModelImages::image(const std::string& name) {
  const auto [found, fresh] = by_name_.try_emplace(name);
  if (fresh) {
    try {
      found->second = load(name);
    } catch (const ReadError& error) {
      warnings_.add(error.place + ": " + error.reason + "; materials go without it");
    }
  }
  return found->second;
}

ImagePtr ModelImages::load(const std::string& name) {
  if (const aiTexture* texture = scene_.GetEmbeddedTexture(name.c_str())) {
    const auto [found, fresh] = embedded_.try_emplace(texture);
    if (fresh) found->second = embedded(*texture, name);
    return found->second;
  }
  return external(name);
}

ImagePtr ModelImages::embedded(const aiTexture& texture, const std::string& name) {
  const std::string place = "texture '" + name + "'";
  if (!texture.pcData || texture.mWidth == 0) throw ReadError{place, "is empty"};
  const auto* data = reinterpret_cast<const UInt8*>(texture.pcData);
  ImagePtr image;
  if (texture.mHeight == 0) {
    image = decode({data, texture.mWidth}, place);
  } else {
    image = Image::create();
    const UInt64 largest = Image::kMaxBytes;
    const UInt64 texels = UInt64{texture.mWidth} * texture.mHeight;
    if (texels > largest / sizeof(aiTexel) ||
        !image->set(gl::kBGRA, static_cast<Int32>(texture.mWidth),
                    static_cast<Int32>(texture.mHeight), 1, 1, 1, 0.0f, data))
      throw ReadError{place, "has too many pixels"};
    image->reformat(gl::kRGBA);
  }
  const bool numbered = !name.empty() && name[0] == '*';
  image->setName(numbered ? texture.mFilename.C_Str() : name);
  return image;
}

ImagePtr ModelImages::external(const std::string& name) {
  const std::string place = "texture '" + name + "'";
  if (name.empty() || name.find('\0') != name.npos) throw ReadError{place, "has no name"};
  const auto places = places_of(name, base_dir_);
  const auto exists = [](const std::filesystem::path& file) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(file, ignored);
  };
  const auto at = std::find_if(places.begin(), places.end(), exists);
  const std::string file = (at == places.end() ? places[0] : *at).lexically_normal().string();
  const auto [found, fresh] = by_file_.try_emplace(file);
  if (!fresh) {
    if (!found->second) throw ReadError{place, "can't be read either"};
    return found->second;
  }
  const FileBytes bytes = read_file(file, place);
  file_bytes_ += bytes.size;
  found->second = decode({reinterpret_cast<const UInt8*>(bytes.data.get()), bytes.size}, place);
  found->second->setName(std::filesystem::path(file).filename().string());
  return found->second;
}

ImagePtr ModelImages::decode(std::span<const UInt8> bytes, const std::string& place) {
  const UInt64 budget = kPixelBytesAlways + kPixelBytesPerByte * file_bytes_;
  std::string reason;
  const ImagePtr image =
      decode_image(bytes, "", budget > pixel_bytes_ ? budget - pixel_bytes_ : 0, reason);
  if (!image) throw ReadError{place, reason};
  pixel_bytes_ += image->getSize();
  return image;
}

}  // namespace osg::io
