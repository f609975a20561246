#pragma once

#include <osg/geometry.h>
#include <osg/image.h>

#include <cstdint>
#include <span>

#include "materials/atlas_images.h"
#include "materials/tile_layout.h"

/// One atlas of free size for all textures of a leaf of a rebuilt scene:
///
///   atlas_image_table table;                      // add, then find, for each textured object
///   texture_layout layout;
///   if (createAtlas(table.records(), false, 10000, layout))
///     fillAtlasImage(layout, table.records(), image);
///   remapLeafTexCoords(objects, table.records(), *image);
namespace morlu::osg {

/// An image above this on either side is no texture.
inline constexpr std::int64_t largest_leaf_atlas = 8192;

using texture_layout = tile_layout;

/// Lays out the tiles of all records. As long as the layout is larger than 8192 on a side, images
/// are halved by `scaleImages`, down to 32 pixels, as many as it is too large for `maxSize`.
///
/// True if it succeeds; an empty table gives 1 x 1. False, with a line on standard output and the
/// layout 1 x 1, if nothing is left to be halved; then the records hold the halved images. With
/// `keepSize` nothing is halved: false without a line if a side is above `maxSize`, with the layout
/// as it came out, or above 8192, with the layout 1 x 1. Ends after some 26 rounds an image at
/// most. Throws `std::bad_alloc`.
bool createAtlas(std::span<atlas_image> table, bool keepSize, std::uint32_t maxSize,
                 texture_layout& layout);

/// Gives the image, RGB or RGBA with pixels, the size of the layout, all pixels those that it has
/// had if they were equal, and draws the tiles of all records into it in its format; their places
/// are taken from the layout and stand in the records, which are `placed` from then on. Records
/// whose tile has no pixel (coordinates never above 0 on an axis) are left out; of others without a
/// place in the layout, standard output is told.
///
/// An exception ends here, with a line on standard error: what is drawn stays, the records that
/// were not reached are not `placed`. O(pixels of the layout).
void fillAtlasImage(texture_layout& layout, std::span<atlas_image> table,
                    const ::osg::ImagePtr& image);

/// Geometry of an object, and the position of its image in the table; negative for none.
struct leaf_object {
  ::osg::GeometryPtr geometry;
  std::int64_t record = -1;
};

/// Turns the coordinates of objects whose record is `placed` into those on the atlas, of the size
/// that it has now. Others keep theirs: their texture isn't in the atlas, so they need their own
/// material. Each geometry must be there once. O(coordinates); throws `std::bad_alloc`.
void remapLeafTexCoords(std::span<const leaf_object> objects, std::span<const atlas_image> table,
                        const ::osg::Image& atlas);

}  // namespace morlu::osg
