// Small coordinates, where floats are fine-grained, and the way back in the material. All that can
// fail comes before the first change of the geometry.

#include <osg/material.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "materials/own_copy.h"
#include "morlu/materials.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

// --- How far -------------------------------------------------------------------------------------

/// A NaN is no position.
::osg::Pnt3f lowest(const ::osg::GeoPositions& positions) {
  constexpr float none = std::numeric_limits<float>::infinity();
  ::osg::Pnt3f low(none, none, none);
  for (std::uint32_t i = 0; i < positions.size(); ++i) {
    const ::osg::Pnt3f p = positions.getValue(i);
    for (unsigned axis = 0; axis < 3; ++axis) low[axis] = p[axis] < low[axis] ? p[axis] : low[axis];
  }
  return low;
}

/// A whole number that a float holds, so that positions and matrix are moved by the same.
float shift_from(double low) {
  double shift = 0;
  if (low > 1) shift = -std::trunc(low);
  if (low < 0) shift = std::trunc(-low) + 1;
  using limits = std::numeric_limits<std::int32_t>;
  const bool fits = shift >= limits::min() && shift <= limits::max();
  return fits ? static_cast<float>(shift) : 0.0f;
}

void move(const ::osg::GeoPositionsPtr& positions, const ::osg::Vec3f& shift) {
  ::osg::beginEditCP(positions);
  for (std::uint32_t i = 0; i < positions->size(); ++i)
    positions->setValue(positions->getValue(i) + shift, i);
  ::osg::endEditCP(positions);
}

// --- The way back --------------------------------------------------------------------------------

/// Where the last TransformChunk stands; the number of chunks if there is none.
std::size_t place_of_transform(const ::osg::ChunkMaterial& material) {
  const auto& chunks = material.getChunks();
  for (std::size_t i = chunks.size(); i-- > 0;)
    if (::osg::TransformChunk::dcast(chunks[i])) return i;
  return chunks.size();
}

bool has_transform(const ::osg::MaterialPtr& material) {
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  return chunks && place_of_transform(*chunks) < chunks->getChunks().size();
}

/// The list keeps its length, and so its memory.
void replace_chunk(::osg::ChunkMaterial& material, std::size_t place,
                   const ::osg::StateChunkPtr& by) {
  auto chunks = material.getChunks();
  chunks[place] = by;
  material.clearChunks();
  for (const auto& chunk : chunks) material.addChunk(chunk);
}

/// The material with a last TransformChunk that may be written: what is used elsewhere too has
/// given way to a copy.
::osg::ChunkMaterialPtr with_own_transform(const ::osg::MaterialPtr& present) {
  const auto material =
      present ? ::osg::ChunkMaterial::dcast(own_copy(present)) : ::osg::ChunkMaterial::create();
  const std::size_t place = place_of_transform(*material);
  if (place == material->getChunks().size())
    material->addChunk(::osg::TransformChunk::create());
  else
    replace_chunk(*material, place, own_copy(material->getChunks()[place]));
  return material;
}

}  // namespace

void addTransformChunk(::osg::GeometryPtr geometry) {
  if (!geometry || !geometry->getPositions() || geometry->getPositions()->empty()) return;
  if (geometry->getMaterial() && !::osg::ChunkMaterial::dcast(geometry->getMaterial())) {
    say("Geometry has a Non-Chunk Material. Can't add a Transformchunk.\n");
    return;
  }
  const ::osg::Pnt3f low = lowest(*geometry->getPositions());
  const ::osg::Vec3f shift(shift_from(low[0]), shift_from(low[1]), shift_from(low[2]));
  if (shift == ::osg::Vec3f()) {
    if (!has_transform(geometry->getMaterial()))
      geometry->setMaterial(with_own_transform(geometry->getMaterial()));
    return;
  }

  const auto positions = own_copy(geometry->getPositions());
  const auto material = with_own_transform(geometry->getMaterial());
  const auto chunk = material->findLastChunk<::osg::TransformChunk>();
  auto matrix = chunk->getMatrix();
  matrix.setTranslation(matrix.getTranslation() - shift);
  chunk->setMatrix(matrix);
  geometry->setMaterial(material);
  move(positions, shift);
  geometry->setPositions(positions);
}

}  // namespace morlu::osg
