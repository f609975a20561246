// Texture coordinates between images and atlases.

#include "materials/atlas_coords.h"

#include <osg/material.h>

#include <algorithm>
#include <cmath>

#include "materials/own_copy.h"
#include "morlu/materials.h"
#include "optimiser/scene_queries.h"

namespace morlu::osg {

namespace {

bool exceed(const ::osg::Geometry& geometry, float bound) {
  if (!geometry.getTexCoords()) return false;
  for (auto triangle = geometry.beginTriangles(); !triangle.isAtEnd(); ++triangle) {
    ::osg::Vec2f t[3];
    for (::osg::UInt32 k = 0; k < 3; ++k) t[k] = triangle.getTexCoords(k);
    roundTCToInteger(t[0], t[1], t[2]);
    getTCPositiv(t[0], t[1], t[2]);
    getTCNearToZero(t[0], t[1], t[2]);
    cutTC(t[0], t[1], t[2], 50);
    for (const ::osg::Vec2f& corner : t)
      if (corner[0] > bound || corner[1] > bound) return true;
  }
  return false;
}

/// Within what rounding to whole numbers mends.
bool leave_image(const ::osg::GeoTexCoords& coords) {
  constexpr float near = 0.001f;
  for (::osg::UInt32 i = 0; i < coords.size(); ++i) {
    const ::osg::Vec2f t = coords.getValue(i);
    if (std::min(t[0], t[1]) < -near || std::max(t[0], t[1]) > 1 + near) return true;
  }
  return false;
}

/// The same for u with widths and for v with heights.
struct axis_map {
  float pixel, limit;
  double scale, atlas, shift;

  axis_map(std::uint32_t in_atlas, std::uint32_t in_image, std::int32_t at)
      : pixel(static_cast<float>(1.0 / in_image)),
        limit(static_cast<float>(1.0 - pixel)),
        scale(in_image),
        atlas(in_atlas),
        shift(static_cast<double>(at) / in_atlas) {}

  float operator()(float value) const {
    if (pixel > value) value = pixel;
    const float whole = std::trunc(value);
    if (value - whole > limit || whole == value) value -= pixel;
    return static_cast<float>(value * scale / atlas + shift);
  }
};

}  // namespace

/// Atlases hold images side by side and are read by the first coordinates.
bool isShownOtherwise(const ::osg::NodePtr& node) {
  const auto material = getEffectiveMaterial(node);
  if (::osg::SimpleTexturedMaterial::dcast(material)) return false;
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  const auto texture = chunks ? chunks->findLastChunk<::osg::TextureChunk>() : ::osg::NullFC;
  if (!texture) return false;
  if (texture->getTexCoordSet() != 0) return true;
  const bool tiles =
      texture->getWrapS() == ::osg::gl::kRepeat && texture->getWrapT() == ::osg::gl::kRepeat;
  const auto geometry = ::osg::Geometry::dcast(node->getCore());
  return !tiles && geometry && geometry->getTexCoords() && leave_image(*geometry->getTexCoords());
}

bool excludedFromAtlas(const ::osg::NodePtr& node, float limit, std::uint32_t halfSize) {
  const auto image = findMaterialImage(node);
  if (image &&
      static_cast<std::uint32_t>(std::max(image->getWidth(), image->getHeight())) >= halfSize)
    return true;
  const auto geometry = ::osg::Geometry::dcast(node->getCore());
  if (!geometry) return false;
  return exceed(*geometry, limit + 0.05f) || isShownOtherwise(node);
}

bool has_mappable_coords(const ::osg::Geometry& geometry) {
  const auto& coords = geometry.getTexCoords();
  if (!coords || coords->empty() || coords->getDimension() < 2 ||
      coords->getComponentType() != ::osg::ComponentType::Float32)
    return false;
  for (::osg::UInt32 i = 0; i < coords->size(); ++i) {
    const ::osg::Vec2f t = coords->getValue(i);
    if (t[0] < 0 || t[1] < 0) return false;
  }
  return true;
}

void remapTexCoord(const ::osg::GeometryPtr& geometry, std::uint32_t atlasWidth,
                   std::uint32_t atlasHeight, std::uint32_t imageWidth, std::uint32_t imageHeight,
                   std::int32_t x, std::int32_t y) {
  if (!geometry || !geometry->getTexCoords()) return;
  if (geometry->getTexCoords()->getReferenceCount() > 1)
    geometry->setTexCoords(own_copy(geometry->getTexCoords()));
  const ::osg::GeoTexCoordsPtr& coords = geometry->getTexCoords();
  const axis_map map_u(atlasWidth, imageWidth, x), map_v(atlasHeight, imageHeight, y);
  ::osg::beginEditCP(coords);
  for (::osg::UInt32 i = 0; i < coords->size(); ++i) {
    const ::osg::Vec2f t = coords->getValue(i);
    coords->setValue({map_u(t[0]), map_v(t[1])}, i);
  }
  ::osg::endEditCP(coords);
}

}  // namespace morlu::osg
