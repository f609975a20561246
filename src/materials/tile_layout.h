#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace morlu::osg {

/// Layouts of tiles on a rectangle of free size: shelves of rows, tiles of one size together.
///
/// Sides beyond 2^31 count as 2^31, so that no sum overflows with up to 2^31 tiles.
struct tile_sides {
  std::int64_t width, height;

  bool operator==(const tile_sides&) const = default;
};

struct layout_rect {
  std::int64_t width, height, x, y;

  bool operator==(const layout_rect&) const = default;
};

/// By height, then width, both ascending.
struct lower_then_narrower {
  using is_transparent = void;
  template <class A, class B>
  bool operator()(const A& a, const B& b) const {
    return a.height != b.height ? a.height < b.height : a.width < b.width;
  }
};

/// Rectangles of equal size stay in the order in which they came.
using sorted_rects = std::multiset<layout_rect, lower_then_narrower>;

struct tile_layout {
  std::int64_t width = 1, height = 1;  // what the places take
  sorted_rects placements;             // given out, a place for each tile
};

/// How many columns a grid of `count` tiles has, at least 1, where the first are of that size: such
/// that few places stay empty and the grid is near a square. Counts beyond 2^32 are as 2^32.
/// O(root of count).
std::int64_t gridColumns(std::int64_t count, const tile_sides& first);

/// Finds places for the tiles, which don't overlap. Those with a side below 1 get none; no tiles
/// give 1 x 1.
///
/// Tiles of one size are a grid. Else groups of one size follow one another, the highest first, of
/// those the widest: in rows from where the last group ended to the limit, within the shelf that
/// stands there as long as rows fit, then in a new one below all; or, as long as there is any, in
/// space that rows before have left. The limit comes from the number of tiles, their sizes and the
/// widest tile; `maxSize` is the most it may be if that is in 1 to 8192.
/// O(tiles x log tiles) beside the joining of what is left, at each new shelf.
tile_layout computeLayout(std::vector<tile_sides> tiles, std::uint32_t maxSize);

/// Takes a place of exactly that size, the first that was given out; none if there is none.
std::optional<layout_rect> takePlacement(tile_layout& layout, const tile_sides& sides);

}  // namespace morlu::osg
