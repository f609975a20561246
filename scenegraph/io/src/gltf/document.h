#pragma once

#include <string>

#include "file_bytes.h"
#include "gltf/tiny_gltf_model.h"
#include "json_outline.h"
#include "report.h"

namespace osg::io {

/// The parts of a `.glb`, or the text of a `.gltf` alone.
struct GltfParts {
  std::string_view json;
  ByteSpan binary;
  bool has_binary = false;
};

/// Takes the container apart. Throws `ReadError`.
GltfParts split_gltf(ByteSpan bytes);

/// A glTF document: its structure as tinygltf reads it, without buffers and images.
struct GltfDocument {
  tinygltf::Model model;
  JsonOutline outline;  // refers to the text of `parts`
  GltfParts parts;

  /// A section as JSON; null if there is none.
  nlohmann::json section(std::string_view name) const;
};

/// Reads the structure. What this library doesn't keep (animations, skins, cameras, lights) is
/// taken out of the text before tinygltf sees it and told as a warning; so are buffers and images,
/// which are read elsewhere, since tinygltf reads past their ends in hostile files. Required
/// extensions that aren't known are an error. Throws `ReadError`.
GltfDocument parse_gltf(ByteSpan bytes, Warnings& warnings);

}  // namespace osg::io
