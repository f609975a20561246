// Rectangles that can be joined are found by the edges that they share, so that only those with a
// new neighbour are looked at.

#include "materials/free_space.h"

#include <algorithm>

#include "materials/rect_join.h"

namespace morlu::osg {

free_space::edges free_space::begin_of(const layout_rect& rect) {
  return {{false, rect.x, rect.y, rect.height}, {true, rect.x, rect.y, rect.width}};
}

free_space::edges free_space::end_of(const layout_rect& rect) {
  return {{false, rect.x + rect.width, rect.y, rect.height},
          {true, rect.x, rect.y + rect.height, rect.width}};
}

void free_space::add(const layout_rect& rect) {
  if (rect.width < 1 || rect.height < 1) return;
  const strip added{rect, serials_++};
  strips_.insert(added);
  unsettled_.insert(added);
  const auto [left, top] = begin_of(rect);
  for (const edge& each : {left, top}) {
    begins_.emplace(each, added);
    for (auto at = ends_.lower_bound({each, {}}); at != ends_.end() && at->first == each; ++at)
      unsettled_.insert(at->second);
  }
  const auto [right, bottom] = end_of(rect);
  for (const edge& each : {right, bottom}) ends_.emplace(each, added);
}

void free_space::remove(const strip& taken) {
  const auto [left, top] = begin_of(taken.rect);
  const auto [right, bottom] = end_of(taken.rect);
  for (const edge& each : {left, top}) begins_.erase({each, taken});
  for (const edge& each : {right, bottom}) ends_.erase({each, taken});
  unsettled_.erase(taken);
  strips_.erase(taken);
}

std::optional<page_point> free_space::take(std::int64_t width, std::int64_t height) {
  const auto found = std::find_if(strips_.lower_bound({{width, height, 0, 0}, 0}), strips_.end(),
                                  [&](const strip& each) { return each.rect.width >= width; });
  if (found == strips_.end()) return std::nullopt;
  const strip taken = *found;
  const layout_rect& from = taken.rect;
  remove(taken);
  add({width, from.height - height, from.x, from.y + height});
  add({from.width - width, from.height, from.x + width, from.y});
  return page_point{from.x, from.y};
}

const free_space::strip* free_space::partner_of(const strip& a) const {
  const strip* first = nullptr;
  const auto [right, bottom] = end_of(a.rect);
  for (const edge& each : {right, bottom}) {
    const auto at = begins_.lower_bound({each, {}});
    if (at == begins_.end() || at->first != each) continue;
    if (!first || at->second < *first) first = &at->second;
  }
  return first;
}

void free_space::join() {
  while (!unsettled_.empty()) {
    const strip a = *unsettled_.begin();
    if (const strip* partner = partner_of(a)) {
      const strip b = *partner;
      remove(a);
      remove(b);
      add(joined(a.rect, b.rect));
    } else {
      unsettled_.erase(unsettled_.begin());
    }
  }
}

}  // namespace morlu::osg
