#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <osg/geometry.h>
#include <osg/image.h>
#include <osg/node.h>

#include "morlu/export.h"

/// Materials, the colours that stand for them, and the texture coordinates they are drawn with.
///
/// Nothing here takes a lock; what is changed is the scene or the geometry that is given, and
/// nothing else: a material, chunk or property that anything else holds too, a handle of the
/// caller's among them, is copied before it is written. Empty properties count as absent. Memory
/// that runs out leaves a function as `std::bad_alloc`, and a geometry as it was.
namespace morlu::osg {

// Texture coordinates of one triangle, in single precision. A tiled texture looks the same after
// all three are shifted by a whole number. NaN and infinite values stay as they are, and nothing is
// shifted by what is not finite.

/// Each of the six values that is within 0.001 of a whole number becomes that number.
MORLU_API void roundTCToInteger(::osg::Vector<float, 2>& a, ::osg::Vector<float, 2>& b,
                                ::osg::Vector<float, 2>& c);

/// Shifts the triangle up, on each axis by the smallest whole number that leaves no value negative.
MORLU_API void getTCPositiv(::osg::Vector<float, 2>& a, ::osg::Vector<float, 2>& b,
                            ::osg::Vector<float, 2>& c);

/// Shifts the triangle down on each axis on which all values are above 1, so that the smallest
/// comes to lie in [0, 1).
MORLU_API void getTCNearToZero(::osg::Vector<float, 2>& a, ::osg::Vector<float, 2>& b,
                               ::osg::Vector<float, 2>& c);

/// The last resort against values far out of range, which distorts the texture on the triangle: of
/// each corner by itself, u if it is above `limit` and then v if it is above 1 become their
/// fractional parts, then v and u in the same way.
MORLU_API void cutTC(::osg::Vector<float, 2>& a, ::osg::Vector<float, 2>& b,
                     ::osg::Vector<float, 2>& c, int limit);

/// Gives the geometry of `node` the diffuse colour of its material as vertex colours, and takes the
/// material away: its own or, if it has none, that of the topmost MaterialGroup above the node.
/// Colours that are there are mixed with it, half of each, and keep their alpha; else there are new
/// ones with alpha 1, more than any index reaches.
///
/// False, and nothing changes: for null, a core without geometry, no material, and a material other
/// than a SimpleMaterial, whose image is lost, or a ChunkMaterial with a MaterialChunk (the last
/// one counts, its alpha is lost unless it is 0, which refuses) and without TextureChunk.
///
/// It is the core that changes: all nodes that share it show these colours, those under another
/// MaterialGroup too. A MaterialGroup above stays, and is then what colours the node. O(vertices).
MORLU_API bool MaterialColorIntoVertex(::osg::NodePtr node);

/// The way back, if all entries of the colours are the same within 1e-6: gives the geometry a
/// SimpleMaterial with that diffuse colour and takes the colours away. With `withAlpha` a
/// ChunkMaterial with a BlendChunk (source alpha, one minus source alpha) and a MaterialChunk;
/// colours without alpha then stay, a line on standard output says so, and the result is true.
///
/// False, and nothing changes: for null, a geometry that has a material or no colours, and colours
/// that differ, NaN among them. O(entries).
MORLU_API bool VertexColorIntoMaterial(::osg::GeometryPtr geometry, bool withAlpha);

/// Gives all geometry that `getGeometryNodes` finds in `tree` the effective material with the most
/// primitives, of equals the older one; null counts as the oldest, and is chosen where nothing has
/// any. A node below MaterialGroups gets it through the topmost; a material of its own then still
/// wins. Lines and quads count half their vertices, triangles a third, strips, fans and polygons
/// all but two, points each one, other types nothing. Null does nothing. O(nodes + primitives).
MORLU_API void reduceSceneMaterialsToOne(::osg::NodePtr tree);

/// Moves the positions near the origin and keeps their place: on each axis whose smallest position
/// is above 1 or negative all are shifted by a whole number, which leaves the smallest in 0 to 1,
/// and the last TransformChunk of the geometry's material takes the shift back. The chunk is added
/// if there is none, the material too. The place is kept as far as the chunk's matrix was a
/// translation. An axis is not shifted if its smallest position is not finite or the shift doesn't
/// fit 32 bits.
///
/// Nothing happens for null and without positions, nor, but for a line on standard output, if the
/// material is no ChunkMaterial. O(positions).
MORLU_API void addTransformChunk(::osg::GeometryPtr geometry);

/// Replaces the textures of a scene by a few large ones, so that geometry which differs by texture
/// only can be merged. Opaque and transparent geometry, as `getGeometryNodes` tells it, get pages
/// of their own, of `maxSize` raised to a power of two on each side at most, and cut to what they
/// need. Their material is the page's texture and nothing else: with a BlendChunk where it is
/// transparent, and with vertex colours as ambient and diffuse if any geometry has some.
///
/// Coordinates are brought near zero by `getTCNearToZero` and its like, with triangles cut to
/// `optimizeTc` if that is above 0 as a signed number; an image is stored as often side by side as
/// they then reach. Geometry keeps its texture if a side of the image has half of `maxSize` pixels
/// or more, if coordinates are still greater than `tcLimit` + 0.05, if its list has a single image
/// only or its image fits no page, if the image lies on other coordinates than the first, or clamps
/// or mirrors and is left by them, and if they are not two floats or stay below 0. Images of one
/// size that agree in their first width x height bytes are taken as one, see `findAtlasMixUps`.
///
/// A core of several nodes stays shared where their effective material is the same. A MaterialGroup
/// above such geometry becomes a Group; what else is below it gets its material as its own.
///
/// Returns the number of images placed; 0 for null. `maxSize` of 32 to 8192; others are told of and
/// become 8192. Four lines of progress go to standard output. What is thrown, `std::bad_alloc`,
/// leaves a scene that looks the same. O(nodes + triangles + pixels) beside the packing, which is
/// O(images x free rectangles) a page.
MORLU_API unsigned int createTextureAtlasForScene(::osg::NodePtr scene, unsigned int maxSize,
                                                  unsigned int tcLimit, unsigned int optimizeTc);

/// Where an image stands in an atlas: `columns` x `rows` times side by side from (x, y) on.
struct atlas_tile {
  ::osg::ImagePtr source;  // of images that are taken as one, the first
  std::size_t page;
  std::uint32_t x, y;
  std::uint32_t width, height;  // of the image
  std::uint32_t columns, rows;
};

/// Pages are RGB for opaque geometry, then RGBA for transparent.
struct scene_atlas {
  std::vector<::osg::ImagePtr> pages;
  std::vector<atlas_tile> tiles;
};

/// The same, with what was made.
MORLU_API scene_atlas createSceneAtlas(::osg::NodePtr scene, unsigned int maxSize,
                                       unsigned int tcLimit, unsigned int optimizeTc);

/// Two different images of which an atlas would show the first in place of both.
struct atlas_mix_up {
  ::osg::ImagePtr shown, lost;
};

/// What `createTextureAtlasForScene` would take as one image, though it isn't. Changes nothing.
MORLU_API std::vector<atlas_mix_up> findAtlasMixUps(::osg::NodePtr scene, unsigned int maxSize,
                                                    unsigned int tcLimit);

/// Divides both sides of the textures in `node` by `factor`, rounding down: of the images on the
/// effective materials of what `getGeometryNodes` finds without what is switched. One with a side
/// of `minSide` or less is left alone, one with a side of `factor` or less becomes a single pixel.
/// Each is scaled once, and in place: whoever else shows it sees the smaller one too. Slices become
/// one, mipmaps go, frames and sides stay.
///
/// A factor below 2 does nothing; else a line on standard output says what is done. Beyond 2^31 - 1
/// a factor changes no image, and a `minSide` holds none back. `std::bad_alloc` leaves the images
/// that were not reached yet. O(nodes + pixels).
MORLU_API void ScaleImagesInTree(::osg::NodePtr node, unsigned int factor, unsigned int minSide);

}  // namespace morlu::osg
