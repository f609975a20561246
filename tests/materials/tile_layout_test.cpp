// Layouts of tiles on rectangles of free size, against the plain way.

#include "materials/tile_layout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
#include <random>

#include "support/plain_layout.h"

namespace morlu::tests {
namespace {

using osg::tile_layout;
using osg::tile_sides;
using rect = test::plain_layout::rect;

std::vector<rect> places_of(const tile_layout& layout) {
  std::vector<rect> places;
  for (const auto& p : layout.placements) places.push_back({p.height, p.width, p.x, p.y});
  return places;
}

/// Each tile has a place of its size within the layout, and no places overlap.
void expect_lays_out(std::vector<tile_sides> tiles, const tile_layout& layout) {
  std::vector<tile_sides> placed;
  auto places = places_of(layout);
  for (const rect& p : places) {
    placed.push_back({p.width, p.height});
    ASSERT_TRUE(p.x >= 0 && p.y >= 0 && p.x + p.width <= layout.width &&
                p.y + p.height <= layout.height);
  }
  std::ranges::sort(tiles, osg::lower_then_narrower());
  ASSERT_EQ(placed, tiles);
  std::ranges::sort(places, {}, &rect::y);
  std::size_t overlaps = 0;
  for (std::size_t i = 0; i < places.size(); ++i)
    for (std::size_t j = i; ++j < places.size() && places[j].y < places[i].y + places[i].height;)
      overlaps += places[i].overlaps(places[j]);
  ASSERT_EQ(overlaps, 0u);
}

TEST(TileLayout, HasTheColumnsOfThePlainSearch) {
  for (const auto& [w, h] : {tile_sides{1, 1}, {1, 2}, {1, 3}, {2, 1}, {5, 2}})
    for (std::int64_t n = 1; n < 2500; ++n)
      ASSERT_EQ(osg::gridColumns(n, {w, h}), test::plain_layout::columns(n, w, h)) << n;
  EXPECT_EQ(osg::gridColumns(11, {7, 7}), 4);
  EXPECT_EQ(osg::gridColumns(9, {100, 300}), 3);
  EXPECT_EQ(osg::gridColumns(std::numeric_limits<std::int64_t>::max(), {1, 1}), 65536);
}

TEST(TileLayout, PlacesAsThePlainWay) {
  std::mt19937 random(17);
  const std::uint32_t limits[] = {10000, 0, 8192, 300, 40};
  int overlaps = 0;
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    // few sizes, of which multiples fit each other, to many that don't
    const auto side = [&]() -> std::int64_t {
      return round % 3 == 0   ? 1 + random() % 300
             : round % 3 == 1 ? 16 << random() % 5
                              : 16 * (1 + random() % 20);
    };
    std::vector<std::pair<std::int64_t, std::int64_t>> of_size(1 + random() % 12);
    for (auto& [w, h] : of_size) w = side(), h = side();
    std::vector<std::pair<std::int64_t, std::int64_t>> plain_tiles;
    std::vector<tile_sides> tiles;
    for (auto left = random() % 150; left > 0; --left) {
      plain_tiles.push_back(of_size[random() % of_size.size()]);
      tiles.push_back({plain_tiles.back().first, plain_tiles.back().second});
    }
    const std::uint32_t limit = limits[random() % std::size(limits)];
    test::plain_layout plain(plain_tiles, limit);
    const tile_layout layout = osg::computeLayout(tiles, limit);
    overlaps += plain.had_overlap;
    ASSERT_EQ(layout.width, plain.width);
    ASSERT_EQ(layout.height, plain.height);
    std::ranges::stable_sort(plain.placements, {},
                             [](const rect& r) { return std::pair(r.height, r.width); });
    ASSERT_EQ(places_of(layout), plain.placements);
    expect_lays_out(tiles, layout);
  }
  EXPECT_GT(overlaps, 5);  // so that layouts made anew are among them
}

TEST(TileLayout, NeverOverlapsInTablesOfThousands) {
  std::mt19937 random(23);
  for (const std::int64_t most : {3, 12, 64, 1000}) {
    std::vector<tile_sides> tiles(4000);
    for (tile_sides& tile : tiles)
      tile = {1 + static_cast<std::int64_t>(random()) % most,
              1 + static_cast<std::int64_t>(random()) % most};
    for (const std::uint32_t limit : {10000u, 1000u})
      expect_lays_out(tiles, osg::computeLayout(tiles, limit));
  }
}

TEST(TileLayout, SpeaksForItself) {
  constexpr std::int64_t huge = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t side = std::int64_t{1} << 31;
  const struct {
    std::vector<std::pair<int, tile_sides>> tiles;
    std::int64_t width, height;
    rect last;  // place of the last of the smallest tiles
  } cases[] = {
      {{}, 1, 1, {}},
      {{{1, {7, 9}}}, 7, 9, {9, 7, 0, 0}},
      {{{2, {7, 9}}}, 14, 9, {9, 7, 7, 0}},
      {{{5, {7, 9}}}, 21, 18, {9, 7, 7, 9}},
      {{{3, {0, 9}}, {1, {9, 0}}, {1, {7, 9}}, {2, {-1, 4}}}, 7, 9, {9, 7, 0, 0}},
      // three rows of four in the shelf beside a large one; a fourth would fill it to the brim
      {{{3, {256, 256}}, {12, {64, 64}}}, 512, 512, {64, 64, 448, 384}},
      // what stood in the way of others if space below rows reached beyond their end
      {{{5, {128, 512}}, {7, {128, 128}}, {11, {128, 64}}}, 512, 1088, {64, 128, 256, 1024}},
      // no sum or product overflows
      {{{1, {huge, 2}}, {2, {huge, huge}}, {4, {1, huge}}}, 2 * side, 2 * side, {2, side, 4, side}},
  };
  for (const auto& [groups, width, height, last] : cases) {
    SCOPED_TRACE(testing::Message() << width << " x " << height);
    std::vector<tile_sides> tiles;
    for (const auto& [count, sides] : groups) tiles.insert(tiles.end(), count, sides);
    const tile_layout layout = osg::computeLayout(tiles, 10000);
    EXPECT_EQ(layout.width, width);
    EXPECT_EQ(layout.height, height);
    const auto places = places_of(layout);
    if (last.width > 0) {
      const auto smallest = std::ranges::equal_range(places, last, osg::lower_then_narrower());
      EXPECT_EQ(smallest.back(), last) << smallest.back().x << ' ' << smallest.back().y;
    } else {
      EXPECT_TRUE(places.empty());
    }
  }
}

}  // namespace
}  // namespace morlu::tests
