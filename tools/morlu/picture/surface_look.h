#pragma once

#include <memory>
#include <unordered_map>

#include <osg/material.h>

#include "picture/texture.h"

namespace morlu::program {

/// What a picture shows of a material. Its colours and those of vertices are taken as light, as
/// glTF has them, those of images as what a screen shows. Without a material, or with one that
/// can't be read, all is white: vertices without colour are merged as white ones.
struct SurfaceLook {
  enum class Alpha { Opaque, Masked, Blended };

  bool has_material = false;
  ::osg::Vec3d diffuse{1.0, 1.0, 1.0}, specular, emission;
  double opacity = 1.0;
  double shininess = 0.0;
  Alpha alpha = Alpha::Opaque;
  double cutoff = 0.5;  // masked: what is less opaque isn't there
  bool vertex_color_replaces = false;

  std::shared_ptr<const Texture> texture;  // may be null
  Sampler sampler;
  ::osg::UInt32 texture_set = 0;
  ::osg::UInt32 texture_mode = ::osg::gl::kModulate;
};

/// Reads materials; textures are made once an image.
class SurfaceReader {
 public:
  /// Of the material, which may be null; of the chosen one where it is a switch.
  SurfaceLook read(const ::osg::MaterialPtr& material);

 private:
  void read_texture(const ::osg::ChunkMaterialPtr& material, SurfaceLook& look);
  void use(const ::osg::ImagePtr& image, SurfaceLook& look);

  std::unordered_map<::osg::ImagePtr, std::shared_ptr<const Texture>> textures_;
};

}  // namespace morlu::program
