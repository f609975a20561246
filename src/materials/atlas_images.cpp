// The different images of a scene, found by the hash of what tells them apart.

#include "materials/atlas_images.h"

#include <osg/geometry.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

#include "materials/image_copy.h"
#include "optimiser/scene_queries.h"

namespace morlu::osg {

namespace {

constexpr bool goes_as_it_is(::osg::UInt32 format) {
  return format == ::osg::gl::kRGB || format == ::osg::gl::kRGBA;
}

/// Null if there are no pixels, or no way to have them in one of the two formats.
::osg::ImagePtr as_rgb_or_rgba(const ::osg::ImagePtr& image) {
  if (!image || image->empty()) return ::osg::NullFC;
  if (goes_as_it_is(image->getPixelFormat())) return image;
  const auto copy = copy_of_pixels(*image);
  const auto format = image->hasAlphaChannel() ? ::osg::gl::kRGBA : ::osg::gl::kRGB;
  return copy->reformat(format) ? copy : ::osg::NullFC;
}

/// What decides, beside the size, whether two images are one.
std::string_view content_of(const ::osg::UInt8* data, std::uint32_t width, std::uint32_t height) {
  return {reinterpret_cast<const char*>(data), std::size_t{width} * height};
}

/// From 0 on; what is no number counts for nothing.
::osg::Vec2f largest(const ::osg::GeoTexCoords* coords) {
  ::osg::Vec2f most(0, 0);
  for (std::uint32_t i = 0; coords && i < coords->size(); ++i) {
    const ::osg::Vec2f t = coords->getValue(i);
    for (unsigned axis = 0; axis < 2; ++axis)
      if (t[axis] > most[axis]) most[axis] = t[axis];
  }
  return most;
}

}  // namespace

std::uint64_t tile_repeats(float coordinate) {
  constexpr float most = 4294967296.0f;
  return coordinate > 0 ? static_cast<std::uint64_t>(std::min(std::ceil(coordinate), most)) : 0;
}

tile_extent tile_size(const atlas_image& image) {
  // a side of 2^31 pixels, repeated 2^32 times, has 63 bits
  return {image.width * tile_repeats(image.max_u), image.height * tile_repeats(image.max_v)};
}

void atlas_image_table::add(const ::osg::ImagePtr& image, float max_u, float max_v) {
  std::int64_t at = find(image);
  if (at < 0) {
    const auto pixels = as_rgb_or_rgba(image);
    if (!pixels) return;
    const auto width = static_cast<std::uint32_t>(pixels->getWidth());
    const auto height = static_cast<std::uint32_t>(pixels->getHeight());
    at = findAtlasImage(pixels->getData(), width, height);
    if (at < 0) {
      at = static_cast<std::int64_t>(records_.size());
      const auto content = content_of(pixels->getData(), width, height);
      of_content_.emplace(std::hash<std::string_view>()(content), at);
      records_.push_back({.source = image,
                          .pixels = pixels,
                          .width = width,
                          .height = height,
                          .has_alpha = pixels->getPixelFormat() == ::osg::gl::kRGBA});
    }
    of_image_.emplace(image, at);
  }
  atlas_image& record = records_[static_cast<std::size_t>(at)];
  record.max_u = std::max(record.max_u, max_u);
  record.max_v = std::max(record.max_v, max_v);
}

std::int64_t atlas_image_table::find(const ::osg::ImagePtr& image) const {
  const auto known = of_image_.find(image);
  return known == of_image_.end() ? -1 : std::int64_t{known->second};
}

std::int64_t atlas_image_table::findAtlasImage(const ::osg::UInt8* data, std::uint32_t width,
                                               std::uint32_t height) const {
  const auto content = content_of(data, width, height);
  const auto [begin, end] = of_content_.equal_range(std::hash<std::string_view>()(content));
  std::int64_t first = -1;
  for (auto each = begin; each != end; ++each) {
    const atlas_image& record = records_[each->second];
    if (record.width != width || record.height != height) continue;
    if (content_of(record.pixels->getData(), width, height) != content) continue;
    if (first < 0 || each->second < first) first = each->second;
  }
  return first;
}

void collectAtlasImages(std::span<const ::osg::NodePtr> nodes, atlas_image_table& table) {
  for (const ::osg::NodePtr& node : nodes) {
    const auto image = findMaterialImage(node);
    if (!image) continue;
    const auto geometry = ::osg::Geometry::dcast(node->getCore());
    const auto most = largest(geometry ? geometry->getTexCoords().get() : nullptr);
    table.add(image, most[0], most[1]);
  }
}

}  // namespace morlu::osg
