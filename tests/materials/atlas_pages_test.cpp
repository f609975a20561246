// Atlases without a scene: packing, drawing, finishing, coordinates.

#include "materials/atlas_page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "materials/atlas_coords.h"
#include "support/plain_packer.h"
#include "support/scene_parts.h"

namespace morlu::tests {
namespace {

namespace gl = ::osg::gl;
using osg::atlas_image;
using osg::free_rect;
using ::osg::Image;
using ::osg::UInt32;
using ::osg::UInt8;

/// Tiles and free rectangles cover the page, each place once.
void expect_cover(UInt32 side, const std::vector<free_rect>& rects) {
  std::vector<int> covered(std::size_t{side} * side);
  for (const free_rect& r : rects) {
    ASSERT_TRUE(r.width > 0 && r.height > 0 && r.x + r.width <= side && r.y + r.height <= side);
    for (UInt32 y = r.y; y < r.y + r.height; ++y)
      for (UInt32 x = r.x; x < r.x + r.width; ++x) ++covered[y * side + x];
  }
  EXPECT_EQ(static_cast<UInt32>(std::ranges::count(covered, 1)), side * side);
}

TEST(AtlasPacker, PlacesAsTheListThatItStandsFor) {
  std::mt19937 random(7);
  for (int round = 0; round < 120; ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    const UInt32 side = 32u << random() % 4;
    // sizes of few multiples hit rectangles exactly and leave strips that join again
    const UInt32 step = round % 3 == 0 ? 1 : side / 16, most = side / step / 2;
    osg::free_rects rects(side, side);
    test::plain_packer plain{{{0, 0, side, side}}};
    std::vector<free_rect> all;
    for (int i = 0; i < 150; ++i) {
      const UInt32 w = step * (random() % most), h = step * (random() % most);
      const auto place = rects.take(w, h);
      const auto expected = plain.take(w, h);
      ASSERT_EQ(place.has_value(), expected.has_value());
      if (place) {
        ASSERT_EQ(std::pair(place->x, place->y), *expected);
        all.push_back({place->x, place->y, w, h});
      }
      std::vector<free_rect> listed;
      for (const auto& r : plain.free) listed.push_back({r.x, r.y, r.width, r.height});
      ASSERT_EQ(rects.in_order(), listed);
    }
    const auto left = rects.in_order();
    all.insert(all.end(), left.begin(), left.end());
    expect_cover(side, all);
  }
}

TEST(AtlasPacker, RefusesWhatDoesNotFit) {
  constexpr std::uint64_t wide = std::uint64_t{1} << 32;
  using sides = std::pair<std::uint64_t, std::uint64_t>;
  osg::free_rects rects(64, 64);
  for (const auto& [w, h] : {sides{wide + 8, 8}, {8, wide}, {65, 1}, {1, 65}, {0, 8}, {8, 0}})
    EXPECT_FALSE(rects.take(w, h)) << w << " x " << h;
  EXPECT_EQ(rects.take(64, 64), (osg::page_place{0, 0}));
  EXPECT_TRUE(rects.empty());
  EXPECT_FALSE(rects.take(1, 1));
}

// --- Pages ---------------------------------------------------------------------------------------

/// The page drawn pixel by pixel, from tiles that it lists.
std::vector<UInt8> plain_page(const osg::texture_atlas& atlas,
                              const std::vector<atlas_image>& images,
                              std::vector<free_rect>& tiles) {
  const std::size_t bytes = atlas.has_alpha ? 4 : 3;
  std::vector<UInt8> page(std::size_t{atlas.used_width} * atlas.used_height * bytes);
  for (std::size_t i = 3; atlas.has_alpha && i < page.size(); i += 4) page[i] = 255;
  for (const atlas_image& image : images) {
    if (image.atlas_index != static_cast<int>(atlas.index)) continue;
    const auto left = static_cast<UInt32>(image.x), top = static_cast<UInt32>(image.y);
    const auto w = image.width * static_cast<UInt32>(std::ceil(image.max_u));
    const auto h = image.height * static_cast<UInt32>(std::ceil(image.max_v));
    tiles.push_back({left, top, w, h});
    EXPECT_TRUE(left + w <= atlas.used_width && top + h <= atlas.used_height);
    const std::size_t source_bytes = image.source->getBpp();
    for (UInt32 y = 0; y < h; ++y)
      for (UInt32 x = 0; x < w; ++x)
        for (std::size_t c = 0; c < std::min(bytes, source_bytes); ++c)
          page[(std::size_t{top + y} * atlas.used_width + left + x) * bytes + c] =
              image.source
                  ->getData()[(y % image.height * image.width + x % image.width) * source_bytes +
                              c];
  }
  return page;
}

TEST(AtlasPages, HoldEachImageInEveryRepetition) {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> reach(-0.2f, 3.2f);
  for (const bool alpha : {false, true})
    for (const UInt32 size : {33u, 100u, 256u}) {
      SCOPED_TRACE(testing::Message() << alpha << ' ' << size);
      const UInt32 side = std::bit_ceil(size), half = std::max(size / 2, 1u);
      osg::atlas_image_table table;
      for (int i = 0; i < 60; ++i)
        table.add(noise(random, random() % 2 ? gl::kRGB : gl::kRGBA,
                        1 + static_cast<int>(random() % half), 1 + static_cast<int>(random() % 16)),
                  i == 0 ? std::numeric_limits<float>::infinity() : reach(random), reach(random));
      auto& images = table.records();
      std::size_t placed = 0;
      for (auto& atlas : osg::packAtlases(images, size, alpha, false)) {
        ASSERT_EQ(atlas.width, side);
        if (atlas.placed_count == 0) continue;
        osg::drawAtlas(atlas, images);
        std::vector<free_rect> rects = atlas.free.in_order();
        const std::size_t free = rects.size();
        const auto expected = plain_page(atlas, images, rects);
        const Image& page = *atlas.final_image;
        EXPECT_EQ(page.getPixelFormat(), alpha ? gl::kRGBA : gl::kRGB);
        EXPECT_EQ(static_cast<UInt32>(page.getWidth()), atlas.used_width);
        EXPECT_EQ(std::vector(page.getData(), page.getData() + page.getSize()), expected);
        expect_cover(side, rects);
        EXPECT_EQ(atlas.placed_count, rects.size() - free);
        placed += atlas.placed_count;
      }
      EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(images, true, &atlas_image::placed)),
                placed);
      for (const atlas_image& image : images)
        EXPECT_EQ(image.placed, std::min(image.max_u, image.max_v) > 0 &&
                                    std::ceil(image.max_u) * float(image.width) <= float(side) &&
                                    std::ceil(image.max_v) * float(image.height) <= float(side));
    }
}

// Sizes of tiles in the order of the list, and what must come of them on a page of 64 x 64.
TEST(AtlasPages, AreCutToWhatIsUsed) {
  const struct {
    std::vector<std::pair<int, int>> tiles;
    UInt32 width, height, pages;
  } cases[] = {
      {{{16, 16}, {16, 16}}, 32, 16, 1},  // the strip below goes, then that to the right
      {{{32, 20}, {32, 10}}, 64, 32, 1},  // up to the next power of two
      {{{64, 32}, {64, 16}}, 64, 64, 1},  // 48 rows
      {{{64, 64}, {8, 8}}, 64, 64, 2},    // filled to the brim; the second page is its own
      {{{20, 64}, {10, 64}}, 32, 64, 1},  // no strip below: columns of the full height
      {{{8, 33}, {8, 3}}, 64, 64, 1},     // beside 33 rows nothing free is 33 high
      {{{40, 32}, {24, 16}}, 64, 32, 1},  // the strip below is as high as what is used
  };
  for (const auto& [tiles, width, height, pages] : cases) {
    std::mt19937 random(3);
    osg::atlas_image_table table;
    for (const auto& [w, h] : tiles) table.add(noise(random, gl::kRGB, w, h), 1, 1);
    const auto atlases = osg::packAtlases(table.records(), 64, false, false);
    SCOPED_TRACE(testing::Message() << tiles[0].first << ' ' << tiles[0].second);
    ASSERT_EQ(atlases.size(), pages);
    EXPECT_EQ(atlases[0].used_width, width);
    EXPECT_EQ(atlases[0].used_height, height);
  }
}

// Tallest first, of equal ones the widest, of those the first; the last page may stay empty.
TEST(AtlasPages, AreFilledInOrderOfSize) {
  std::mt19937 random(5);
  osg::atlas_image_table table;
  const auto add = [&](int w, int h, float u, float v) {
    table.add(noise(random, gl::kRGB, w, h), u, v);
  };
  add(32, 16, 1, 1), add(32, 16, 1, 1), add(8, 8, 0.5f, 3), add(64, 8, 1, 1.5f), add(65, 1, 1, 1);
  const auto atlases = osg::packAtlases(table.records(), 64, false, false);
  ASSERT_EQ(atlases.size(), 2u);
  EXPECT_EQ(atlases[1].placed_count, 0u);
  const std::pair<int, int> places[] = {{8, 0}, {0, 40}, {0, 0}, {0, 24}, {-1, -1}};
  for (std::size_t i = 0; i < 5; ++i)
    EXPECT_EQ(std::pair(table.records()[i].x, table.records()[i].y), places[i]) << i;
  table.records().resize(1);
  EXPECT_TRUE(osg::packAtlases(table.records(), 64, false, false).empty());
}

TEST(AtlasImages, AreOneWhereTheirFirstBytesAgree) {
  std::mt19937 random(9);
  const auto image = noise(random, gl::kRGB, 6, 4);
  const auto changed = [&](std::size_t byte) {
    const auto copy = Image::dcast(image->shallowCopy());
    copy->getData()[byte] ^= 1;
    return copy;
  };
  const auto late = changed(24), early = changed(23), turned = noise(random, gl::kRGB, 4, 6);
  turned->setData(image->getData());
  osg::atlas_image_table table;
  table.add(image, 0.9f, 2);
  table.add(late, 2.3f, 1);
  table.add(early, -1, std::numeric_limits<float>::quiet_NaN());
  table.add(turned, 1, 1);
  table.add(Image::create(), 1, 1);
  table.add(::osg::NullFC, 1, 1);
  ASSERT_EQ(table.records().size(), 3u);
  for (const auto& [each, at] :
       {std::pair{image, 0}, {late, 0}, {early, 1}, {turned, 2}, {changed(0), -1}}) {
    EXPECT_EQ(table.find(each), at);
    EXPECT_EQ(table.findAtlasImage(each->getData(), static_cast<UInt32>(each->getWidth()),
                                   static_cast<UInt32>(each->getHeight())),
              at);
  }
  EXPECT_EQ(osg::tile_size(table.records()[0]).width, 18u);
  EXPECT_EQ(osg::tile_size(table.records()[0]).height, 8u);
  EXPECT_EQ(osg::tile_size(table.records()[1]).width, 0u);
}

TEST(AtlasImages, AreConvertedOnCopies) {
  const struct {
    UInt32 format;
    std::vector<UInt8> pixel, expected;
  } cases[] = {
      {gl::kRGB, {11, 2, 3}, {11, 2, 3}},   {gl::kRGBA, {12, 2, 3, 4}, {12, 2, 3, 4}},
      {gl::kBGR, {1, 2, 13}, {13, 2, 1}},   {gl::kBGRA, {1, 2, 14, 4}, {14, 2, 1, 4}},
      {gl::kLuminance, {15}, {15, 15, 15}}, {gl::kLuminanceAlpha, {16, 4}, {16, 16, 16, 4}},
  };
  osg::atlas_image_table table;
  for (const auto& [format, pixel, expected] : cases) {
    const auto image = Image::create();
    image->set(format, 1, 1, 1, 1, 1, 0, pixel.data());
    table.add(image, 1, 1);
    const atlas_image& record = table.records().back();
    ASSERT_EQ(record.source, image);
    EXPECT_EQ(std::vector(record.pixels->getData(), record.pixels->getData() + expected.size()),
              expected);
    EXPECT_EQ(record.has_alpha, expected.size() == 4);
    EXPECT_EQ(image->getPixelFormat(), format);
  }
}

::osg::GeometryPtr with_coords(float u, float v) {
  const auto geometry = ::osg::Geometry::create();
  geometry->setTexCoords(property_of<::osg::GeoTexCoords2f>({{u, v}}));
  return geometry;
}

TEST(AtlasCoords, LandOneTexelInside) {
  // 8 x 4 pixels at (16, 32) of 64 x 128: a texel is 1/8 and 1/4 of the image
  const struct {
    float value, u, v;  // in texels of the image
  } cases[] = {{0, 1, 1},     {1, 7, 3},         {0.05f, 1, 1},
               {0.5f, 4, 2},  {0.875f, 7, 2.5f}, {0.97f, 6.76f, 2.88f},
               {1.5f, 12, 6}, {2, 15, 7},        {-3, 1, 1}};
  for (const auto& [value, u, v] : cases) {
    const auto geometry = with_coords(value, value);
    osg::remapTexCoord(geometry, 64, 128, 8, 4, 16, 32);
    const auto t = geometry->getTexCoords()->getValue(0);
    EXPECT_NEAR(t[0] * 64 - 16, u, 1e-4) << value;
    EXPECT_NEAR(t[1] * 128 - 32, v, 1e-4) << value;
  }
  osg::remapTexCoord(::osg::NullFC, 64, 64, 8, 8, 0, 0);
  osg::remapTexCoord(::osg::Geometry::create(), 64, 64, 8, 8, 0, 0);

  std::mt19937 random(13);
  std::uniform_real_distribution<float> any(0, 5);
  for (int i = 0; i < 20000; ++i) {
    const auto size = static_cast<UInt32>(3 + random() % 500);
    const auto at = static_cast<int>(random() % 4000);
    const float u = random() % 4 ? any(random) : std::round(any(random) * 8) / 8;
    const auto geometry = with_coords(u, u);
    osg::remapTexCoord(geometry, 8192, 8192, size, size, at, at);
    const double texel = geometry->getTexCoords()->getValue(0)[1] * 8192.0 - at;
    ASSERT_GE(texel, 1 - 1e-3) << u << ' ' << size;
    ASSERT_LE(texel, size * std::max(1.0, std::ceil(double{u})) - 1 + 1e-3) << u << ' ' << size;
  }
}

}  // namespace
}  // namespace morlu::tests
