#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "osg/io/model_files.h"

namespace support {

/// Puts small glTF documents together: sections as JSON, accessors from values.
class GltfBuilder {
 public:
  nlohmann::json json = {{"asset", {{"version", "2.0"}}}};
  std::vector<std::uint8_t> bin;

  template <class T>
  static int component_type() {
    if constexpr (std::is_floating_point_v<T>) return 5126;
    constexpr int types[] = {5121, 5120, 5123, 5122, 5125};
    return types[sizeof(T) / 2 * 2 + (std::is_signed_v<T> ? 1 : 0)];
  }

  /// A buffer view of these values, at the next multiple of four.
  template <class T>
  int view(const std::vector<T>& values) {
    bin.resize((bin.size() + 3) / 4 * 4);
    const std::size_t offset = bin.size();
    bin.resize(offset + values.size() * sizeof(T));
    if (!values.empty()) std::memcpy(bin.data() + offset, values.data(), values.size() * sizeof(T));
    return add("bufferViews",
               {{"buffer", 0}, {"byteOffset", offset}, {"byteLength", values.size() * sizeof(T)}});
  }
  template <class T>
  int accessor(const std::vector<T>& values, const char* type, std::size_t components,
               bool normalized = false) {
    nlohmann::json accessor = {{"bufferView", view(values)},
                               {"componentType", component_type<T>()},
                               {"count", values.size() / components},
                               {"type", type}};
    if (normalized) accessor["normalized"] = true;
    return add("accessors", accessor);
  }
  int vec3(const std::vector<float>& values) { return accessor(values, "VEC3", 3); }
  int vec2(const std::vector<float>& values) { return accessor(values, "VEC2", 2); }
  template <class T>
  int scalars(const std::vector<T>& values) {
    return accessor(values, "SCALAR", 1);
  }

  int add(const char* section, nlohmann::json entry) {
    json[section].push_back(std::move(entry));
    return static_cast<int>(json[section].size()) - 1;
  }
  /// A mesh of one primitive with those attributes, and a node with it.
  nlohmann::json& primitive(nlohmann::json attributes) {
    const int mesh = add("meshes", {{"primitives", {{{"attributes", std::move(attributes)}}}}});
    add("nodes", {{"mesh", mesh}});
    return json["meshes"][static_cast<std::size_t>(mesh)]["primitives"][0];
  }
  /// The same with a triangle in the xy plane.
  nlohmann::json& triangle() {
    return primitive({{"POSITION", vec3({0, 0, 0, 1, 0, 0, 0, 1, 0})}});
  }

  /// As text, the bytes as a data URI.
  std::string text() const {
    nlohmann::json document = json;
    if (!bin.empty() && !document.contains("buffers"))
      document["buffers"] = {{{"byteLength", bin.size()},
                              {"uri", "data:application/octet-stream;base64," + base64(bin)}}};
    return document.dump();
  }
  std::string glb() const {
    nlohmann::json document = json;
    if (!bin.empty() && !document.contains("buffers"))
      document["buffers"] = {{{"byteLength", bin.size()}}};
    std::string text = document.dump();
    text.resize((text.size() + 3) / 4 * 4, ' ');
    std::string chunk(bin.begin(), bin.end());
    chunk.resize((chunk.size() + 3) / 4 * 4, '\0');
    std::string file = "glTF" + word(2) + word(20 + text.size() + 8 + chunk.size());
    file += word(text.size()) + "JSON" + text;
    return file + word(chunk.size()) + std::string("BIN\0", 4) + chunk;
  }

  static std::string word(std::size_t value) {
    std::string text;
    for (int shift = 0; shift < 32; shift += 8) text += static_cast<char>(value >> shift & 0xff);
    return text;
  }
  static std::string base64(std::span<const std::uint8_t> bytes) {
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
      std::uint32_t bits = 0;
      for (std::size_t k = 0; k < 3; ++k)
        bits = bits << 8 | (i + k < bytes.size() ? bytes[i + k] : std::uint8_t{0});
      for (std::size_t k = 0; k < 4; ++k)
        text += i + k <= bytes.size() ? digits[bits >> (18 - 6 * k) & 63] : '=';
    }
    return text;
  }
};

inline osg::SceneReadResult read_gltf(const std::string& bytes, const std::string& base_dir = "") {
  // Exact-size block on the heap, so that the sanitizers see a read past the end.
  const std::vector<char> block(bytes.begin(), bytes.end());
  return osg::io::readGltfMemory(std::as_bytes(std::span(block)), base_dir, "test.gltf");
}

}  // namespace support
