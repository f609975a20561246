#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace morlu::osg {

struct free_rect {
  std::uint32_t x, y, width, height;

  bool operator==(const free_rect&) const = default;
};

struct page_place {
  std::uint32_t x, y;

  bool operator==(const page_place&) const = default;
};

/// What is free of an atlas page: rectangles that don't overlap, in a list whose order decides.
///
/// A tile goes to the corner of the rectangle with the smallest area that it fits into; of equal
/// ones to the first. What it leaves of that, a strip below and then one to the right as high as
/// the tile, comes to the front of the list. Then, as long as there are two rectangles a and b with
/// b right below a or right beside it, and of one width or height, they become one at the front:
/// the pair with the first a, and of those with the first b.
class free_rects {
 public:
  /// All of a page is free; the sides are 32768 at most.
  free_rects(std::uint32_t width, std::uint32_t height) {
    slots_.reserve(64);
    add({0, 0, width, height});
  }

  bool empty() const { return live_ == 0; }
  /// Takes the place of a tile; none, and nothing changes, if a side is 0 or it fits nowhere.
  /// O(rectangles).
  std::optional<page_place> take(std::uint64_t width, std::uint64_t height);
  /// First to last.
  std::vector<free_rect> in_order() const;

 private:
  /// Unused ones have the width 0, which nothing fits into and nothing joins.
  struct slot {
    free_rect rect;
    std::uint32_t stamp;  // later ones stand before earlier ones
  };
  struct pair {
    std::uint32_t a, b;
  };

  std::uint32_t add(const free_rect& rect);
  void remove(std::uint32_t at);
  std::uint32_t best_for(std::uint32_t width, std::uint32_t height) const;
  void merge();
  std::optional<pair> first_pair() const;

  static constexpr std::uint32_t none = ~std::uint32_t{0};

  std::vector<slot> slots_;
  std::vector<std::uint32_t> unused_;
  std::vector<std::uint32_t> fresh_;  // since the last merge, which left no pair
  std::uint32_t live_ = 0, stamps_ = 0;
};

}  // namespace morlu::osg
