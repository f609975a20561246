#include "gltf/buffers.h"

#include <cstring>

namespace osg::io {

GltfBuffers::GltfBuffers(const GltfDocument& document, std::string base_dir)
    : document_(document), base_dir_(std::move(base_dir)) {
  total_bytes_ = document.parts.json.size() + document.parts.binary.size();
  const nlohmann::json buffers = document.section("buffers");
  for (const nlohmann::json& json : buffers) {
    Buffer& buffer = buffers_.emplace_back();
    buffer.has_uri = json.contains("uri");
    buffer.uri = json.value("uri", "");
    buffer.byte_length = json.value("byteLength", std::size_t{0});
  }
}

ByteSpan GltfBuffers::view(int index) {
  const auto& views = document_.model.bufferViews;
  const auto place = place_of("bufferViews", static_cast<std::size_t>(index));
  if (index < 0 || static_cast<std::size_t>(index) >= views.size())
    throw ReadError{place, "there is no such buffer view"};
  const tinygltf::BufferView& view = views[static_cast<std::size_t>(index)];
  if (view.buffer < 0 || static_cast<std::size_t>(view.buffer) >= buffers_.size())
    throw ReadError{place, "there is no buffer " + std::to_string(view.buffer)};
  const ByteSpan bytes = buffer(static_cast<std::size_t>(view.buffer));
  if (view.byteOffset > bytes.size() || view.byteLength > bytes.size() - view.byteOffset)
    throw ReadError{place, "reaches past the " + std::to_string(bytes.size()) +
                               " bytes of buffer " + std::to_string(view.buffer)};
  return bytes.subspan(view.byteOffset, view.byteLength);
}

ByteSpan GltfBuffers::buffer(std::size_t index) {
  Buffer& buffer = buffers_[index];
  if (buffer.loaded) return buffer.bytes;
  const std::string place = place_of("buffers", index);
  const ByteSpan bytes = load(buffer, index, place);
  if (bytes.size() < buffer.byte_length)
    throw ReadError{place, "holds " + std::to_string(bytes.size()) + " bytes, not the " +
                               std::to_string(buffer.byte_length) + " that are told"};
  buffer.bytes = bytes.first(buffer.byte_length);
  buffer.loaded = true;
  return buffer.bytes;
}

ByteSpan GltfBuffers::load(const Buffer& buffer, std::size_t index, const std::string& place) {
  if (!buffer.has_uri) {
    if (index == 0 && document_.parts.has_binary) return document_.parts.binary;
    throw ReadError{place, "has neither a uri nor a BIN chunk"};
  }
  if (is_data_uri(buffer.uri)) {
    const DataUri data = decode_data_uri(buffer.uri, place);
    FileBytes bytes{std::make_unique_for_overwrite<std::byte[]>(data.bytes.size() + 1),
                    data.bytes.size()};
    std::memcpy(bytes.data.get(), data.bytes.data(), data.bytes.size());
    return keep(std::move(bytes));
  }
  const std::string file = file_of_uri(buffer.uri, base_dir_, place);
  const auto [found, fresh] = files_.try_emplace(file);
  if (fresh) found->second = keep(read_file(file, place + ": '" + file + "'"));
  return found->second;
}

ByteSpan GltfBuffers::keep(FileBytes bytes) {
  total_bytes_ += bytes.size;
  return owned_.emplace_back(std::move(bytes)).span();
}

}  // namespace osg::io
