#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "materials/tile_layout.h"

namespace morlu::osg {

struct page_point {
  std::int64_t x, y;
};

/// What a layout has left free: rectangles by height, then width, of equal ones the older first.
class free_space {
 public:
  /// Nothing for one without area.
  void add(const layout_rect& rect);

  /// Takes the place of a tile from the first rectangle that holds it: its corner. What is left of
  /// that, a strip below as wide as the tile and one to the right in full height, is added. None if
  /// there is no such rectangle. O(rectangles).
  std::optional<page_point> take(std::int64_t width, std::int64_t height);

  /// As long as there are two rectangles a and b with b right below a or right beside it, and of
  /// one width or height, they become one: the first a that has a b, with the first b. O(log
  /// rectangles) for each one that is new since the last time.
  void join();

 private:
  struct strip {
    layout_rect rect;
    std::uint64_t serial;

    auto order() const { return std::tuple(rect.height, rect.width, serial); }
    bool operator==(const strip& other) const { return order() == other.order(); }
    auto operator<=>(const strip& other) const { return order() <=> other.order(); }
  };
  /// Two rectangles can be joined where one ends at the edge where the other begins.
  struct edge {
    bool lies_flat;
    std::int64_t x, y, length;

    auto operator<=>(const edge&) const = default;
  };
  using strips_at_edges = std::set<std::pair<edge, strip>>;
  struct edges {
    edge upright, flat;
  };

  static edges begin_of(const layout_rect& rect);
  static edges end_of(const layout_rect& rect);
  const strip* partner_of(const strip& a) const;
  void remove(const strip& taken);

  std::set<strip> strips_;
  strips_at_edges begins_, ends_;
  std::set<strip> unsettled_;  // all others have no partner right of them or below
  std::uint64_t serials_ = 0;
};

}  // namespace morlu::osg
