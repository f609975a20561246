// Colours on their way between materials and vertices. All that can fail comes before the first
// change.

#include <osg/material.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "materials/own_copy.h"
#include "morlu/materials.h"
#include "optimiser/scene_queries.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

bool has_colors(const ::osg::Geometry& geometry) {
  return geometry.getColors() && !geometry.getColors()->empty();
}

// --- Into the vertices ---------------------------------------------------------------------------

/// The colour that can stand in the vertices in place of the material.
std::optional<::osg::Color3f> plain_color(const ::osg::MaterialPtr& material) {
  if (const auto simple = ::osg::SimpleMaterial::dcast(material)) return simple->getDiffuse();
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  if (!chunks || chunks->findFirstChunk<::osg::TextureChunk>()) return {};
  const auto colors = chunks->findLastChunk<::osg::MaterialChunk>();
  if (!colors || colors->getDiffuse()[3] == 0) return {};
  const ::osg::Color4f& diffuse = colors->getDiffuse();
  return ::osg::Color3f(diffuse[0], diffuse[1], diffuse[2]);
}

void mix_with(const ::osg::GeoColorsPtr& colors, const ::osg::Color3f& color) {
  ::osg::beginEditCP(colors);
  for (std::uint32_t i = 0; i < colors->size(); ++i) {
    ::osg::Color3f mixed = colors->getValue(i);
    for (unsigned k = 0; k < 3; ++k) mixed[k] = (mixed[k] + color[k]) * 0.5f;
    colors->setValue(mixed, i);
  }
  ::osg::endEditCP(colors);
}

/// Colours have no indices yet: they are found by those of the positions, in all primitives.
std::uint64_t entries_for_all_indices(const ::osg::Geometry& geometry) {
  std::uint64_t triangles = 0;
  std::uint64_t largest = 1;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    triangles += ::osg::triangleCount(it.getType(), it.getLength());
    for (std::uint32_t k = 0; k < it.getLength(); ++k) {
      const auto index = static_cast<std::uint32_t>(it.getPositionIndex(k));
      largest = std::max<std::uint64_t>(largest, index);
    }
  }
  return std::max(3 * (triangles + 1), largest) + 1;
}

::osg::GeoColorsPtr uniform_colors(const ::osg::Color3f& color, std::uint64_t entries) {
  const auto colors = ::osg::GeoColors4f::create();
  colors->resize(entries);
  std::ranges::fill(colors->values(), ::osg::Color4f(color[0], color[1], color[2], 1.0f));
  return colors;
}

// --- Into a material -----------------------------------------------------------------------------

/// An alpha that is not stored is 0 for all.
::osg::Color4f stored_color(const ::osg::GeoColors& colors, std::uint32_t index) {
  ::osg::Color4f color;
  ::osg::detail::read_entry(colors.getData() + index * colors.getStride(),
                            colors.getComponentType(), colors.getDimension(), color);
  return color;
}

/// A NaN agrees with nothing.
bool agree(const ::osg::Color4f& a, const ::osg::Color4f& b, unsigned components) {
  for (unsigned k = 0; k < components; ++k)
    if (!(std::fabs(a[k] - b[k]) <= 0.000001)) return false;
  return true;
}

/// The first entry, if the others agree with it in as many components.
std::optional<::osg::Color4f> common_color(const ::osg::GeoColors& colors, unsigned components) {
  const ::osg::Color4f first = stored_color(colors, 0);
  for (std::uint32_t i = 1; i < colors.size(); ++i)
    if (!agree(stored_color(colors, i), first, components)) return {};
  return first;
}

::osg::MaterialPtr opaque_material(const ::osg::Color4f& color) {
  const auto material = ::osg::SimpleMaterial::create();
  material->setDiffuse({color[0], color[1], color[2]});
  return material;
}

::osg::MaterialPtr blended_material(const ::osg::Color4f& color) {
  const auto blend = ::osg::BlendChunk::create();
  blend->setSrcFactor(::osg::gl::kSrcAlpha);
  blend->setDestFactor(::osg::gl::kOneMinusSrcAlpha);
  const auto colors = ::osg::MaterialChunk::create();
  colors->setDiffuse(color);
  const auto material = ::osg::ChunkMaterial::create();
  material->addChunk(blend);
  material->addChunk(colors);
  return material;
}

}  // namespace

bool MaterialColorIntoVertex(::osg::NodePtr node) {
  const auto geometry = node ? ::osg::Geometry::dcast(node->getCore()) : ::osg::NullFC;
  if (!geometry) return false;
  const auto color = plain_color(getEffectiveMaterial(node));
  if (!color) return false;

  const auto colors = has_colors(*geometry)
                          ? own_copy(geometry->getColors())
                          : uniform_colors(*color, entries_for_all_indices(*geometry));
  if (has_colors(*geometry)) mix_with(colors, *color);
  geometry->setColors(colors);
  geometry->setMaterial(::osg::NullFC);
  return true;
}

bool VertexColorIntoMaterial(::osg::GeometryPtr geometry, bool withAlpha) {
  if (!geometry || geometry->getMaterial() || !has_colors(*geometry)) return false;
  const ::osg::GeoColors& colors = *geometry->getColors();
  if (withAlpha && colors.getDimension() != 4) {
    say("Sorry No AlphaColor\n");
    return true;
  }
  const auto color = common_color(colors, withAlpha ? 4 : 3);
  if (!color) return false;
  geometry->setMaterial(withAlpha ? blended_material(*color) : opaque_material(*color));
  geometry->setColors(::osg::NullFC);
  return true;
}

}  // namespace morlu::osg
