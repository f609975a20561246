#include "gltf/images.h"

#include <filesystem>

#include "image_codec.h"

namespace osg::io {
namespace {

// What deflate can at most make of a byte, rounded up; and what a few small files may always take.
constexpr UInt64 kPixelBytesPerByte = 1100;
constexpr UInt64 kPixelBytesAlways = UInt64{64} << 20;

std::span<const UInt8> bytes_of(ByteSpan bytes) {
  return {reinterpret_cast<const UInt8*>(bytes.data()), bytes.size()};
}

std::string file_name_of(const std::string& uri) {
  return std::filesystem::path(percent_decoded(uri)).filename().string();
}

}  // namespace

GltfImages::GltfImages(const GltfDocument& document, GltfBuffers& buffers, Warnings& warnings)
    : buffers_(buffers), warnings_(warnings) {
  const nlohmann::json images = document.section("images");
  for (const nlohmann::json& json : images) {
    Entry& entry = entries_.emplace_back();
    entry.has_name = json.contains("name");
    entry.name = json.value("name", "");
    entry.uri = json.value("uri", "");
    entry.mime_type = json.value("mimeType", "");
    entry.view = json.value("bufferView", -1);
  }
}

ImagePtr GltfImages::image(int index) {
  const std::string place = place_of("images", static_cast<std::size_t>(index));
  if (index < 0 || static_cast<std::size_t>(index) >= entries_.size())
    throw ReadError{place, "there is no such image"};
  Entry& entry = entries_[static_cast<std::size_t>(index)];
  if (entry.loaded) return entry.image;
  entry.loaded = true;
  try {
    entry.image = load(entry, place);
  } catch (const ReadError& error) {
    warnings_.add(error.place + ": " + error.reason + "; materials go without it");
  }
  return entry.image;
}

ImagePtr GltfImages::load(const Entry& entry, const std::string& place) {
  if (entry.uri.empty() && entry.view >= 0) {
    const auto [found, fresh] = by_view_.try_emplace(entry.view);
    if (fresh)
      found->second = decode(bytes_of(buffers_.view(entry.view)), entry, entry.mime_type, place);
    return found->second;
  }
  if (entry.uri.empty()) throw ReadError{place, "has neither a uri nor a buffer view"};
  if (is_data_uri(entry.uri)) {
    const DataUri data = decode_data_uri(entry.uri, place);
    file_bytes_ += data.bytes.size();
    return decode(data.bytes, entry, data.mime_type, place);
  }
  const std::string file = file_of_uri(entry.uri, buffers_.base_dir(), place);
  const auto [found, fresh] = by_file_.try_emplace(file);
  if (fresh) {
    const FileBytes bytes = read_file(file, place + ": '" + percent_decoded(entry.uri) + "'");
    file_bytes_ += bytes.size;
    found->second = decode(bytes_of(bytes.span()), entry, entry.mime_type, place);
  }
  return found->second;
}

ImagePtr GltfImages::decode(std::span<const UInt8> bytes, const Entry& entry,
                            const std::string& mime_type, const std::string& place) {
  const UInt64 budget =
      kPixelBytesAlways + kPixelBytesPerByte * (file_bytes_ + buffers_.total_bytes());
  std::string reason;
  const UInt64 left = budget > pixel_bytes_ ? budget - pixel_bytes_ : 0;
  const ImagePtr image = decode_image(bytes, mime_type, left, reason);
  if (!image) throw ReadError{place, reason};
  pixel_bytes_ += image->getSize();
  const bool in_file = !entry.uri.empty() && !is_data_uri(entry.uri);
  image->setName(!entry.has_name && in_file ? file_name_of(entry.uri) : entry.name);
  return image;
}

}  // namespace osg::io
