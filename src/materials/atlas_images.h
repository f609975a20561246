#pragma once

#include <osg/image.h>
#include <osg/node.h>

#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <vector>

namespace morlu::osg {

/// An image that is to go into atlases.
struct atlas_image {
  ::osg::ImagePtr source;  // as the scene has it; of images that are taken as one, the first
  ::osg::ImagePtr pixels;  // RGB or RGBA: the source, or a copy
  std::uint32_t width = 0, height = 0;
  float max_u = 0, max_v = 0;   // the largest coordinates that any geometry has on it, at least 0
  std::int32_t x = -1, y = -1;  // place in its atlas
  bool has_alpha = false;       // RGBA
  double scale_key = 0;         // one less for each turn that `scaleImages` has given it
  bool placed = false;
  std::int32_t atlas_index = -1;
};

/// How often an image stands side by side in its tile so that it reaches to `coordinate`. Those
/// that are beyond 2^32 are 2^32.
std::uint64_t tile_repeats(float coordinate);

/// What an image takes of its atlas, in pixels. May be too large for any, but doesn't overflow; 0
/// if its coordinates are never above 0.
struct tile_extent {
  std::uint64_t width, height;
};
tile_extent tile_size(const atlas_image& image);

/// The different images of a list of geometry. Images of one size that agree in their first width x
/// height bytes are one image.
class atlas_image_table {
 public:
  /// Adds an image that has to reach to those coordinates, or raises those of its record. Formats
  /// other than RGB and RGBA are converted, on a copy: those with alpha to RGBA. An image without
  /// pixels, or too large to be converted, isn't added.
  void add(const ::osg::ImagePtr& image, float max_u, float max_v);

  /// The record of an image that was added; -1 for others. O(log images).
  std::int64_t find(const ::osg::ImagePtr& image) const;
  /// The first record with that size and content; -1 if there is none. O(width x height).
  std::int64_t findAtlasImage(const ::osg::UInt8* data, std::uint32_t width,
                              std::uint32_t height) const;

  /// In the order in which they were added.
  std::vector<atlas_image>& records() { return records_; }
  const std::vector<atlas_image>& records() const { return records_; }

 private:
  std::vector<atlas_image> records_;
  std::unordered_multimap<std::size_t, std::uint32_t> of_content_;
  std::map<::osg::ImagePtr, std::uint32_t> of_image_;
};

/// Adds what the effective materials of the nodes show, with the largest coordinates that their
/// geometry has, whether or not an element uses them. O(coordinates), pixels are read once.
void collectAtlasImages(std::span<const ::osg::NodePtr> nodes, atlas_image_table& table);

}  // namespace morlu::osg
