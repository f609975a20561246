#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

namespace morlu::test {

/// The layout of tiles on a rectangle of free size as it is described: sorted lists, walked from
/// their start at every step. Tiles have sides above 0.
class plain_layout {
 public:
  struct rect {
    std::int64_t height, width, x, y;

    auto operator<=>(const rect&) const = default;
    bool overlaps(const rect& r) const {
      return x < r.x + r.width && r.x < x + width && y < r.y + r.height && r.y < y + height;
    }
  };
  std::vector<rect> placements;  // in the order in which they were given out
  std::int64_t width = 1, height = 1;
  bool had_overlap = false;

  plain_layout(const std::vector<std::pair<std::int64_t, std::int64_t>>& tiles,
               std::uint32_t max_size) {
    for (const auto& [w, h] : tiles) ++groups_[{-h, -w}];
    if (groups_.empty()) return;
    run(max_size);
    for (std::size_t i = 0; i < placements.size(); ++i)
      for (std::size_t j = 0; j < i; ++j)
        had_overlap = had_overlap || placements[i].overlaps(placements[j]);
    keep_clear_ = had_overlap;
    if (had_overlap) run(max_size);
  }

  static std::int64_t columns(std::int64_t n, std::int64_t w, std::int64_t h) {
    const auto root = std::llround(std::sqrt(static_cast<double>(n)));
    if (root * root == n) return root;
    if (n == 2) return 2;
    if (n == 3 || n == 5 || n == 6) return 3;
    if (n == 7 || n == 8) return 4;
    if (n == 10) return 5;
    std::int64_t best = n, best_waste = 100000, best_diff = 1000;
    for (std::int64_t k = 3; k <= n / 3; ++k) {
      const std::int64_t r = (n + k - 1) / k, waste = r * k - n, diff = std::abs(r - k);
      if (waste < best_waste || (waste == best_waste && diff < best_diff))
        std::tie(best, best_waste, best_diff) = std::tuple(r, waste, diff);
    }
    if (!(2 * w < h) && best != 1) --best;
    if (!(2 * h < w)) ++best;
    return best;
  }

 private:
  void run(std::uint32_t max_size) {
    placements.clear();
    free_.clear();
    const std::int64_t w0 = -groups_.begin()->first.second, h0 = -groups_.begin()->first.first;
    std::int64_t count = groups_.begin()->second, widest = 0;
    if (groups_.size() == 1) {
      const std::int64_t c = columns(count, w0, h0);
      for (std::int64_t i = 0; i < count; ++i)
        placements.push_back({h0, w0, i % c * w0, i / c * h0});
      width = c * w0;
      height = h0 + placements.back().y;
      return;
    }
    double others = 0;
    for (const auto& [key, n] : groups_) {
      const auto w = static_cast<double>(-key.second), h = static_cast<double>(-key.first);
      widest = std::max(widest, -key.second);
      if (key != groups_.begin()->first)
        others += static_cast<double>(n) /
                  ((static_cast<double>(w0) / w) * (static_cast<double>(h0) / h));
    }
    limit_ =
        std::max(columns(count + static_cast<std::int64_t>(others + 0.5), w0, h0) * w0, widest);
    if (max_size >= 1 && max_size <= 8192) limit_ = std::min<std::int64_t>(limit_, max_size);
    cursor_x_ = cursor_y_ = 0;
    total_height_ = h0;
    for (const auto& [key, n] : groups_) place_group(-key.second, -key.first, n);
    width = 0;
    for (const rect& r : placements) width = std::max(width, r.x + r.width);
    height = total_height_;
  }

  void place_group(std::int64_t w, std::int64_t h, std::int64_t left) {
    const std::int64_t start_x = cursor_x_, start_y = cursor_y_;
    bool opened = false, wrapped = false;
    while (left > 0 && take_free(w, h)) --left;
    for (; left > 0; --left) {
      if (cursor_x_ + w > limit_) {
        if (limit_ - cursor_x_ > 0) add_free({h, limit_ - cursor_x_, cursor_x_, cursor_y_});
        if (cursor_y_ + 2 * h >= total_height_ || w + start_x >= limit_) {
          if (cursor_y_ + h < total_height_)
            add_free({total_height_ - h - cursor_y_, limit_ - start_x, start_x, cursor_y_ + h});
          merge_free();
          cursor_y_ = total_height_;
          cursor_x_ = 0;
          total_height_ += h;
          opened = true;
        } else {
          cursor_x_ = start_x;
          cursor_y_ += h;
          wrapped = true;
        }
      }
      placements.push_back({h, w, cursor_x_, cursor_y_});
      cursor_x_ += w;
    }
    if (opened || start_x == 0 || total_height_ - h - start_y < 1 || cursor_y_ >= total_height_)
      return;
    if (!wrapped)
      add_free({total_height_ - h - start_y, cursor_x_ - start_x, start_x, start_y + h});
    else if (cursor_y_ + h < total_height_ && limit_ - cursor_x_ >= 1)
      add_free(
          {total_height_ - h - cursor_y_,
           keep_clear_ ? std::min(limit_ - cursor_x_, cursor_x_ - start_x) : limit_ - cursor_x_,
           start_x, cursor_y_ + h});
  }

  /// Sorted by height, then width; of equal ones the older first.
  void add_free(const rect& r) {
    const auto by_size = [](const rect& a, const rect& b) {
      return std::pair(a.height, a.width) < std::pair(b.height, b.width);
    };
    if (r.width > 0 && r.height > 0)
      free_.insert(std::upper_bound(free_.begin(), free_.end(), r, by_size), r);
  }

  bool take_free(std::int64_t w, std::int64_t h) {
    for (std::size_t i = 0; i < free_.size(); ++i) {
      const rect r = free_[i];
      if (r.width < w || r.height < h) continue;
      free_.erase(free_.begin() + static_cast<std::ptrdiff_t>(i));
      add_free({r.height - h, w, r.x, r.y + h});
      add_free({r.height, r.width - w, r.x + w, r.y});
      placements.push_back({h, w, r.x, r.y});
      return true;
    }
    return false;
  }

  void merge_free() {
    while (merge_first_pair()) {
    }
  }

  bool merge_first_pair() {
    for (auto a = free_.begin(); a != free_.end(); ++a)
      for (auto b = free_.begin(); b != free_.end(); ++b) {
        const bool beside = a->x + a->width == b->x && a->y == b->y && a->height == b->height;
        const bool below = a->x == b->x && a->y + a->height == b->y && a->width == b->width;
        if (!beside && !below) continue;
        const rect both{a->height + (below ? b->height : 0), a->width + (beside ? b->width : 0),
                        a->x, a->y};
        free_.erase(std::max(a, b));
        free_.erase(std::min(a, b));
        add_free(both);
        return true;
      }
    return false;
  }

  std::map<std::pair<std::int64_t, std::int64_t>, std::int64_t> groups_;  // by -height, -width
  std::vector<rect> free_;
  std::int64_t limit_ = 0, cursor_x_ = 0, cursor_y_ = 0, total_height_ = 0;
  bool keep_clear_ = false;
};

}  // namespace morlu::test
