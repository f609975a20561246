// Layouts of tiles on rectangles of free size, against the plain way.

#include "materials/tile_layout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <random>

#include "materials/rect_join.h"

namespace morlu::tests {
namespace {

using osg::layout_rect;
using osg::tile_layout;
using osg::tile_sides;

/// The layout of tiles on a rectangle of free size as it is described: sorted lists, walked from
/// their start at every step. `keep_clear`: as it is laid out again where tiles overlap.
struct plain_layout {
  using rect = layout_rect;
  std::vector<rect> placements, free;
  std::int64_t width = 0, total_height = 1, limit = 0, cursor_x = 0, cursor_y = 0;
  bool keep_clear;

  plain_layout(const std::vector<tile_sides>& tiles, std::uint32_t max_size, bool clear)
      : keep_clear(clear) {
    std::map<std::pair<std::int64_t, std::int64_t>, int> groups;
    for (const auto& [w, h] : tiles) ++groups[{-h, -w}];
    if (tiles.empty()) return;
    const auto [h0, w0] = std::pair(-groups.begin()->first.first, -groups.begin()->first.second);
    double others = 0.5;
    for (auto group = groups.begin(); ++group != groups.end();) {
      const auto h = static_cast<double>(-group->first.first);
      const auto w = static_cast<double>(-group->first.second);
      limit = std::max(limit, -group->first.second);
      others += group->second / ((static_cast<double>(w0) / w) * (static_cast<double>(h0) / h));
    }
    limit =
        std::max(limit, columns(groups.begin()->second + static_cast<int>(others), w0, h0) * w0);
    if (max_size >= 1 && max_size <= 8192 && groups.size() > 1)
      limit = std::min<std::int64_t>(limit, max_size);
    total_height = h0;
    for (const auto& [sides, count] : groups) place_group(-sides.second, -sides.first, count);
    for (const rect& r : placements) width = std::max(width, r.x + r.width);
  }

  static std::int64_t columns(std::int64_t n, std::int64_t w, std::int64_t h) {
    const auto root = std::llround(std::sqrt(static_cast<double>(n)));
    if (root * root == n) return root;
    if (n <= 10) return std::array{2, 3, 0, 3, 3, 4, 4, 0, 5}[static_cast<std::size_t>(n - 2)];
    std::int64_t best = n, best_waste = 100000, best_diff = 1000;
    for (std::int64_t k = 3; k <= n / 3; ++k) {
      const std::int64_t r = (n + k - 1) / k, waste = r * k - n, diff = std::abs(r - k);
      if (waste < best_waste || (waste == best_waste && diff < best_diff))
        std::tie(best, best_waste, best_diff) = std::tuple(r, waste, diff);
    }
    if (!(2 * w < h) && best != 1) --best;
    return 2 * h < w ? best : best + 1;
  }

  void place_group(std::int64_t w, std::int64_t h, int left) {
    const std::int64_t start_x = cursor_x, start_y = cursor_y;
    bool opened = false, wrapped = false;
    while (left > 0 && take_free(w, h)) --left;
    for (; left > 0; --left) {
      if (cursor_x + w > limit) {
        add_free({limit - cursor_x, h, cursor_x, cursor_y});
        if (cursor_y + 2 * h >= total_height || w + start_x >= limit) {
          add_free({limit - start_x, total_height - h - cursor_y, start_x, cursor_y + h});
          while (merge_first_pair()) {
          }
          cursor_x = 0, cursor_y = total_height, total_height += h, opened = true;
        } else {
          cursor_x = start_x, cursor_y += h, wrapped = true;
        }
      }
      placements.push_back({w, h, cursor_x, cursor_y});
      cursor_x += w;
    }
    if (opened || start_x == 0) return;
    if (!wrapped)
      return add_free({cursor_x - start_x, total_height - h - start_y, start_x, start_y + h});
    const std::int64_t wide = limit - cursor_x;
    add_free({keep_clear ? std::min(wide, cursor_x - start_x) : wide, total_height - h - cursor_y,
              start_x, cursor_y + h});
  }

  void add_free(const rect& r) {  // of equal size the older first
    if (r.width > 0 && r.height > 0)
      free.insert(std::upper_bound(free.begin(), free.end(), r, osg::lower_then_narrower()), r);
  }

  bool take_free(std::int64_t w, std::int64_t h) {
    const auto found =
        std::ranges::find_if(free, [&](const rect& r) { return r.width >= w && r.height >= h; });
    if (found == free.end()) return false;
    const rect r = *found;
    free.erase(found);
    add_free({w, r.height - h, r.x, r.y + h});
    add_free({r.width - w, r.height, r.x + w, r.y});
    placements.push_back({w, h, r.x, r.y});
    return true;
  }

  bool merge_first_pair() {
    for (const rect a : free)
      for (const rect b : free) {
        if (!osg::joins(a, b)) continue;
        std::erase(free, a);
        std::erase(free, b);
        add_free(osg::joined(a, b));
        return true;
      }
    return false;
  }
};

std::size_t overlaps(std::vector<layout_rect> rects) {
  std::ranges::sort(rects, {}, &layout_rect::y);
  std::size_t count = 0;
  for (auto a = rects.begin(); a != rects.end(); ++a)
    for (auto b = a; ++b != rects.end() && b->y < a->y + a->height;)
      count += a->x < b->x + b->width && b->x < a->x + a->width;
  return count;
}

/// Each tile has a place of its size within the layout, and no places overlap.
void expect_lays_out(std::vector<tile_sides> tiles, const tile_layout& layout) {
  const std::vector<layout_rect> places(layout.placements.begin(), layout.placements.end());
  std::vector<tile_sides> placed;
  for (const layout_rect& p : places) {
    placed.push_back({p.width, p.height});
    ASSERT_TRUE(p.x >= 0 && p.y >= 0 && p.x + p.width <= layout.width &&
                p.y + p.height <= layout.height);
  }
  std::ranges::sort(tiles, osg::lower_then_narrower());
  ASSERT_EQ(placed, tiles);
  ASSERT_EQ(overlaps(places), 0u);
}

TEST(TileLayout, HasTheColumnsOfThePlainSearch) {
  for (const auto& [w, h] : {tile_sides{1, 1}, {1, 2}, {1, 3}, {2, 1}, {5, 2}})
    for (std::int64_t n = 1; n < 2500; ++n)
      ASSERT_EQ(osg::gridColumns(n, {w, h}), plain_layout::columns(n, w, h)) << n;
  EXPECT_EQ(osg::gridColumns(std::numeric_limits<std::int64_t>::max(), {1, 1}), 65536);
}

TEST(TileLayout, PlacesAsThePlainWay) {
  std::mt19937 random(17);
  const auto up_to = [&](unsigned n) { return static_cast<std::int64_t>(1 + random() % n); };
  const std::uint32_t limits[] = {10000, 0, 8192, 300, 40};
  int made_anew = 0;
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    const auto side = [&] {  // from such that fit each other to any
      return round % 3 == 0 ? 8 << up_to(5) : round % 3 == 1 ? 16 * up_to(20) : up_to(3000);
    };
    std::vector<tile_sides> sizes(1 + random() % 12), tiles(random() % 150);
    for (tile_sides& size : sizes) size = {round % 3 == 0 ? 64 : side(), side()};
    for (tile_sides& tile : tiles) tile = sizes[random() % sizes.size()];
    const std::uint32_t limit = limits[random() % std::size(limits)];
    plain_layout plain(tiles, limit, false);
    if (overlaps(plain.placements) > 0) {
      plain = plain_layout(tiles, limit, true);
      ++made_anew;
    }
    const tile_layout layout = osg::computeLayout(tiles, limit);
    ASSERT_EQ(layout.width, std::max<std::int64_t>(plain.width, tiles.empty()));
    ASSERT_EQ(layout.height, plain.total_height);
    std::ranges::stable_sort(plain.placements, osg::lower_then_narrower());
    ASSERT_TRUE(std::ranges::equal(layout.placements, plain.placements));
    expect_lays_out(tiles, layout);
  }
  EXPECT_GT(made_anew, 2);
  for (const unsigned most : {3u, 12u, 64u, 1000u}) {
    std::vector<tile_sides> tiles(4000);
    for (tile_sides& tile : tiles) tile = {up_to(most), up_to(most)};
    expect_lays_out(tiles, osg::computeLayout(tiles, most > 12 ? 1000 : 10000));
  }
}

TEST(TileLayout, SpeaksForItself) {
  constexpr std::int64_t huge = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t side = std::int64_t{1} << 31;
  const struct {
    std::vector<std::pair<int, tile_sides>> tiles;
    tile_sides size;
    layout_rect last;  // the last place of the lowest tiles
  } cases[] = {
      {{{5, {7, 9}}}, {21, 18}, {7, 9, 7, 9}},
      {{{11, {7, 9}}}, {28, 27}, {7, 9, 14, 18}},
      {{{3, {0, 9}}, {1, {9, 0}}, {1, {7, 9}}, {2, {-1, 4}}}, {7, 9}, {7, 9, 0, 0}},
      // three rows of four in the shelf beside a large one; a fourth would fill it to the brim
      {{{3, {256, 256}}, {12, {64, 64}}}, {512, 512}, {64, 64, 448, 384}},
      // what would overlap if space below rows reached beyond their end
      {{{5, {128, 512}}, {7, {128, 128}}, {11, {128, 64}}}, {512, 1088}, {128, 64, 256, 1024}},
      // no sum or product overflows
      {{{1, {huge, 2}}, {2, {huge, huge}}, {4, {1, huge}}},
       {2 * side, 2 * side},
       {side, 2, 4, side}},
  };
  for (const auto& [groups, size, last] : cases) {
    std::vector<tile_sides> tiles;
    for (const auto& [count, sides] : groups) tiles.insert(tiles.end(), count, sides);
    const tile_layout layout = osg::computeLayout(tiles, 10000);
    EXPECT_EQ((tile_sides{layout.width, layout.height}), size);
    const auto lowest = layout.placements.upper_bound(last);
    EXPECT_EQ(*std::prev(lowest), last) << size.width << " x " << size.height;
  }
}

}  // namespace
}  // namespace morlu::tests
