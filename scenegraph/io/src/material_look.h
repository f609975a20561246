#pragma once

#include <optional>
#include <string>

#include "osg/material.h"

namespace osg::io {

/// A texture as fixed-function drawing knows it.
struct TextureLook {
  ImagePtr image;
  UInt32 min_filter = gl::kLinearMipmapLinear;
  UInt32 mag_filter = gl::kLinear;
  UInt32 wrap_s = gl::kRepeat;
  UInt32 wrap_t = gl::kRepeat;
  UInt32 set = 0;

  bool operator==(const TextureLook&) const = default;
};

/// What every importer can say of a material, whatever its format.
struct MaterialLook {
  Color4f diffuse{1.0f, 1.0f, 1.0f, 1.0f};  // alpha below 1: transparent
  Color4f ambient{0.2f, 0.2f, 0.2f, 1.0f};
  Color4f specular{0.0f, 0.0f, 0.0f, 1.0f};
  Color4f emission{0.0f, 0.0f, 0.0f, 1.0f};
  Real32 shininess = 1.0f;
  std::optional<TextureLook> texture;
  bool blended = false;

  bool operator==(const MaterialLook&) const = default;
};

/// A material with a MaterialChunk, then a TextureChunk and a BlendChunk where there is need.
ChunkMaterialPtr build_material(const MaterialLook& look, const std::string& name);

/// The look of any material: the first MaterialChunk's colours, else a SimpleMaterial's; the last
/// TextureChunk, else a SimpleTexturedMaterial's image; blended with a BlendChunk that mixes. A
/// SwitchMaterial looks like the chosen one. Null, and materials that say nothing: white.
MaterialLook look_of(const MaterialPtr& material);

}  // namespace osg::io
