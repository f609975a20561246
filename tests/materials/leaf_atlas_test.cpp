// Images that become smaller, and the atlas of a leaf.

#include "materials/leaf_atlas.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "geoset/guard.h"
#include "materials/image_scaling.h"
#include "morlu/materials.h"
#include "support/failing_memory.h"
#include "support/said.h"
#include "support/scene_parts.h"

namespace morlu::tests {
namespace {

namespace gl = ::osg::gl;
using osg::atlas_image;
using osg::atlas_image_table;
using ::osg::Image;
using ::osg::ImagePtr;
using sides = std::pair<int, int>;

void add(atlas_image_table& table, std::mt19937& random, const sides& size, float columns = 1) {
  table.add(noise(random, gl::kRGB, size.first, size.second), columns, 1);
}

/// Of a record, whose pixels are the scene's, scaled.
sides sides_of(const atlas_image& record) {
  const sides size(record.width, record.height);
  const auto scaled = Image::dcast(record.source->shallowCopy());
  scaled->scale(size.first, size.second);
  EXPECT_EQ(scaled->getContentHash(), record.pixels->getContentHash());
  return size;
}

std::string reset_from(const std::string& percent) {
  return "Morlu::osg::scaleImages() scalepercentvalue has to be in (0,1].\nReset from " + percent +
         " to 0.25\n";
}

TEST(ImageScaling, TakesTurns) {
  const std::map<char, sides> sizes{{'o', {64, 80}},  {'h', {32, 40}}, {'-', {32, 9}},
                                    {'O', {33, 100}}, {'H', {16, 50}}, {'1', {1, 9}},
                                    {'2', {3, 2}},    {'.', {1, 1}}};
  const struct {
    double percent;
    unsigned min_side;
    std::vector<std::string> steps;  // before, and after each call; the last call halves none
    std::string said;
  } cases[] = {
      {0.5, 32, {"ooo", "ooh", "ohh", "hhh"}, ""},
      {0.1, 32, {"oO", "oH", "hH"}, ""},
      {1, 32, {"oo", "hh"}, ""},
      {1, 0, {"12", "1."}, ""},
      {1, 32, {""}, ""},
      {1.5, 32, {"oo", "oh", "hh"}, reset_from("1.5")},
      {0, 32, {"oo", "oh", "hh"}, reset_from("0")},
      // who was passed over has had a turn
      {std::nan(""), 32, {"ooo-o-", "ooo-h-", "ooh-h-", "ohh-h-", "hhh-h-"}, reset_from("nan")},
  };
  for (const auto& [percent, min_side, steps, line] : cases) {
    std::mt19937 random(5);
    atlas_image_table table;
    for (const char each : steps[0]) add(table, random, sizes.at(each));
    for (std::size_t i = 1; i <= steps.size(); ++i) {
      test::said text;
      EXPECT_EQ(osg::scaleImages(table.records(), percent, min_side), i < steps.size());
      text.end();
      EXPECT_EQ(text.out, line);
      const std::string& after = steps[std::min(i, steps.size() - 1)];
      for (std::size_t k = 0; k < after.size(); ++k)
        EXPECT_EQ(sides_of(table.records()[k]), sizes.at(after[k])) << after << ' ' << k;
    }
  }
}

TEST(ImageScaling, DividesTheImagesOfATree) {
  const struct {
    sides before;
    unsigned factor, min_side;
    sides after;
  } cases[] = {
      {{64, 512}, 2, 64, {64, 512}}, {{65, 512}, 2, 64, {32, 256}}, {{9, 7}, 2, 7, {9, 7}},
      {{50, 512}, 100, 10, {1, 1}},  {{7, 9}, 3, 0, {2, 3}},        {{1, 9}, 2, 0, {1, 1}},
      {{100, 512}, 100, 10, {1, 1}}, {{64, 65}, 1, 10, {64, 65}},   {{9, 9}, ~0u, 2, {9, 9}},
      {{8, 9}, 2, 1u << 31, {4, 4}}, {{8, 9}, 1u << 31, 2, {8, 9}},
  };
  for (const auto& [before, factor, min_side, after] : cases) {
    std::mt19937 random(5);
    const auto image = noise(random, gl::kRGBA, before.first, before.second);
    const auto material = ::osg::SimpleTexturedMaterial::create();
    material->setImage(image);
    const auto geometry = triangles(box_corners()), other = triangles(box_corners());
    geometry->setMaterial(material);
    other->setMaterial(material);
    const auto plain = node_with(triangles(box_corners()));
    test::said text;
    osg::ScaleImagesInTree(node_with(geometry, {node_with(other), plain}), factor, min_side);
    osg::ScaleImagesInTree(::osg::NullFC, factor, min_side);
    text.end();
    EXPECT_EQ(sides(image->getWidth(), image->getHeight()), after) << factor;
    const std::string line = "Scaling Images by factor of " + std::to_string(factor) +
                             ". Ignored if an Image has a smaller side than " +
                             std::to_string(min_side) + "\n";
    EXPECT_EQ(text.out, factor < 2 ? "" : line + line);
  }
}

TEST(LeafAtlas, ShrinksImagesUntilItFits) {
  const std::string failed = "Morlu::osg::createAtlas failed! Vec: 1 maxSize: 10000 percent: ";
  const struct {
    sides before;
    float columns;
    bool keep_size;
    unsigned max_size;
    bool result;
    sides size, after;
    std::string said;
  } cases[] = {
      {{99, 64}, 0, false, 10000, true, {1, 1}, {99, 64}, ""},
      {{99, 64}, 82, false, 10000, true, {8118, 64}, {99, 64}, ""},
      {{99, 64}, 84, false, 10000, true, {4116, 32}, {49, 32}, reset_from("-0.202501")},
      {{99, 64}, 150, false, 10000, true, {7350, 32}, {49, 32}, ""},
      {{99, 64}, 90, false, 0, true, {4410, 32}, {49, 32}, ""},
      {{32, 99}, 400, false, 10000, false, {1, 1}, {32, 99}, failed + "0.21875\n"},
      {{64, 70}, HUGE_VALF, false, 10000, false, {1, 1}, {32, 35}, failed + "0.999995\n"},
      {{99, 64}, 9, true, 891, true, {891, 64}, {99, 64}, ""},
      {{99, 64}, 9, true, 890, false, {891, 64}, {99, 64}, ""},
      {{99, 64}, 90, true, 10000, false, {1, 1}, {99, 64}, ""},
  };
  for (const auto& [before, columns, keep_size, max_size, result, size, after, line] : cases) {
    SCOPED_TRACE(testing::Message() << before.first << ' ' << columns << ' ' << max_size);
    std::mt19937 random(5);
    atlas_image_table table;
    add(table, random, before, columns);
    osg::texture_layout layout{77, 77, {}};
    test::said text;
    EXPECT_EQ(osg::createAtlas(table.records(), keep_size, max_size, layout), result);
    text.end();
    EXPECT_EQ(text.out, line);
    EXPECT_EQ(sides(layout.width, layout.height), size);
    EXPECT_EQ(sides_of(table.records()[0]), after);
  }
}

/// The second pixel of the second row, in `repeats` repetitions.
::osg::GeometryPtr with_coords(const Image& image, int repeats) {
  const auto coords = ::osg::GeoTexCoords2f::create();
  for (int i = 0; i < repeats; ++i) {
    const auto k = static_cast<float>(i);
    coords->push_back({1.5f / static_cast<float>(image.getWidth()) + k,
                       1.5f / static_cast<float>(image.getHeight()) + k});
  }
  const auto geometry = ::osg::Geometry::create();
  geometry->setTexCoords(coords);
  return geometry;
}

std::array<int, 4> pixel(const Image& of, int x, int y) {
  const auto* p = of.getData() + (y * of.getWidth() + x) * static_cast<int>(of.getBpp());
  return {p[0], p[1], p[2], of.hasAlphaChannel() ? p[3] : 255};
}

TEST(LeafAtlas, ShowsWhatImagesShowed) {
  std::mt19937 random(29);
  for (const bool alpha : {false, true}) {
    atlas_image_table table;
    std::vector<osg::leaf_object> objects;
    for (int i = 0; i < 80; ++i) {
      const auto image = noise(random, alpha && i % 2 ? gl::kRGBA : gl::kRGB,
                               3 + static_cast<int>(random() % 40), 5 + i % 7);
      const int repeats = 1 + i % 3;
      table.add(image, i == 79 ? 0 : static_cast<float>(repeats), static_cast<float>(repeats));
      objects.push_back({with_coords(*image, repeats), i});
    }
    for (const int none : {-1, 80})
      objects.push_back({with_coords(*table.records()[0].pixels, 1), none});
    osg::texture_layout layout;
    ASSERT_TRUE(osg::createAtlas(table.records(), false, 10000, layout));
    const ImagePtr atlas = Image::create();
    atlas->set(alpha ? gl::kRGBA : gl::kRGB, 2, 2);
    osg::fillAtlasImage(layout, table.records(), atlas);
    EXPECT_EQ(sides(atlas->getWidth(), atlas->getHeight()), sides(layout.width, layout.height));
    osg::remapLeafTexCoords(objects, table.records(), *atlas);
    for (const auto& [geometry, at] : objects) {
      const auto& coords = *geometry->getTexCoords();
      const bool drawn = at >= 0 && at < 79;
      ASSERT_TRUE(drawn || coords.getValue(0)[1] > 0.1f) << at;  // as it was
      for (unsigned k = 0; drawn && k < coords.size(); ++k) {
        const ::osg::Vec2f t = coords.getValue(k);
        ASSERT_EQ(pixel(*atlas, static_cast<int>(t[0] * static_cast<float>(atlas->getWidth())),
                        static_cast<int>(t[1] * static_cast<float>(atlas->getHeight()))),
                  pixel(*table.records()[static_cast<unsigned>(at)].source, 1, 1))
            << at;
      }
    }
  }
}

TEST(LeafAtlas, SurvivesWithoutMemory) {
  bool met = true;
  for (int nth = 0; met; ++nth) {
    std::mt19937 random(5);
    atlas_image_table table;
    for (const sides& size : {sides(100, 40), {60, 50}, {90, 34}}) add(table, random, size, 90);
    const ImagePtr atlas = Image::create();
    atlas->set(gl::kRGBA, 2, 2);
    osg::texture_layout layout;
    bool created = false;
    test::said text;
    const std::uint64_t gaps = osg::ended_failures;
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
    for (const atlas_image& record : table.records()) sides_of(record);
    const bool drawn = std::ranges::all_of(table.records(), &atlas_image::placed);
    EXPECT_EQ(drawn, created && text.err != "Scale Texture Image failed.\n") << nth;
    EXPECT_TRUE(drawn || met);
    EXPECT_EQ(osg::ended_failures, gaps) << "a rebuild would be given up";
    if (met) continue;
    test::said again;  // no place is left
    osg::fillAtlasImage(layout, std::span(table.records()).first(1), atlas);
    again.end();
    EXPECT_EQ(again.out,
              "Textureatlas unable to find this Texture!\nParameter: \nWidth: 4500\n"
              "Heigth: 20\n");
  }
}

}  // namespace
}  // namespace morlu::tests
