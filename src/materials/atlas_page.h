#pragma once

#include <osg/material.h>

#include <cstdint>
#include <span>
#include <vector>

#include "materials/atlas_images.h"
#include "materials/atlas_packer.h"

namespace morlu::osg {

inline constexpr std::uint32_t smallest_atlas = 32, largest_atlas = 8192;

/// One page of tiles, each an image as often side by side as coordinates on it reach.
///
/// First it is packed, then finished, when it gets its size, and only then drawn, so that a page
/// takes no more memory than what is left of it.
struct texture_atlas {
  /// An empty page; its sides are `size` raised to a power of two, from 32 to 8192.
  texture_atlas(std::uint32_t size, bool alpha, std::uint32_t position, bool colors);

  std::uint32_t width, height;
  std::uint32_t used_width, used_height;  // what is left of it, once it is finished
  std::uint32_t placed_count = 0;
  std::uint32_t index;  // place in the table of atlases
  bool has_alpha;       // RGBA, else RGB
  bool vertex_colors;   // what shows it has colours at its vertices
  free_rects free;
  ::osg::ImagePtr final_image;  // null until it is drawn
  ::osg::ChunkMaterialPtr material;
};

/// Takes a place on the page for the tile; false, and nothing changes, if there is none.
bool placeImage(texture_atlas& atlas, atlas_image& image);

/// Cuts off the free strip at the bottom and then that at the right, and raises what is left to
/// powers of two.
void finishAtlas(texture_atlas& atlas);

/// Draws the image into its tile as many times as that holds it, in the page's format. `to` is RGB
/// or RGBA and holds the tile.
void drawTile(::osg::Image& to, const atlas_image& image);

/// Draws a finished page, black where there is no tile, and gives the material what shows it.
void drawAtlas(texture_atlas& atlas, std::span<const atlas_image> images);

/// Places the images on as many pages as they need, the tallest tile first, of equal ones the
/// widest, of those in their order; what fits no page is left unplaced. The last page may be empty.
/// Places are settled, nothing is drawn. None if there are fewer than two images.
std::vector<texture_atlas> packAtlases(std::span<atlas_image> images, std::uint32_t size,
                                       bool alpha, bool colors);

}  // namespace morlu::osg
