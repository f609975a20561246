// The atlas of a leaf: images become smaller until their layout fits, then it is drawn once.

#include "materials/leaf_atlas.h"

#include <algorithm>
#include <iostream>
#include <limits>
#include <stdexcept>

#include "materials/atlas_coords.h"
#include "materials/atlas_page.h"
#include "materials/image_scaling.h"
#include "primitives/number_text.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

tile_sides sides_of(const atlas_image& record) {
  const auto [width, height] = tile_size(record);  // of 63 bits at most
  return {static_cast<std::int64_t>(width), static_cast<std::int64_t>(height)};
}

std::vector<tile_sides> tiles_of(std::span<const atlas_image> table) {
  std::vector<tile_sides> tiles(table.size());
  std::ranges::transform(table, tiles.begin(), sides_of);
  return tiles;
}

std::int64_t longer_side(const texture_layout& layout) {
  return std::max(layout.width, layout.height);
}

bool fail(std::size_t records, std::uint32_t max_size, double percent) {
  say("Morlu::osg::createAtlas failed! Vec: " + std::to_string(records) +
      " maxSize: " + std::to_string(max_size) + " percent: " + number_text({percent}) + '\n');
  return false;
}

void resize(::osg::Image& image, const texture_layout& layout) {
  if (longer_side(layout) > std::numeric_limits<::osg::Int32>::max() ||
      !image.scale(static_cast<::osg::Int32>(layout.width),
                   static_cast<::osg::Int32>(layout.height)))
    throw std::length_error("no image has this size");
}

void draw(texture_layout& layout, atlas_image& record, ::osg::Image& image) {
  const tile_sides sides = sides_of(record);
  if (std::min(sides.width, sides.height) == 0) return;
  const auto place = takePlacement(layout, sides);
  if (!place)
    return say("Textureatlas unable to find this Texture!\nParameter: \nWidth: " +
               std::to_string(sides.width) + "\nHeigth: " + std::to_string(sides.height) + '\n');
  atlas_image placed = record;
  placed.x = static_cast<std::int32_t>(place->x);
  placed.y = static_cast<std::int32_t>(place->y);
  placed.placed = true;
  drawTile(image, placed);
  record = placed;
}

}  // namespace

bool createAtlas(std::span<atlas_image> table, bool keepSize, std::uint32_t maxSize,
                 texture_layout& layout) {
  layout = computeLayout(tiles_of(table), maxSize);
  if (keepSize && longer_side(layout) > maxSize) return false;
  while (longer_side(layout) > largest_leaf_atlas) {
    const double most = maxSize;
    const double percent = 1.0 - std::min(most / static_cast<double>(layout.width),
                                          most / static_cast<double>(layout.height));
    layout = {};
    if (keepSize) return false;
    if (!scaleImages(table, percent, 32)) return fail(table.size(), maxSize, percent);
    layout = computeLayout(tiles_of(table), maxSize);
  }
  return true;
}

void fillAtlasImage(texture_layout& layout, std::span<atlas_image> table,
                    const ::osg::ImagePtr& image) {
  try {
    resize(*image, layout);
    for (atlas_image& record : table) draw(layout, record, *image);
  } catch (...) {  // no failure that leaves a gap: what has no place keeps its own texture
    std::cerr << "Scale Texture Image failed." << std::endl;
  }
}

void remapLeafTexCoords(std::span<const leaf_object> objects, std::span<const atlas_image> table,
                        const ::osg::Image& atlas) {
  const auto width = static_cast<std::uint32_t>(atlas.getWidth());
  const auto height = static_cast<std::uint32_t>(atlas.getHeight());
  for (const auto& [geometry, record] : objects) {
    if (record < 0 || static_cast<std::size_t>(record) >= table.size()) continue;
    const atlas_image& image = table[static_cast<std::size_t>(record)];
    if (image.placed)
      remapTexCoord(geometry, width, height, image.width, image.height, image.x, image.y);
  }
}

}  // namespace morlu::osg
