#pragma once

#include <array>
#include <cmath>
#include <optional>
#include <vector>

#include "gltf/images.h"
#include "osg/attribute.h"
#include "osg/material.h"

namespace osg::io {

/// KHR_texture_transform: u' = cx*u + sx*v + ox and so on, see `apply`.
struct TextureTransform {
  Real32 offset[2] = {0.0f, 0.0f};
  Real32 rotation = 0.0f;
  Real32 scale[2] = {1.0f, 1.0f};

  auto operator<=>(const TextureTransform&) const = default;

  /// Scales, turns (counter-clockwise with v pointing down), then moves.
  Vec2f apply(const Vec2f& uv) const {
    const Real32 c = std::cos(rotation);
    const Real32 s = std::sin(rotation);
    const Real32 u = uv[0] * scale[0];
    const Real32 v = uv[1] * scale[1];
    return {c * u + s * v + offset[0], c * v - s * u + offset[1]};
  }
};

/// A material of the document and what was taken out of it into texture coordinates.
struct GltfMaterial {
  MaterialPtr material;
  std::array<std::optional<TextureTransform>, kTexCoordSets> baked;
};

/// The materials of a document, each made when it is first asked for.
class GltfMaterials {
 public:
  /// Keeps references to all three.
  GltfMaterials(const GltfDocument& document, GltfImages& images, Warnings& warnings)
      : document_(document),
        images_(images),
        warnings_(warnings),
        materials_(document.model.materials.size()) {}

  /// A material without handle for -1; throws `ReadError` for other numbers that are none.
  const GltfMaterial& material(int index, const std::string& place);

 private:
  GltfMaterial build(const tinygltf::Material& source);
  nlohmann::json texture_json(int index, std::vector<ImagePtr>& images);

  const GltfDocument& document_;
  GltfImages& images_;
  Warnings& warnings_;
  std::vector<std::optional<GltfMaterial>> materials_;
  GltfMaterial none_;
};

}  // namespace osg::io
