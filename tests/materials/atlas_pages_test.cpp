// Atlases without a scene: packing, drawing, finishing, coordinates.

#include "materials/atlas_page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "materials/atlas_coords.h"
#include "support/plain_packer.h"

namespace morlu::tests {
namespace {

using osg::atlas_image;
using osg::free_rect;
using ::osg::Image;
using ::osg::ImagePtr;
using osg::texture_atlas;
using ::osg::UInt8;

ImagePtr noise(std::mt19937& random, unsigned format, int width, int height) {
  const auto image = Image::create();
  image->set(format, width, height);
  std::generate_n(image->getData(), image->getSize(), [&] { return static_cast<UInt8>(random()); });
  return image;
}

bool overlap(const free_rect& a, const free_rect& b) {
  return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
}

/// Tiles and free rectangles cover the page, each place once.
void expect_cover(std::uint32_t side, const std::vector<free_rect>& rects) {
  std::uint64_t area = 0;
  for (std::size_t i = 0; i < rects.size(); ++i) {
    const free_rect& r = rects[i];
    EXPECT_TRUE(r.width > 0 && r.height > 0 && r.x + r.width <= side && r.y + r.height <= side);
    area += std::uint64_t{r.width} * r.height;
    for (std::size_t k = 0; k < i; ++k) ASSERT_FALSE(overlap(r, rects[k]));
  }
  EXPECT_EQ(area, std::uint64_t{side} * side);
}

// --- Packing -------------------------------------------------------------------------------------

TEST(AtlasPacker, PlacesAsTheListThatItStandsFor) {
  std::mt19937 random(7);
  for (int round = 0; round < 120; ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    const std::uint32_t side = 32u << random() % 4;
    // sizes of few multiples hit rectangles exactly and leave strips that join again
    const std::uint32_t step = round % 3 == 0 ? 1 : side / 16, most = side / step / 2;
    osg::free_rects rects(side, side);
    test::plain_packer plain{{{0, 0, side, side}}};
    std::vector<free_rect> tiles;
    for (int i = 0; i < 150; ++i) {
      const std::uint32_t w = step * (random() % most), h = step * (random() % most);
      const auto place = rects.take(w, h);
      const auto expected = plain.take(w, h);
      ASSERT_EQ(place.has_value(), expected.has_value());
      if (place) {
        ASSERT_EQ(std::pair(place->x, place->y), *expected);
        tiles.push_back({place->x, place->y, w, h});
      }
      std::vector<free_rect> listed;
      for (const auto& r : plain.free) listed.push_back({r.x, r.y, r.width, r.height});
      ASSERT_EQ(rects.in_order(), listed);
      ASSERT_EQ(rects.empty(), listed.empty());
    }
    const auto left = rects.in_order();
    tiles.insert(tiles.end(), left.begin(), left.end());
    expect_cover(side, tiles);
  }
}

TEST(AtlasPacker, RefusesWhatDoesNotFit) {
  constexpr std::uint64_t wide = std::uint64_t{1} << 32;
  osg::free_rects rects(64, 64);
  for (const auto& [w, h] : {std::pair{wide, wide},
                             {wide + 8, 8},
                             {8, wide + 8},
                             {wide - 1, 1},
                             {65, 1},
                             {1, 65},
                             {0, 8},
                             {8, 0}})
    EXPECT_FALSE(rects.take(w, h)) << w << " x " << h;
  EXPECT_EQ(rects.in_order(), (std::vector<free_rect>{{0, 0, 64, 64}}));
  EXPECT_EQ(rects.take(64, 64), (osg::page_place{0, 0}));
  EXPECT_TRUE(rects.empty());
  EXPECT_FALSE(rects.take(1, 1));
}

// --- Pages ---------------------------------------------------------------------------------------

/// What a page in the format shows of a pixel.
void expect_texel(const Image& page, std::uint32_t x, std::uint32_t y, const Image& image,
                  std::uint32_t at) {
  const UInt8* shown =
      page.getData() +
      (std::size_t{y} * static_cast<unsigned>(page.getWidth()) + x) * page.getBpp();
  const UInt8* source = image.getData() + std::size_t{at} * image.getBpp();
  for (unsigned c = 0; c < page.getBpp(); ++c)
    ASSERT_EQ(shown[c], c < image.getBpp() ? source[c] : 255) << x << ' ' << y << ' ' << c;
}

TEST(AtlasPages, HoldEachImageInEveryRepetition) {
  std::mt19937 random(11);
  for (const bool alpha : {false, true})
    for (const std::uint32_t size : {33u, 100u, 256u}) {
      SCOPED_TRACE(testing::Message() << alpha << ' ' << size);
      osg::atlas_image_table table;
      std::uniform_real_distribution<float> reach(-0.2f, 3.2f);
      for (int i = 0; i < 60; ++i)
        table.add(
            noise(random, random() % 2 ? ::osg::gl::kRGB : ::osg::gl::kRGBA,
                  1 + static_cast<int>(random() % (size / 2)), 1 + static_cast<int>(random() % 16)),
            i == 0 ? std::numeric_limits<float>::infinity() : reach(random), reach(random));
      auto& images = table.records();
      auto atlases = osg::packAtlases(images, size, alpha, false);

      const std::uint32_t side = std::bit_ceil(size);
      std::size_t placed = 0;
      for (texture_atlas& atlas : atlases) {
        ASSERT_EQ(atlas.width, side);
        placed += atlas.placed_count;
        if (atlas.placed_count == 0) continue;
        osg::drawAtlas(atlas, images);
        const Image& page = *atlas.final_image;
        EXPECT_EQ(page.getPixelFormat(), alpha ? ::osg::gl::kRGBA : ::osg::gl::kRGB);
        EXPECT_TRUE(std::has_single_bit(atlas.used_width) &&
                    std::has_single_bit(atlas.used_height));
        const auto w = static_cast<std::uint32_t>(page.getWidth()),
                   h = static_cast<std::uint32_t>(page.getHeight());
        EXPECT_EQ(w, atlas.used_width);
        EXPECT_EQ(h, atlas.used_height);

        std::vector<bool> in_tile(std::size_t{w} * h);
        std::vector<free_rect> rects = atlas.free.in_order();
        for (const atlas_image& image : images) {
          if (image.atlas_index != static_cast<int>(atlas.index)) continue;
          const auto [tile_w, tile_h] = osg::tile_size(image);
          const auto left = static_cast<std::uint32_t>(image.x),
                     top = static_cast<std::uint32_t>(image.y);
          rects.push_back(
              {left, top, static_cast<std::uint32_t>(tile_w), static_cast<std::uint32_t>(tile_h)});
          ASSERT_LE(left + tile_w, w);
          ASSERT_LE(top + tile_h, h);
          for (std::uint32_t y = 0; y < tile_h; ++y)
            for (std::uint32_t x = 0; x < tile_w; ++x) {
              in_tile[std::size_t{top + y} * w + left + x] = true;
              expect_texel(page, left + x, top + y, *image.pixels,
                           y % image.height * image.width + x % image.width);
            }
        }
        expect_cover(side, rects);
        for (std::size_t i = 0; i < in_tile.size(); ++i)
          for (unsigned c = 0; !in_tile[i] && c < page.getBpp(); ++c)
            ASSERT_EQ(page.getData()[i * page.getBpp() + c], c == 3 ? 255 : 0);
      }
      EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(images, true, &atlas_image::placed)),
                placed);
      EXPECT_GT(placed, 5u);
      for (const atlas_image& image : images) {
        const auto [tile_w, tile_h] = osg::tile_size(image);
        const bool fits = std::min(tile_w, tile_h) > 0 && std::max(tile_w, tile_h) <= side;
        EXPECT_EQ(image.placed, fits);
        EXPECT_EQ(image.atlas_index >= 0 && image.x >= 0 && image.y >= 0, fits);
      }
    }
}

// Sizes of tiles in the order of the list, and what must come of them on a page of 64 x 64.
TEST(AtlasPages, AreCutToWhatIsUsed) {
  using sizes = std::vector<std::pair<int, int>>;
  const struct {
    sizes tiles;
    std::uint32_t width, height, pages;
  } cases[] = {
      {{{16, 16}, {16, 16}}, 32, 16, 1},  // the strip below goes, then that to the right
      {{{32, 20}, {32, 10}}, 64, 32, 1},  // up to the next power of two
      {{{64, 32}, {64, 16}}, 64, 64, 1},  // 48 rows
      {{{64, 64}, {8, 8}}, 64, 64, 2},    // filled to the brim; the second page is its own
      {{{20, 64}, {10, 64}}, 32, 64, 1},  // no strip below: columns of the full height
      {{{8, 33}, {8, 3}}, 64, 64, 1},     // beside 33 rows nothing free is 33 high
      // the strip below is as high as what is used, but not beside it
      {{{40, 32}, {24, 16}}, 64, 32, 1},
  };
  for (const auto& [tiles, width, height, pages] : cases) {
    std::mt19937 random(3);
    osg::atlas_image_table table;
    for (const auto& [w, h] : tiles) table.add(noise(random, ::osg::gl::kRGB, w, h), 1, 1);
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
    table.add(noise(random, ::osg::gl::kRGB, w, h), u, v);
  };
  add(32, 16, 1, 1), add(32, 16, 1, 1), add(8, 8, 0.5f, 3), add(64, 8, 1, 1.5f), add(65, 1, 1, 1);
  const auto& images = table.records();
  const auto atlases = osg::packAtlases(table.records(), 64, false, false);
  ASSERT_EQ(atlases.size(), 2u);
  EXPECT_EQ(atlases[0].placed_count, 4u);
  EXPECT_EQ(atlases[1].placed_count, 0u);
  const std::pair<int, int> places[] = {{8, 0}, {0, 40}, {0, 0}, {0, 24}, {-1, -1}};
  for (std::size_t i = 0; i < 5; ++i)
    EXPECT_EQ(std::pair(images[i].x, images[i].y), places[i]) << i;

  table.records().resize(1);
  EXPECT_TRUE(osg::packAtlases(table.records(), 64, false, false).empty());
}

// --- Images --------------------------------------------------------------------------------------

TEST(AtlasImages, AreOneWhereTheirFirstBytesAgree) {
  std::mt19937 random(9);
  const auto image = noise(random, ::osg::gl::kRGB, 6, 4);
  const auto changed = [&](std::size_t byte) {
    const auto copy = noise(random, ::osg::gl::kRGB, 6, 4);
    copy->setData(image->getData());
    copy->getData()[byte] ^= 1;
    return copy;
  };
  const auto turned = noise(random, ::osg::gl::kRGB, 4, 6);
  turned->setData(image->getData());
  const auto late = changed(24), early = changed(23);
  osg::atlas_image_table table;
  table.add(image, 0.9f, 2);
  table.add(late, 2.3f, 1);
  table.add(early, -1, std::numeric_limits<float>::quiet_NaN());
  table.add(turned, 1, 1);
  table.add(Image::create(), 1, 1);
  table.add(::osg::NullFC, 1, 1);
  ASSERT_EQ(table.records().size(), 3u);
  for (const auto& [each, at] :
       {std::pair{image, 0}, {late, 0}, {early, 1}, {turned, 2}, {changed(0), -1}})
    EXPECT_EQ(table.find(each), at);
  EXPECT_EQ(table.findAtlasImage(late->getData(), 6, 4), 0);
  EXPECT_EQ(table.findAtlasImage(turned->getData(), 4, 6), 2);
  EXPECT_EQ(table.findAtlasImage(changed(0)->getData(), 6, 4), -1);
  EXPECT_EQ(osg::tile_size(table.records()[0]).width, 18u);
  EXPECT_EQ(osg::tile_size(table.records()[0]).height, 8u);
  EXPECT_EQ(osg::tile_size(table.records()[1]).width, 0u);
}

TEST(AtlasImages, AreConvertedOnCopies) {
  const struct {
    unsigned format;
    std::vector<UInt8> pixel, expected;
  } cases[] = {
      {::osg::gl::kRGB, {11, 2, 3}, {11, 2, 3}},
      {::osg::gl::kRGBA, {12, 2, 3, 4}, {12, 2, 3, 4}},
      {::osg::gl::kBGR, {1, 2, 13}, {13, 2, 1}},
      {::osg::gl::kBGRA, {1, 2, 14, 4}, {14, 2, 1, 4}},
      {::osg::gl::kLuminance, {15}, {15, 15, 15}},
      {::osg::gl::kLuminanceAlpha, {16, 4}, {16, 16, 16, 4}},
  };
  osg::atlas_image_table table;
  for (const auto& [format, pixel, expected] : cases) {
    const auto image = Image::create();
    image->set(format, 1, 1, 1, 1, 1, 0, pixel.data());
    table.add(image, 1, 1);
    const auto at = table.find(image);
    ASSERT_GE(at, 0);
    const atlas_image& record = table.records()[static_cast<std::size_t>(at)];
    EXPECT_EQ(record.source, image);
    EXPECT_EQ(std::vector(record.pixels->getData(), record.pixels->getData() + expected.size()),
              expected);
    EXPECT_EQ(record.has_alpha, expected.size() == 4);
    EXPECT_EQ(image->getPixelFormat(), format);
  }
}

// --- Coordinates ---------------------------------------------------------------------------------

::osg::GeometryPtr with_coords(const std::vector<::osg::Vec2f>& values) {
  const auto coords = ::osg::GeoTexCoords2f::create();
  for (const auto& t : values) coords->push_back(t);
  const auto geometry = ::osg::Geometry::create();
  geometry->setTexCoords(coords);
  return geometry;
}

TEST(AtlasCoords, LandOneTexelInside) {
  // 8 x 4 pixels at (16, 32) of 64 x 128: a texel is 1/8 and 1/4 of the image
  const struct {
    float value, u, v;  // in texels of the image
  } cases[] = {{0, 1, 1},     {1, 7, 3},  {0.05f, 1, 1}, {0.5f, 4, 2},      {0.97f, 6.76f, 2.88f},
               {1.5f, 12, 6}, {2, 15, 7}, {-3, 1, 1},    {0.875f, 7, 2.5f}, {3, 23, 11}};
  for (const auto& [value, u, v] : cases) {
    const auto geometry = with_coords({{value, value}});
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
    const auto size = static_cast<std::uint32_t>(3 + random() % 500);
    const auto at = static_cast<std::uint32_t>(random() % 4000);
    const float u = random() % 4 ? any(random) : std::round(any(random) * 8) / 8;
    const auto geometry = with_coords({{u, u}});
    osg::remapTexCoord(geometry, 8192, 4096, static_cast<std::uint32_t>(size),
                       static_cast<std::uint32_t>(size), static_cast<int>(at),
                       static_cast<int>(at));
    const auto t = geometry->getTexCoords()->getValue(0);
    const double repeats = std::max(1.0, std::ceil(double{u}));
    for (const double texel : {t[0] * 8192.0 - at, t[1] * 4096.0 - at}) {
      ASSERT_GE(texel, 1 - 1e-3) << u << ' ' << size;
      ASSERT_LE(texel, static_cast<double>(size) * repeats - 1 + 1e-3) << u << ' ' << size;
    }
  }
}

TEST(AtlasCoords, AreCopiedWhereOthersUseThem) {
  const auto one = with_coords({{0.5f, 0.5f}}), other = ::osg::Geometry::create();
  other->setTexCoords(one->getTexCoords());
  other->setTexCoords1(one->getTexCoords());
  osg::remapTexCoord(other, 64, 64, 8, 8, 0, 0);
  EXPECT_EQ(one->getTexCoords()->getValue(0), ::osg::Vec2f(0.5f, 0.5f));
  EXPECT_EQ(other->getTexCoords1()->getValue(0), ::osg::Vec2f(0.5f, 0.5f));
  EXPECT_EQ(other->getTexCoords()->getValue(0), ::osg::Vec2f(4 / 64.0f, 4 / 64.0f));
}

}  // namespace
}  // namespace morlu::tests
