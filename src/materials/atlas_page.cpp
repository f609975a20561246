// Pages of an atlas: filled, cut to size, drawn.

#include "materials/atlas_page.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

#include "materials/image_copy.h"

namespace morlu::osg {

namespace {

std::uint32_t page_side(std::uint32_t size) {
  return std::clamp(std::bit_ceil(std::min(size, largest_atlas)), smallest_atlas, largest_atlas);
}

/// Opaque black, in an RGBA page. What lies outside of the page is left out.
void blacken(::osg::Image& page, const free_rect& rect) {
  std::vector<::osg::UInt8> row(std::size_t{4} * rect.width);
  for (std::size_t i = 3; i < row.size(); i += 4) row[i] = 255;
  const std::uint32_t end =
      std::min(rect.y + rect.height, static_cast<std::uint32_t>(page.getHeight()));
  for (std::uint32_t y = rect.y; y < end; ++y)
    page.setSubData(static_cast<::osg::Int32>(rect.x), static_cast<::osg::Int32>(y), 0,
                    static_cast<::osg::Int32>(rect.width), 1, 1, row.data());
}

/// A page in which all that is free is black.
::osg::ImagePtr without_tiles(const texture_atlas& atlas) {
  const auto page = ::osg::Image::create();
  page->set(atlas.has_alpha ? ::osg::gl::kRGBA : ::osg::gl::kRGB,
            static_cast<::osg::Int32>(atlas.used_width),
            static_cast<::osg::Int32>(atlas.used_height));
  if (atlas.has_alpha)
    for (const free_rect& rect : atlas.free.in_order()) blacken(*page, rect);
  return page;
}

/// The image's pixels, or those of a copy in the format.
::osg::ImagePtr in_format(const ::osg::ImagePtr& image, ::osg::UInt32 format) {
  if (image->getPixelFormat() == format) return image;
  const auto copy = copy_of_pixels(*image);
  copy->reformat(format);
  return copy;
}

/// Positions of the images in the order in which they are placed.
std::vector<std::uint32_t> tallest_first(std::span<const atlas_image> images) {
  struct floats {
    float height, width;
    bool operator==(const floats&) const = default;
    auto operator<=>(const floats&) const = default;
  };
  const auto size_of = [&](std::uint32_t i) {
    const atlas_image& image = images[i];
    return floats{std::ceil(image.max_v) * static_cast<float>(image.height),
                  std::ceil(image.max_u) * static_cast<float>(image.width)};
  };
  std::vector<std::uint32_t> order(images.size());
  std::iota(order.begin(), order.end(), 0u);
  std::ranges::stable_sort(order, std::greater(), size_of);
  return order;
}

}  // namespace

texture_atlas::texture_atlas(std::uint32_t size, bool alpha, std::uint32_t position, bool colors)
    : width(page_side(size)),
      height(width),
      used_width(width),
      used_height(height),
      index(position),
      has_alpha(alpha),
      vertex_colors(colors),
      free(width, height),
      material(::osg::ChunkMaterial::create()) {}

bool placeImage(texture_atlas& atlas, atlas_image& image) {
  const auto [width, height] = tile_size(image);
  const auto place = atlas.free.take(width, height);
  if (!place) return false;
  image.x = static_cast<std::int32_t>(place->x);
  image.y = static_cast<std::int32_t>(place->y);
  image.placed = true;
  image.atlas_index = static_cast<std::int32_t>(atlas.index);
  ++atlas.placed_count;
  return true;
}

void finishAtlas(texture_atlas& atlas) {
  atlas.used_width = atlas.width;
  atlas.used_height = atlas.height;
  const std::vector<free_rect> free = atlas.free.in_order();
  for (const free_rect& rect : free)
    if (rect.width == atlas.width) atlas.used_height = rect.y;
  // Strips along the right edge start above the strip that is gone. All that is left of a rectangle
  // is tiles, in each row, so no tile stands right of such a strip.
  for (const free_rect& rect : free)
    if (rect.y < atlas.used_height && rect.height == atlas.used_height) atlas.used_width = rect.x;
  atlas.used_width = std::bit_ceil(atlas.used_width);
  atlas.used_height = std::bit_ceil(atlas.used_height);
}

void drawTile(::osg::Image& to, const atlas_image& image) {
  const auto pixels = in_format(image.pixels, to.getPixelFormat());
  const auto width = static_cast<::osg::Int32>(image.width);
  const auto height = static_cast<::osg::Int32>(image.height);
  const auto columns = static_cast<::osg::Int32>(tile_repeats(image.max_u));
  const auto rows = static_cast<::osg::Int32>(tile_repeats(image.max_v));
  for (::osg::Int32 i = 0; i < columns; ++i)
    for (::osg::Int32 j = 0; j < rows; ++j)
      to.setSubData(image.x + i * width, image.y + j * height, 0, width, height, 1,
                    pixels->getData());
}

void drawAtlas(texture_atlas& atlas, std::span<const atlas_image> images) {
  atlas.final_image = without_tiles(atlas);
  for (const atlas_image& image : images)
    if (image.placed && image.atlas_index == static_cast<std::int32_t>(atlas.index))
      drawTile(*atlas.final_image, image);

  const auto texture = ::osg::TextureChunk::create();
  texture->setImage(atlas.final_image);
  atlas.material->addChunk(texture);
  if (atlas.has_alpha) {
    const auto blend = ::osg::BlendChunk::create();
    blend->setSrcFactor(::osg::gl::kSrcAlpha);
    blend->setDestFactor(::osg::gl::kOneMinusSrcAlpha);
    atlas.material->addChunk(blend);
  }
  if (atlas.vertex_colors) {
    const auto colors = ::osg::MaterialChunk::create();
    colors->setColorMaterial(::osg::gl::kAmbientAndDiffuse);
    atlas.material->addChunk(colors);
  }
}

std::vector<texture_atlas> packAtlases(std::span<atlas_image> images, std::uint32_t size,
                                       bool alpha, bool colors) {
  std::vector<texture_atlas> atlases;
  if (images.size() < 2) return atlases;
  std::vector<std::uint32_t> waiting = tallest_first(images);
  while (!waiting.empty()) {
    texture_atlas& atlas =
        atlases.emplace_back(size, alpha, static_cast<std::uint32_t>(atlases.size()), colors);
    std::erase_if(waiting, [&](std::uint32_t i) { return placeImage(atlas, images[i]); });
    if (atlas.placed_count == 0) break;
    finishAtlas(atlas);
  }
  return atlases;
}

}  // namespace morlu::osg
