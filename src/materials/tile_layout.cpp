// Rows of falling height, after E. Coffman, M. Garey, D. Johnson, R. Tarjan, "Performance bounds
// for level-oriented two-dimensional packing algorithms" (1980). Our own are the groups of one
// size, which fill a shelf row by row, the space that rows leave, and the width, which comes from
// the grid that the tiles would be if all were as large as the first.

#include "materials/tile_layout.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "materials/free_space.h"

namespace morlu::osg {

namespace {

constexpr std::int64_t longest_side = std::int64_t{1} << 31, most_tiles = std::int64_t{1} << 32;
constexpr std::int64_t widest_limit = 8192;

/// Tiles of one size.
struct tile_group {
  tile_sides sides;
  std::int64_t count;
};

/// The highest first, of those the widest.
std::vector<tile_group> groups_of(std::vector<tile_sides> tiles) {
  std::erase_if(tiles,
                [](const tile_sides& tile) { return std::min(tile.width, tile.height) < 1; });
  for (tile_sides& tile : tiles)
    tile = {std::min(tile.width, longest_side), std::min(tile.height, longest_side)};
  std::sort(tiles.rbegin(), tiles.rend(), lower_then_narrower());
  std::vector<tile_group> groups;
  for (const tile_sides& tile : tiles) {
    if (groups.empty() || groups.back().sides != tile) groups.push_back({tile, 0});
    ++groups.back().count;
  }
  return groups;
}

tile_layout grid(const tile_group& group) {
  const auto [width, height] = group.sides;
  const std::int64_t columns = gridColumns(group.count, group.sides);
  tile_layout layout;
  for (std::int64_t i = 0; i < group.count; ++i)
    layout.placements.insert({width, height, i % columns * width, i / columns * height});
  layout.width = columns * width;
  layout.height = ((group.count - 1) / columns + 1) * height;
  return layout;
}

/// How many tiles of the first size have the area of all tiles.
std::int64_t in_first_tiles(std::span<const tile_group> groups) {
  const auto [w, h] = groups[0].sides;
  double others = 0;
  for (const auto& [sides, count] : groups.subspan(1))
    others +=
        static_cast<double>(count) / ((static_cast<double>(w) / static_cast<double>(sides.width)) *
                                      (static_cast<double>(h) / static_cast<double>(sides.height)));
  const double rounded = std::min(others + 0.5, static_cast<double>(most_tiles));
  return groups[0].count + static_cast<std::int64_t>(rounded);
}

std::int64_t row_limit(std::span<const tile_group> groups, std::uint32_t max_size) {
  const tile_sides& first = groups[0].sides;
  std::int64_t limit = gridColumns(in_first_tiles(groups), first) * first.width;
  for (const tile_group& group : groups) limit = std::max(limit, group.sides.width);
  return max_size >= 1 && max_size <= widest_limit ? std::min<std::int64_t>(limit, max_size)
                                                   : limit;
}

/// Rows from the left to a limit, from the top down. A group starts where the last one ended:
///
///        0            start        limit
///      y +--------------+------------+ --
///        | groups       | this       |   |
///        | before       | group,     |   | a shelf
///        |              | row by row |   |
///  total +--------------+------------+ --
///        | the next shelf
class shelves {
 public:
  /// `keep_clear`: what is noted as free below the last row of a group ends where that row ends.
  shelves(std::int64_t limit, std::int64_t first_height, bool keep_clear)
      : limit_(limit), total_height_(first_height), keep_clear_(keep_clear) {}

  void place(const tile_group& group);
  /// Whether space was noted as free that the next group's rows may come to.
  bool may_overlap() const { return may_overlap_; }
  tile_layout take_layout() &&;

 private:
  enum class row { within_shelf, in_new_shelf };

  void place_in_rows(const tile_sides& sides, std::int64_t count);
  row next_row(const tile_sides& sides, const page_point& start);
  void keep_space_below(const page_point& start, std::int64_t height, bool wrapped);

  std::int64_t limit_, total_height_;
  bool keep_clear_, may_overlap_ = false;
  page_point cursor_{0, 0};
  free_space free_;
  sorted_rects placements_;
};

void shelves::place(const tile_group& group) {
  const auto [width, height] = group.sides;
  for (std::int64_t left = group.count; left > 0; --left) {
    const auto at = free_.take(width, height);
    if (!at) return place_in_rows(group.sides, left);
    placements_.insert({width, height, at->x, at->y});
  }
}

void shelves::place_in_rows(const tile_sides& sides, std::int64_t count) {
  const page_point start = cursor_;
  bool wrapped = false, opened = false;
  for (; count > 0; --count) {
    if (cursor_.x + sides.width > limit_)
      (next_row(sides, start) == row::within_shelf ? wrapped : opened) = true;
    placements_.insert({sides.width, sides.height, cursor_.x, cursor_.y});
    cursor_.x += sides.width;
  }
  if (!opened) keep_space_below(start, sides.height, wrapped);
}

shelves::row shelves::next_row(const tile_sides& sides, const page_point& start) {
  const auto [width, height] = sides;
  const std::int64_t below = cursor_.y + height;
  free_.add({limit_ - cursor_.x, height, cursor_.x, cursor_.y});
  if (below + height < total_height_ && start.x + width < limit_) {
    cursor_ = {start.x, below};
    return row::within_shelf;
  }
  free_.add({limit_ - start.x, total_height_ - below, start.x, below});
  free_.join();
  cursor_ = {0, total_height_};
  total_height_ += height;
  return row::in_new_shelf;
}

void shelves::keep_space_below(const page_point& start, std::int64_t height, bool wrapped) {
  const std::int64_t below = cursor_.y + height, used = cursor_.x - start.x;
  std::int64_t width = used;
  if (wrapped) {
    width = limit_ - cursor_.x;
    // right of the row, at its height, the next group goes on
    if (keep_clear_) width = std::min(width, used);
    may_overlap_ = may_overlap_ || (width > used && below < total_height_);
  }
  free_.add({width, total_height_ - below, start.x, below});
}

tile_layout shelves::take_layout() && {
  tile_layout layout{0, total_height_, std::move(placements_)};
  for (const layout_rect& rect : layout.placements)
    layout.width = std::max(layout.width, rect.x + rect.width);
  return layout;
}

/// O(rectangles x log rectangles).
bool any_overlap(const sorted_rects& rects) {
  std::vector<layout_rect> downwards(rects.begin(), rects.end());
  std::ranges::sort(downwards, {}, &layout_rect::y);
  std::map<std::int64_t, layout_rect> lowest;  // of what is above, by x, side by side
  for (const layout_rect& rect : downwards) {
    auto above = lowest.upper_bound(rect.x);
    if (above != lowest.begin() &&
        std::prev(above)->second.x + std::prev(above)->second.width > rect.x)
      --above;
    while (above != lowest.end() && above->first < rect.x + rect.width) {
      if (above->second.y + above->second.height > rect.y) return true;
      above = lowest.erase(above);
    }
    lowest.emplace(rect.x, rect);
  }
  return false;
}

}  // namespace

std::int64_t gridColumns(std::int64_t count, const tile_sides& first) {
  const std::int64_t n = std::clamp<std::int64_t>(count, 1, most_tiles);
  constexpr std::int64_t of_few[] = {0, 1, 2, 3, 2, 3, 3, 4, 4, 3, 5};
  if (n < std::ssize(of_few)) return of_few[n];
  const auto root = static_cast<std::int64_t>(std::sqrt(static_cast<double>(n)));
  if (root * root == n) return root;
  // More rows than that give the same grids turned round, or larger ones.
  std::int64_t best = n, least_waste = n, least_difference = n;
  for (std::int64_t rows = 3; rows <= root; ++rows) {
    const std::int64_t columns = (n + rows - 1) / rows;
    const std::int64_t waste = columns * rows - n, difference = std::abs(columns - rows);
    if (waste > least_waste || (waste == least_waste && difference >= least_difference)) continue;
    best = columns;
    least_waste = waste;
    least_difference = difference;
  }
  const bool is_tall = 2 * first.width < first.height, is_wide = 2 * first.height < first.width;
  return best + (is_tall ? 1 : 0) - (is_wide ? 1 : 0);
}

tile_layout computeLayout(std::vector<tile_sides> tiles, std::uint32_t maxSize) {
  const std::vector<tile_group> groups = groups_of(std::move(tiles));
  if (groups.empty()) return {};
  if (groups.size() == 1) return grid(groups[0]);
  const std::int64_t limit = row_limit(groups, maxSize);
  const auto lay_out = [&](bool keep_clear) {
    shelves layout(limit, groups[0].sides.height, keep_clear);
    for (const tile_group& group : groups) layout.place(group);
    return layout;
  };
  shelves found = lay_out(false);
  const bool may_overlap = found.may_overlap();
  tile_layout layout = std::move(found).take_layout();
  return may_overlap && any_overlap(layout.placements) ? lay_out(true).take_layout() : layout;
}

std::optional<layout_rect> takePlacement(tile_layout& layout, const tile_sides& sides) {
  const auto at = layout.placements.lower_bound(sides);
  if (at == layout.placements.end() || at->width != sides.width || at->height != sides.height)
    return std::nullopt;
  const layout_rect place = *at;
  layout.placements.erase(at);
  return place;
}

}  // namespace morlu::osg
