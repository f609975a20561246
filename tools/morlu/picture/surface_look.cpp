#include "picture/surface_look.h"

#include <algorithm>
#include <cmath>

#include <nlohmann/json.hpp>

#include <osg/attribute.h>

namespace morlu::program {
namespace {

using nlohmann::json;
using ::osg::ChunkMaterialPtr;
using ::osg::Vec3d;
namespace gl = ::osg::gl;

/// Within 0 to 1; NaN is 0.
double share(double value) {
  return value > 0.0 ? std::min(value, 1.0) : 0.0;
}

template <class Color>
Vec3d rgb(const Color& color) {
  return {share(color[0]), share(color[1]), share(color[2])};
}

template <class Colors>
void read_colors(const Colors& from, SurfaceLook& look) {
  look.diffuse = rgb(from.getDiffuse());
  look.specular = rgb(from.getSpecular());
  look.emission = rgb(from.getEmission());
  look.shininess = std::clamp(static_cast<double>(from.getShininess()), 0.0, 1000.0);
}

void read_colors(const ChunkMaterialPtr& material, SurfaceLook& look) {
  if (const auto chunk = material->findFirstChunk<::osg::MaterialChunk>()) {
    read_colors(*chunk, look);
    look.opacity = share(chunk->getDiffuse()[3]);
    const auto mode = chunk->getColorMaterial();
    look.vertex_color_replaces = mode == gl::kDiffuse || mode == gl::kAmbientAndDiffuse;
  } else if (const auto simple = ::osg::SimpleMaterial::dcast(material)) {
    read_colors(*simple, look);
  }
}

/// Blended by chunk or opacity; masked where a physically based definition says so.
void read_alpha(const ChunkMaterialPtr& material, SurfaceLook& look) {
  const auto blend = material->findLastChunk<::osg::BlendChunk>();
  const bool mixes =
      blend && (blend->getSrcFactor() != gl::kOne || blend->getDestFactor() != gl::kZero);
  if (mixes || look.opacity < 1.0) look.alpha = SurfaceLook::Alpha::Blended;
  const auto pbr = material->findFirstChunk<::osg::PBRChunk>();
  if (!pbr) return;
  const json definition = json::parse(pbr->getDefinition(), nullptr, false);
  if (!definition.is_object() || definition.value("alphaMode", json()) != "MASK") return;
  look.alpha = SurfaceLook::Alpha::Masked;
  const json cutoff = definition.value("alphaCutoff", json());
  if (cutoff.is_number()) look.cutoff = cutoff.get<double>();
}

}  // namespace

void SurfaceReader::use(const ::osg::ImagePtr& image, SurfaceLook& look) {
  if (!image || image->empty()) return;
  auto& texture = textures_[image];
  if (!texture) texture = std::make_shared<Texture>(*image);
  look.texture = texture;
}

void SurfaceReader::read_texture(const ChunkMaterialPtr& material, SurfaceLook& look) {
  const auto chunk = material->findLastChunk<::osg::TextureChunk>();
  if (chunk && chunk->getImage() && !::osg::CubeTextureChunk::dcast(chunk)) {
    use(chunk->getImage(), look);
    look.sampler = {chunk->getWrapS(), chunk->getWrapT(), chunk->getMagFilter()};
    look.texture_set = std::min(chunk->getTexCoordSet(), ::osg::kTexCoordSets - 1);
    look.texture_mode = chunk->getEnvMode();
  } else if (const auto simple = ::osg::SimpleTexturedMaterial::dcast(material)) {
    use(simple->getImage(), look);
    look.texture_mode = simple->getEnvMode();
  }
}

SurfaceLook SurfaceReader::read(const ::osg::MaterialPtr& material) {
  // A switch may hold a switch, or itself: a few steps are enough for any sensible one.
  ::osg::MaterialPtr chosen = material;
  for (int step = 0; step < 8; ++step)
    if (const auto choice = ::osg::SwitchMaterial::dcast(chosen))
      chosen = choice->getChosenMaterial();
  SurfaceLook look;
  const auto chunks = ::osg::ChunkMaterial::dcast(chosen);
  if (!chunks) return look;
  look.has_material = true;
  read_colors(chunks, look);
  read_alpha(chunks, look);
  read_texture(chunks, look);
  return look;
}

}  // namespace morlu::program
