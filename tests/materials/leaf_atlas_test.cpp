// Images that become smaller, and the atlas of a leaf.

#include "materials/leaf_atlas.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "materials/image_scaling.h"
#include "materials/noise.h"
#include "morlu/materials.h"
#include "support/failing_memory.h"
#include "support/said.h"
#include "support/scene_parts.h"

namespace morlu::tests {
namespace {

namespace gl = ::osg::gl;
using osg::atlas_image;
using ::osg::Image;
using ::osg::ImagePtr;
using osg::texture_layout;
using ::osg::UInt8;
using sizes = std::vector<std::pair<int, int>>;
constexpr double no_number = std::numeric_limits<double>::quiet_NaN();

std::vector<UInt8> bytes_of(const Image& image) {
  return {image.getData(), image.getData() + image.getSize()};
}

osg::atlas_image_table table_of(const sizes& all, float columns = 1, float rows = 1) {
  std::mt19937 random(5);
  osg::atlas_image_table table;
  for (const auto& [w, h] : all) table.add(noise(random, gl::kRGB, w, h), columns, rows);
  return table;
}

sizes sizes_of(const osg::atlas_image_table& table) {
  sizes all;
  for (const atlas_image& r : table.records()) {
    EXPECT_EQ(static_cast<int>(r.width), r.pixels->getWidth());
    EXPECT_EQ(static_cast<int>(r.height), r.pixels->getHeight());
    all.emplace_back(r.width, r.height);
  }
  return all;
}

// --- Scaling -------------------------------------------------------------------------------------

TEST(ImageScaling, TakesTurns) {
  const std::pair<int, int> old{64, 80}, half{32, 40}, small{32, 200};
  const struct {
    sizes before;
    double percent;
    unsigned min_side;
    std::vector<std::pair<sizes, bool>> calls;  // what each leaves
    const char* reset_from = nullptr;
  } cases[] = {
      {{old, old, old, old},
       0.25,
       32,
       {{{old, old, old, half}, true}, {{old, old, half, half}, true}}},
      {{old, old, old}, 0.1, 32, {{{old, old, half}, true}}},
      // a quarter of those that there are, as far as those that can be halved go
      {{old, old, old, small, old, small, old, small},
       no_number,
       32,
       {{{old, old, old, small, half, small, half, small}, true},
        {{old, half, half, small, half, small, half, small}, true},
        {{half, half, half, small, half, small, half, small}, true},
        {{half, half, half, small, half, small, half, small}, false}},
       "nan"},
      {{old, old}, 1, 32, {{{half, half}, true}, {{half, half}, false}}},
      {{old, old}, 1.5, 32, {{{old, half}, true}}, "1.5"},
      {{old, old}, 0, 32, {{{old, half}, true}}, "0"},
      {{old, old}, -0.25, 32, {{{old, half}, true}}, "-0.25"},
      {{{33, 100}}, 1, 32, {{{{16, 50}}, true}, {{{16, 50}}, false}}},
      {{{1, 9}, {2, 9}}, 1, 0, {{{{1, 9}, {1, 4}}, true}, {{{1, 9}, {1, 4}}, false}}},
      {{}, 1, 0, {{{}, false}}},
  };
  for (const auto& [before, percent, min_side, calls, reset_from] : cases) {
    SCOPED_TRACE(testing::Message() << before.size() << " images, " << percent);
    osg::atlas_image_table table = table_of(before);
    for (const auto& [after, result] : calls) {
      test::said text;
      EXPECT_EQ(osg::scaleImages(table.records(), percent, min_side), result);
      text.end();
      EXPECT_EQ(sizes_of(table), after);
      EXPECT_EQ(text.out, reset_from
                              ? "Morlu::osg::scaleImages() scalepercentvalue has to be in (0,1].\n"
                                "Reset from " +
                                    std::string(reset_from) + " to 0.25\n"
                              : "");
    }
    for (std::size_t i = 0; i < before.size(); ++i) {  // the scene's images are as they were
      const auto& [source, pixels] =
          std::pair(table.records()[i].source, table.records()[i].pixels);
      EXPECT_EQ(std::pair(source->getWidth(), source->getHeight()), before[i]);
      const auto expected = Image::dcast(source->shallowCopy());
      expected->scale(pixels->getWidth(), pixels->getHeight());
      EXPECT_EQ(bytes_of(*pixels), bytes_of(*expected));
    }
  }
}

TEST(ImageScaling, DividesTheImagesOfATree) {
  const struct {
    std::pair<int, int> before;
    unsigned factor, min_side;
    std::pair<int, int> after;
  } cases[] = {
      {{64, 512}, 2, 64, {64, 512}}, {{65, 512}, 2, 64, {32, 256}}, {{50, 512}, 100, 10, {1, 1}},
      {{7, 9}, 3, 0, {2, 3}},        {{100, 512}, 100, 10, {1, 1}}, {{9, 7}, 2, 7, {9, 7}},
      {{1, 9}, 2, 0, {1, 1}},        {{64, 65}, 1, 10, {64, 65}},   {{64, 65}, 0, 10, {64, 65}},
      {{8, 9}, 2, 1u << 31, {4, 4}}, {{8, 9}, 1u << 31, 2, {8, 9}}, {{8, 9}, ~0u, 2, {8, 9}},
  };
  for (const auto& [before, factor, min_side, after] : cases) {
    std::mt19937 random(7);
    const ImagePtr image = noise(random, gl::kRGBA, before.first, before.second);
    const auto shown = [&](const ImagePtr& of) {
      const auto material = ::osg::SimpleTexturedMaterial::create();
      material->setImage(of);
      const auto geometry = triangles(box_corners());
      geometry->setMaterial(material);
      return node_with(geometry);
    };
    const auto root =
        node_with(::osg::Group::create(), {shown(image), shown(::osg::NullFC), shown(image)});
    test::said text;
    osg::ScaleImagesInTree(root, factor, min_side);
    osg::ScaleImagesInTree(::osg::NullFC, factor, min_side);
    text.end();
    EXPECT_EQ(std::pair(image->getWidth(), image->getHeight()), after) << factor;
    const std::string line = "Scaling Images by factor of " + std::to_string(factor) +
                             ". Ignored if an Image has a smaller side than " +
                             std::to_string(min_side) + "\n";
    EXPECT_EQ(text.out, factor < 2 ? "" : line + line);
  }
}

// --- Atlas ---------------------------------------------------------------------------------------

TEST(LeafAtlas, ShrinksImagesUntilItFits) {
  const std::string failed = "Morlu::osg::createAtlas failed! Vec: ";
  const struct {
    sizes images;
    float repeats;
    bool keep_size;
    unsigned max_size;
    bool result;
    std::int64_t width, height;
    sizes after;
    std::string said;
  } cases[] = {
      {{}, 1, false, 10000, true, 1, 1, {}, ""},
      {{{40, 30}}, 1, false, 10000, true, 40, 30, {{40, 30}}, ""},
      {{{40, 30}}, 0, false, 10000, true, 1, 1, {{40, 30}}, ""},
      {{{4096, 4}, {4096, 4}}, 1, false, 10000, true, 8192, 4, {{4096, 4}, {4096, 4}}, ""},
      {{{100, 90}}, 150, false, 10000, true, 7500, 6750, {{50, 45}}, ""},  // by a third
      {{{100, 90}},
       90,
       false,
       10000,
       true,
       4500,
       4050,
       {{50, 45}},  // none, by its figures
       "Morlu::osg::scaleImages() scalepercentvalue has to be in (0,1].\nReset from -0.111111 to "
       "0.25\n"},
      {{{32, 999}},
       300,
       false,
       10000,
       false,
       1,
       1,
       {{32, 999}},
       failed + "1 maxSize: 10000 percent: 0.966633\n"},
      {{{128, 130}, {8, 8}},
       std::numeric_limits<float>::infinity(),
       false,
       10000,
       false,
       1,
       1,
       {{32, 32}, {8, 8}},
       failed + "2 maxSize: 10000 percent: 0.999998\n"},
      {{{100, 90}}, 9, true, 900, true, 900, 810, {{100, 90}}, ""},
      {{{100, 90}}, 9, true, 899, false, 900, 810, {{100, 90}}, ""},
      {{{100, 90}}, 90, true, 10000, false, 1, 1, {{100, 90}}, ""},
      {{{100, 90}}, 90, false, 0, true, 4500, 4050, {{50, 45}}, ""},
  };
  for (const auto& [images, repeats, keep_size, max_size, result, width, height, after, line] :
       cases) {
    SCOPED_TRACE(testing::Message() << images.size() << " images, " << repeats << ' ' << max_size);
    osg::atlas_image_table table = table_of(images, repeats, repeats);
    texture_layout layout{77, 77, {}};
    test::said text;
    EXPECT_EQ(osg::createAtlas(table.records(), keep_size, max_size, layout), result);
    text.end();
    EXPECT_EQ(text.out, line);
    EXPECT_EQ(layout.width, width);
    EXPECT_EQ(layout.height, height);
    EXPECT_EQ(sizes_of(table), after);
  }
}

/// Corners in the middles of texels, none at an edge of the image, which `shown` lists.
::osg::GeometryPtr with_coords(std::mt19937& random, const Image& image, float most,
                               std::vector<const UInt8*>& shown) {
  const auto coords = ::osg::GeoTexCoords2f::create();
  for (int i = 0; i < 20; ++i) {
    ::osg::Vec2f t;
    unsigned at[2];
    for (const unsigned axis : {0u, 1u}) {
      const auto side = static_cast<unsigned>(axis == 0 ? image.getWidth() : image.getHeight());
      at[axis] = 1 + random() % (side - 2);
      t[axis] = (static_cast<float>(at[axis]) + 0.5f) / static_cast<float>(side) +
                static_cast<float>(random() % static_cast<unsigned>(most));
    }
    coords->push_back(t);
    shown.push_back(image.getData() +
                    (at[1] * static_cast<unsigned>(image.getWidth()) + at[0]) * image.getBpp());
  }
  const auto geometry = ::osg::Geometry::create();
  geometry->setTexCoords(coords);
  return geometry;
}

TEST(LeafAtlas, ShowsWhatImagesShowed) {
  std::mt19937 random(29);
  for (const bool alpha : {false, true}) {
    osg::atlas_image_table table;
    std::vector<osg::leaf_object> objects;
    std::vector<std::vector<const UInt8*>> shown;
    for (int i = 0; i < 60; ++i) {
      const auto format = alpha && random() % 2 ? gl::kRGBA : gl::kRGB;
      const auto image = noise(random, format, 3 + static_cast<int>(random() % 40),
                               3 + static_cast<int>(random() % 4) * 10);
      const auto most = static_cast<float>(1 + random() % 3);
      table.add(image, most, most);
      objects.push_back({with_coords(random, *image, most, shown.emplace_back()), i});
    }
    std::mt19937 other(31);
    table.add(noise(other, gl::kRGB, 5, 5), 0, 1);  // no pixel of it is needed
    std::vector<const UInt8*> not_seen;
    for (const std::int64_t record : {-1, 60, 61})
      objects.push_back({with_coords(other, *table.records()[0].pixels, 1, not_seen), record});
    const auto before = bytes_of(*table.records()[0].source);

    texture_layout layout;
    ASSERT_TRUE(osg::createAtlas(table.records(), false, 10000, layout));
    const ImagePtr atlas = Image::create();
    atlas->set(alpha ? gl::kRGBA : gl::kRGB, 2, 2);
    osg::fillAtlasImage(layout, table.records(), atlas);
    EXPECT_EQ(atlas->getWidth(), layout.width);
    EXPECT_EQ(atlas->getHeight(), layout.height);
    EXPECT_TRUE(layout.placements.empty());
    EXPECT_FALSE(table.records().back().placed);
    const auto kept = objects.back().geometry->getTexCoords()->getValue(0);
    osg::remapLeafTexCoords(objects, table.records(), *atlas);
    EXPECT_EQ(objects.back().geometry->getTexCoords()->getValue(0), kept);
    for (std::size_t i = 0; i < shown.size(); ++i)
      for (std::size_t k = 0; k < shown[i].size(); ++k) {
        const auto t = objects[i].geometry->getTexCoords()->getValue(static_cast<unsigned>(k));
        const auto x = static_cast<int>(t[0] * static_cast<float>(atlas->getWidth()));
        const auto y = static_cast<int>(t[1] * static_cast<float>(atlas->getHeight()));
        const UInt8* pixel =
            atlas->getData() + (y * atlas->getWidth() + x) * static_cast<int>(atlas->getBpp());
        ASSERT_TRUE(std::equal(pixel, pixel + 3, shown[i][k])) << i << ' ' << k;
        const int expected = table.records()[i].has_alpha ? shown[i][k][3] : 255;
        ASSERT_TRUE(!alpha || pixel[3] == expected) << i << ' ' << k;
      }
    EXPECT_EQ(bytes_of(*table.records()[0].source), before);
  }
}

TEST(LeafAtlas, TellsOfWhatItCanNotDraw) {
  auto table = table_of({{20, 10}, {30, 10}});
  texture_layout layout;
  ASSERT_TRUE(osg::createAtlas(std::span(table.records()).first(1), true, 100, layout));
  const ImagePtr atlas = Image::create();
  for (int round = 0; round < 2; ++round) {  // an image without pixels can't be given a size
    test::said text;
    osg::fillAtlasImage(layout, table.records(), atlas);
    text.end();
    EXPECT_EQ(table.records()[0].placed, round == 1);
    EXPECT_FALSE(table.records()[1].placed);
    EXPECT_EQ(text.err, round == 0 ? "Scale Texture Image failed.\n" : "");
    EXPECT_EQ(text.out, round == 0 ? ""
                                   : "Textureatlas unable to find this Texture!\nParameter: \n"
                                     "Width: 30\nHeigth: 10\n");
    atlas->set(gl::kRGB, 2, 2);
  }
}

TEST(LeafAtlas, SurvivesWithoutMemory) {
  bool met = true;
  for (int nth = 0; met; ++nth) {
    SCOPED_TRACE(nth);
    auto table = table_of({{100, 40}, {60, 50}, {90, 34}}, 90);
    const ImagePtr atlas = Image::create();
    atlas->set(gl::kRGBA, 2, 2);
    texture_layout layout;
    bool created = false;
    test::said text;
    {
      const test::failing_memory failing(nth);
      try {
        created = osg::createAtlas(table.records(), false, 8192, layout);
        if (created) osg::fillAtlasImage(layout, table.records(), atlas);
      } catch (const std::bad_alloc&) {
      }
      met = failing.met();
    }
    text.end();
    sizes_of(table);  // are those of the pixels
    const bool drawn = std::ranges::all_of(table.records(), &atlas_image::placed);
    EXPECT_EQ(drawn, created && text.err.empty());
    EXPECT_TRUE(drawn || met);
  }
}

}  // namespace
}  // namespace morlu::tests
