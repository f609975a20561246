#include "gltf/document.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "gltf/feature_id_names.h"

namespace osg::io {
namespace {

UInt32 read_word(ByteSpan bytes, std::size_t at) {
  UInt32 value = 0;
  for (std::size_t i = 0; i < 4; ++i) value |= std::to_integer<UInt32>(bytes[at + i]) << (8 * i);
  return value;
}

std::string_view text_of(ByteSpan bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

constexpr std::size_t kHeaderBytes = 12;
constexpr std::size_t kChunkHeaderBytes = 8;
constexpr UInt32 kJsonChunk = 0x4E4F534A;
constexpr UInt32 kBinaryChunk = 0x004E4942;

GltfParts split_binary(ByteSpan bytes) {
  if (bytes.size() < kHeaderBytes) throw ReadError{"header", "the file ends within its header"};
  const UInt32 version = read_word(bytes, 4);
  if (version != 2)
    throw ReadError{"header", "version " + std::to_string(version) + " is not supported, only 2"};
  const std::size_t length = read_word(bytes, 8);
  if (length > bytes.size())
    throw ReadError{"header", "the file is cut off: " + std::to_string(length) +
                                  " bytes are told, " + std::to_string(bytes.size()) +
                                  " are there"};
  GltfParts parts;
  std::size_t chunk = 0;
  for (std::size_t at = kHeaderBytes; at < length; ++chunk) {
    const std::string place = "chunk " + std::to_string(chunk);
    if (length - at < kChunkHeaderBytes) throw ReadError{place, "its header is cut off"};
    const std::size_t size = read_word(bytes, at);
    const UInt32 type = read_word(bytes, at + 4);
    at += kChunkHeaderBytes;
    if (size > length - at) throw ReadError{place, "reaches past the end of the file"};
    if (chunk == 0) {
      if (type != kJsonChunk) throw ReadError{place, "is not the JSON chunk that must come first"};
      parts.json = text_of(bytes.subspan(at, size));
    } else if (type == kBinaryChunk && !parts.has_binary) {
      parts.binary = bytes.subspan(at, size);
      parts.has_binary = true;
    }
    at += size;
  }
  if (chunk == 0) throw ReadError{"header", "no JSON chunk follows"};
  return parts;
}

/// Extensions that a file may require: all others change what its data means.
constexpr auto kKnownExtensions = std::to_array<std::string_view>(
    {"KHR_mesh_quantization", "KHR_texture_transform", "KHR_materials_unlit",
     "KHR_materials_pbrSpecularGlossiness", "KHR_materials_clearcoat", "KHR_materials_ior",
     "KHR_materials_sheen", "KHR_materials_specular", "KHR_materials_transmission",
     "KHR_materials_volume", "KHR_materials_emissive_strength", "KHR_materials_iridescence",
     "KHR_materials_anisotropy", "KHR_materials_dispersion", "KHR_lights_punctual", kMeshFeatures});

void check_extensions(const JsonOutline& outline, Warnings& warnings) {
  const auto strings = [&](const char* name) {
    const std::string_view text = outline.text_of(name);
    return text.empty() ? nlohmann::json::array() : nlohmann::json::parse(text);
  };
  const auto known = [](const std::string& name) {
    return std::find(kKnownExtensions.begin(), kKnownExtensions.end(), name) !=
           kKnownExtensions.end();
  };
  for (const std::string name : strings("extensionsRequired"))
    if (!known(name))
      throw ReadError{"extensionsRequired", "the extension " + name + " is not supported"};
  for (const std::string name : strings("extensionsUsed"))
    if (!known(name) && name.find("_materials_") == name.npos)
      warnings.add("the extension " + name + " is not supported and left out");
}

void warn_of_left_out(const GltfDocument& document, Warnings& warnings) {
  for (const char* name : {"animation", "skin", "camera"})
    warnings.count(std::string(name) + "s are left out", name,
                   document.outline.entries_of(std::string(name) + "s"));
  if (document.outline.find("extras")) warnings.add("extras of the document are left out");
  const nlohmann::json extensions = document.section("extensions");
  const auto lights = extensions.find("KHR_lights_punctual");
  if (lights == extensions.end() || !lights->is_object()) return;
  const auto list = lights->find("lights");
  if (list != lights->end()) warnings.count("lights are left out", "light", list->size());
}

/// The text with the values of our own sections replaced by zeros, at their old length, so that
/// places in messages stay right.
std::string text_for_tinygltf(const JsonOutline& outline) {
  constexpr auto ours = std::to_array<std::string_view>(
      {"buffers", "images", "animations", "skins", "cameras", "extensions", "extras"});
  std::string text(outline.text);
  for (const JsonSection& section : outline.sections) {
    if (std::find(ours.begin(), ours.end(), section.name) == ours.end()) continue;
    for (std::size_t i = section.begin; i < section.end; ++i)
      if (text[i] != '\n') text[i] = ' ';
    text[section.begin] = '0';
  }
  return text;
}

/// Where tinygltf stopped: the first section that isn't whole, in the order in which it reads them.
std::string place_of_failure(const GltfDocument& document) {
  const tinygltf::Model& model = document.model;
  const std::pair<const char*, std::size_t> read[] = {
      {"bufferViews", model.bufferViews.size()}, {"accessors", model.accessors.size()},
      {"meshes", model.meshes.size()},           {"nodes", model.nodes.size()},
      {"scenes", model.scenes.size()},           {"materials", model.materials.size()},
      {"textures", model.textures.size()},       {"samplers", model.samplers.size()}};
  for (const auto& [name, count] : read)
    if (count < document.outline.entries_of(name)) return place_of(name, count);
  return "JSON";
}

std::string one_line(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

void run_tinygltf(GltfDocument& document) {
  std::string error;
  std::string warning;
  bool read = false;
  const std::string text = text_for_tinygltf(document.outline);
  if (text.size() > 0xffffffffu) throw ReadError{"JSON", "the text is longer than 4 GiB"};
  try {
    tinygltf::TinyGLTF reader;
    reader.SetStoreOriginalJSONForExtrasAndExtensions(true);
    read = reader.LoadASCIIFromString(&document.model, &error, &warning, text.data(),
                                      static_cast<unsigned>(text.size()), "");
  } catch (const nlohmann::json::exception& failure) {
    error = failure.what();
  }
  // It also drops primitives that it can't make sense of, and then only leaves a message.
  if (!read || !error.empty())
    throw ReadError{place_of_failure(document),
                    error.empty() ? "can't be made sense of" : one_line(error)};
}

void check_version(const tinygltf::Model& model) {
  if (model.asset.version.substr(0, 2) != "2.")
    throw ReadError{"asset.version", "'" + model.asset.version + "' is not supported, only 2.0"};
}

}  // namespace

GltfParts split_gltf(ByteSpan bytes) {
  if (bytes.empty()) throw ReadError{"", "is empty"};
  if (text_of(bytes).substr(0, 4) == "glTF") return split_binary(bytes);
  return {text_of(bytes), {}, false};
}

nlohmann::json GltfDocument::section(std::string_view name) const {
  const std::string_view text = outline.text_of(name);
  if (text.empty()) return nullptr;
  try {
    return nlohmann::json::parse(text);
  } catch (const nlohmann::json::exception& failure) {
    throw ReadError{std::string(name), one_line(failure.what())};
  }
}

GltfDocument parse_gltf(ByteSpan bytes, Warnings& warnings) {
  GltfDocument document;
  document.parts = split_gltf(bytes);
  document.outline = outline_gltf(document.parts.json);
  try {
    check_extensions(document.outline, warnings);
  } catch (const nlohmann::json::exception& failure) {
    throw ReadError{"extensionsUsed", one_line(failure.what())};
  }
  run_tinygltf(document);
  check_version(document.model);
  warn_of_left_out(document, warnings);
  return document;
}

}  // namespace osg::io
