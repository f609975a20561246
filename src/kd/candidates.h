#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "ray/bih_partition.h"

/// The coordinates of elements at which a plane can stand.
namespace morlu {

/// An element on its way through a build.
using kd_record = bih_record;
using kd_run = std::span<const kd_record>;

inline float centre_of(const kd_record& element, int axis) {
  return (element.high[axis] - element.low[axis]) * 0.5f + element.low[axis];
}
/// Whether an element counts on an axis. No centre is finite where an end is not.
inline bool is_usable(const kd_record& element, int axis) {
  return std::isfinite(centre_of(element, axis));
}

/// Where elements begin and where they end, each list in ascending order: what a walk from the
/// lowest coordinate to the highest meets. All finite, and no zero has a sign.
struct key_lists {
  std::vector<float> lows;   // of elements with an extent
  std::vector<float> ends;   // of the same: their centres, or their highest coordinates
  std::vector<float> flats;  // of those without an extent
  std::vector<float> spare;  // room for sorting

  void clear() {
    lows.clear();
    ends.clear();
    flats.clear();
  }
  void sort();
};

/// What is left, right and on both sides of a plane. Unsigned: an element that ends where it begins
/// can take `straddling` below 0.
struct side_counts {
  std::uint32_t left, right, straddling;
};

/// Visits each coordinate once, ascending, with the counts of a plane there: left is what begins
/// below, right what ends above, an element without extent is right of a plane at its place.
/// `counts` are those below all keys. Puts an end mark on the lists.
template <class Visit>
void walk_candidates(key_lists& keys, side_counts counts, Visit visit) {
  constexpr float beyond = std::numeric_limits<float>::infinity();
  keys.lows.push_back(beyond);
  keys.ends.push_back(beyond);
  keys.flats.push_back(beyond);
  const float *low = keys.lows.data(), *end = keys.ends.data(), *flat = keys.flats.data();
  for (;;) {
    const float lower = *low < *end ? *low : *end;
    const float at = lower < *flat ? lower : *flat;
    if (at == beyond) return;
    for (; *end == at; ++end) {
      --counts.right;
      --counts.straddling;
    }
    visit(at, counts);
    for (; *low == at; ++low) {
      ++counts.left;
      ++counts.straddling;
    }
    for (; *flat == at; ++flat) {
      ++counts.left;
      --counts.right;
    }
  }
}

}  // namespace morlu
