// Best area fit with guillotine cuts, after J. Jylänki, "A Thousand Ways to Pack the Bin" (2010),
// with rectangles joined again after every cut.
//
// The list is a row of slots with stamps. A pair that can be joined has a rectangle that is new
// since the last merge, which left none, so the others are compared with those few only.

#include "materials/atlas_packer.h"

#include <algorithm>

#include "materials/rect_join.h"

namespace morlu::osg {

std::uint32_t free_rects::add(const free_rect& rect) {
  std::uint32_t at = static_cast<std::uint32_t>(slots_.size());
  if (unused_.empty()) {
    slots_.push_back({rect, stamps_});
  } else {
    at = unused_.back();
    unused_.pop_back();
    slots_[at] = {rect, stamps_};
  }
  ++stamps_;
  ++live_;
  return at;
}

void free_rects::remove(std::uint32_t at) {
  slots_[at].rect = {};
  unused_.push_back(at);
  std::erase(fresh_, at);
  --live_;
}

std::optional<page_place> free_rects::take(std::uint64_t width, std::uint64_t height) {
  if (width == 0 || height == 0 || std::max(width, height) >= none) return std::nullopt;
  const auto w = static_cast<std::uint32_t>(width), h = static_cast<std::uint32_t>(height);
  const std::uint32_t best = best_for(w, h);
  if (best == none) return std::nullopt;
  const free_rect from = slots_[best].rect;
  remove(best);
  if (h < from.height) fresh_.push_back(add({from.x, from.y + h, from.width, from.height - h}));
  if (w < from.width) fresh_.push_back(add({from.x + w, from.y, from.width - w, h}));
  merge();
  return page_place{from.x, from.y};
}

std::uint32_t free_rects::best_for(std::uint32_t width, std::uint32_t height) const {
  std::uint32_t best = none, best_area = none, best_stamp = 0;
  for (std::uint32_t i = 0; i < slots_.size(); ++i) {
    const auto& [rect, stamp] = slots_[i];
    if (rect.width < width || rect.height < height) continue;
    const std::uint32_t area = rect.width * rect.height;
    if (area > best_area || (area == best_area && stamp < best_stamp)) continue;
    best = i;
    best_area = area;
    best_stamp = stamp;
  }
  return best;
}

void free_rects::merge() {
  while (const auto found = first_pair()) {
    const free_rect both = joined(slots_[found->a].rect, slots_[found->b].rect);
    remove(found->a);
    remove(found->b);
    fresh_.push_back(add(both));
  }
  fresh_.clear();
}

std::optional<free_rects::pair> free_rects::first_pair() const {
  std::optional<pair> first;
  const auto consider = [&](std::uint32_t a, std::uint32_t b) {
    if (!joins(slots_[a].rect, slots_[b].rect)) return;
    const auto order = [this](const pair& p) {
      return std::pair(slots_[p.a].stamp, slots_[p.b].stamp);
    };
    if (!first || order({a, b}) > order(*first)) first = {a, b};
  };
  for (const std::uint32_t fresh : fresh_) {
    const free_rect& rect = slots_[fresh].rect;
    for (std::uint32_t i = 0; i < slots_.size(); ++i) {
      if (slots_[i].rect.x != rect.x && slots_[i].rect.y != rect.y) continue;
      consider(fresh, i);
      consider(i, fresh);
    }
  }
  return first;
}

std::vector<free_rect> free_rects::in_order() const {
  std::vector<slot> live;
  for (const slot& each : slots_)
    if (each.rect.width != 0) live.push_back(each);
  std::ranges::sort(live, std::greater(), &slot::stamp);
  std::vector<free_rect> rects;
  rects.reserve(live.size());
  for (const slot& each : live) rects.push_back(each.rect);
  return rects;
}

}  // namespace morlu::osg
