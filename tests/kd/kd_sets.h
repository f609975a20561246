#pragma once

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "kd/object_bounds.h"
#include "morlu/primitives.h"

namespace morlu::test {

/// Boxes in place of elements; nothing cuts them.
struct box_set {
  std::array<std::vector<float>, 3> lows, highs;
  bounding_box box{};

  std::uint64_t size() const { return lows[0].size(); }
  float low(std::uint64_t i, int axis) const { return lows[axis][i]; }
  float high(std::uint64_t i, int axis) const { return highs[axis][i]; }
  void calcBoundingBox() {
    box = bounding_box::empty();
    for (std::size_t i = 0; i < size(); ++i) {
      box.widen({lows[0][i], lows[1][i], lows[2][i]});
      box.widen({highs[0][i], highs[1][i], highs[2][i]});
    }
    box.update_size();
  }
  void add(const std::array<std::pair<float, float>, 3>& ends) {
    for (int axis = 0; axis < 3; ++axis) {
      lows[axis].push_back(ends[axis].first);
      highs[axis].push_back(ends[axis].second);
    }
  }
};

/// Objects as a scene will hold them: rows an axis, of which the last may be missing.
struct object_set {
  osg::bounds_rows lows, highs;
  unsigned count = 0;    // objects
  unsigned bounded = 0;  // those with bounds
  bounding_box box{};

  explicit object_set(const box_set& boxes, unsigned missing = 0)
      : lows(rows_of(boxes.lows)),
        highs(rows_of(boxes.highs)),
        count(static_cast<unsigned>(boxes.size())),
        bounded(count - missing) {}
  std::uint64_t size() const { return count; }
  void axis_min_max(unsigned i, int axis, float& low, float& high) const {
    read_object_bounds(lows, highs, bounded, i, axis, low, high);
  }

 private:
  static osg::bounds_rows rows_of(const std::array<std::vector<float>, 3>& from) {
    auto rows = std::make_unique<std::unique_ptr<float[]>[]>(3);
    for (int axis = 0; axis < 3; ++axis) {
      rows[axis] = std::make_unique<float[]>(from[axis].size());
      std::copy(from[axis].begin(), from[axis].end(), rows[axis].get());
    }
    return rows;
  }
};

/// How the coordinates of an axis are spread.
enum class spread {
  even,       // small elements all over
  crowded,    // large ones over one another
  grid,       // few different coordinates, many without extent, both zeros among them
  nested,     // large ones that begin left and have their centres right, a few small ones left
  clustered,  // at all scales around one place
  thin,       // as thin as floats can be, so that a centre may be its own lower end
  odd,        // NaN, infinities and what overflows among them
  turned,     // some with the ends exchanged, as boxes of nothing are
  count
};

inline std::pair<float, float> random_ends(spread kind, std::mt19937& random) {
  constexpr float infinite = std::numeric_limits<float>::infinity();
  const auto between = [&](float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
  };
  const auto pick = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
  const float at = between(-10, 10);
  switch (kind) {
    case spread::even:
      return {at, at + between(0, 0.1f)};
    case spread::crowded:
      return {at, at + between(0, 20)};
    case spread::grid: {
      const float from = (static_cast<float>(pick(9)) - 4) * (pick(2) ? 0.5f : -0.5f);
      return {from, from + static_cast<float>(pick(2)) * static_cast<float>(pick(4))};
    }
    case spread::nested: {
      const float from = -std::abs(at);
      if (pick(60) == 0) return {from, from + 0.01f * static_cast<float>(pick(2))};
      return {from, from + 2 * between(10, 20)};
    }
    case spread::clustered: {
      const float from = at * std::pow(10.0f, between(-30, 30));
      return {from, from + std::abs(from) * between(0, 0.5f)};
    }
    case spread::thin: {
      const float from = 1 + static_cast<float>(pick(4)) * std::numeric_limits<float>::epsilon();
      return {from, std::nextafter(from, pick(3) ? 2.0f : 0.0f)};
    }
    case spread::odd: {
      const float odd[] = {std::nanf(""), infinite, -infinite, 3e38f, -3e38f, at, at + 1, 0};
      return {odd[pick(8)], odd[pick(8)]};
    }
    default:
      return pick(4) ? std::pair{at, at + 1} : std::pair{at + 1, at};
  }
}

/// `kinds` by axis; with `rare`, only one element in twenty is of that kind, the others are even.
inline box_set random_boxes(std::size_t count, const std::array<spread, 3>& kinds, bool rare,
                            std::mt19937& random) {
  box_set set;
  for (std::size_t i = 0; i < count; ++i) {
    std::array<std::pair<float, float>, 3> ends;
    for (int axis = 0; axis < 3; ++axis)
      ends[axis] = random_ends(rare && random() % 20 ? spread::even : kinds[axis], random);
    set.add(ends);
  }
  set.calcBoundingBox();
  return set;
}

}  // namespace morlu::test
