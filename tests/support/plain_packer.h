#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <utility>

namespace morlu::test {

/// The packing of atlas pages as it is described: a list, walked from its start at every step.
struct plain_packer {
  struct rect {
    std::uint32_t x, y, width, height;
  };
  std::list<rect> free;

  std::optional<std::pair<std::uint32_t, std::uint32_t>> take(std::uint32_t w, std::uint32_t h) {
    if (w == 0 || h == 0) return {};
    for (auto r = free.begin(); r != free.end(); ++r) {
      if (r->width != w || r->height != h) continue;
      const auto place = std::pair(r->x, r->y);
      free.erase(r);
      return place;
    }
    auto best = free.end();
    std::uint32_t least = ~0u;
    for (auto r = free.begin(); r != free.end(); ++r)
      if (r->width >= w && r->height >= h && r->width * r->height - w * h < least) {
        least = r->width * r->height - w * h;
        best = r;
      }
    if (best == free.end()) return {};
    const rect from = *best;
    if (h < from.height) free.push_front({from.x, from.y + h, from.width, from.height - h});
    if (w < from.width) free.push_front({from.x + w, from.y, from.width - w, h});
    free.erase(best);
    while (merge_first_pair()) {
    }
    return std::pair(from.x, from.y);
  }

  bool merge_first_pair() {
    for (auto a = free.begin(); a != free.end(); ++a)
      for (auto b = free.begin(); b != free.end(); ++b) {
        const bool stacked = a->y + a->height == b->y && a->width == b->width && a->x == b->x;
        const bool beside = a->x + a->width == b->x && a->height == b->height && a->y == b->y;
        if (!stacked && !beside) continue;
        free.push_front(stacked ? rect{a->x, a->y, a->width, a->height + b->height}
                                : rect{a->x, a->y, a->width + b->width, a->height});
        free.erase(a);
        free.erase(b);
        return true;
      }
    return false;
  }
};

}  // namespace morlu::test
