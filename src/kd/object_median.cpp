// The plane with even sides and few elements on both.
//
// The cost of a plane, |left - right| + straddling, is 2 max(left, right) - count, for what stands
// on both sides is left + right - count. From the lowest coordinate to the highest, left only rises
// and right only falls, so the cost falls as long as right is larger and rises from then on: the
// best plane is the first one at which left has caught up, or one before it at which right is just
// as low. Counting elements in bins tells where that is, and only the keys of a few bins are
// sorted. docs/kd_strategies.md has the reasons and the figures.

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>
#include <utility>

#include "kd/strategies.h"

namespace morlu {

namespace {

/// The best plane so far, in unsigned arithmetic as the counts are.
struct best_plane {
  std::uint32_t cost = 0xFFFFFFFF;
  kd_plane plane{-1, 0};

  bool is_found() const { return plane.axis >= 0; }
  /// Axes may come in any order; an earlier one wins a tie.
  bool would_take(std::uint32_t other_cost, int axis) const {
    return other_cost < cost || (other_cost == cost && axis < plane.axis);
  }
  void offer(std::uint32_t other_cost, const kd_plane& other) {
    if (!would_take(other_cost, other.axis)) return;
    cost = other_cost;
    plane = other;
  }
};

// --- All planes of an axis -----------------------------------------------------------------------

void report_nan(const kd_record& element, int axis) {
  std::cout << "Found NAN in kd_strategy_ObjMedian!" << std::endl;
  std::cout << "AXIS: " << axis << " Index: " << element.element << " MIN: " << element.low[axis]
            << " MAX: " << element.high[axis] << std::endl;
}

void add_keys(const kd_record& element, int axis, key_lists& keys) {
  const float low = element.low[axis] + 0.0f;
  if (low == element.high[axis]) {
    keys.flats.push_back(low);
  } else {
    keys.lows.push_back(low);
    keys.ends.push_back(centre_of(element, axis) + 0.0f);
  }
}

void try_all(kd_run run, int axis, key_lists& keys, best_plane& best) {
  keys.clear();
  for (const kd_record& element : run) {
    if (is_usable(element, axis)) {
      add_keys(element, axis, keys);
    } else if (std::isnan(element.low[axis]) || std::isnan(element.high[axis])) {
      report_nan(element, axis);
    }
  }
  keys.sort();
  const auto count = static_cast<std::uint32_t>(run.size());
  walk_candidates(keys, {0, count, 0}, [&](float at, const side_counts& counts) {
    const auto [left, right, straddling] = counts;
    if (left == 0 || right == 0) return;
    const std::uint32_t difference = left < right ? right - left : left - right;
    best.offer(difference + straddling, {axis, at});
  });
}

// --- Counting in bins ----------------------------------------------------------------------------

// Four axes, of which the fourth is not used.
using floats = float __attribute__((vector_size(16)));
using ints = std::int32_t __attribute__((vector_size(16)));

struct ends {
  floats low, centre;
};

ends ends_of(const kd_record& element) {
  constexpr ints three_axes{-1, -1, -1, 0};
  ints low_bits;
  floats high;
  std::memcpy(&low_bits, element.low, sizeof low_bits);
  std::memcpy(&high, element.high, sizeof high);
  const auto low = reinterpret_cast<floats>(low_bits & three_axes);  // the element's number is off
  return {low, (high - low) * 0.5f + low};
}

struct run_range {
  floats low, high;
  bool is_usable;  // all elements on all axes
};

run_range range_of(kd_run run) {
  floats low, high;
  low = high = ends_of(run[0]).low;
  floats sum_of_nothing{};  // stays 0 while all centres are finite
  for (const kd_record& element : run) {
    const auto [from, centre] = ends_of(element);
    sum_of_nothing += centre - centre;
    const floats lower = from < centre ? from : centre;
    const floats upper = from < centre ? centre : from;
    low = lower < low ? lower : low;
    high = upper > high ? upper : high;
  }
  return {low, high, sum_of_nothing[0] == 0 && sum_of_nothing[1] == 0 && sum_of_nothing[2] == 0};
}

/// Bins of equal width over a range, whose numbers rise with the coordinates. What lies beyond
/// counts to the outermost.
class bin_scale {
 public:
  bin_scale(const run_range& range, std::uint32_t bins) : origin_(range.low) {
    for (int axis = 0; axis < 3; ++axis) {
      const float scale = static_cast<float>(bins) / (range.high[axis] - range.low[axis]);
      scale_[axis] = std::isfinite(scale) ? scale : 0;  // all in one bin
    }
    const auto last = static_cast<float>(bins - 1);
    last_ = floats{last, last, last, last};
  }
  ints of(floats at) const {
    const floats bin = (at - origin_) * scale_;
    return __builtin_convertvector(bin < last_ ? bin : last_, ints);
  }
  std::int32_t of(float at, int axis) const {
    const float bin = (at - origin_[axis]) * scale_[axis];
    return static_cast<std::int32_t>(bin < last_[axis] ? bin : last_[axis]);
  }

 private:
  floats origin_, scale_{}, last_;
};

constexpr std::uint32_t most_bins = 1024;  // tables of all axes in the nearest cache

struct bin_counts {
  std::array<std::uint32_t, most_bins> lows, centres;
};

void count_in_bins(kd_run run, const bin_scale& scale, std::array<bin_counts, 3>& counts) {
  for (const kd_record& element : run) {
    const auto [low, centre] = ends_of(element);
    const ints low_bins = scale.of(low), centre_bins = scale.of(centre);
    for (int axis = 0; axis < 3; ++axis) {
      ++counts[axis].lows[low_bins[axis]];
      ++counts[axis].centres[centre_bins[axis]];
    }
  }
}

/// The bins that the planes on either side of the turn of the cost lie in, and what lies below.
struct window {
  int axis;
  std::int32_t first, last;     // bins
  std::uint32_t lows, centres;  // in bins below
  std::int64_t least;           // no plane along the axis costs less
};

/// The turn is where lows below and centres up to a plane make `count`; elements without extent are
/// both. The bins before and behind may hold the last plane before the turn and the first one from
/// there on.
window find_window(int axis, const bin_counts& counts, std::uint32_t bins, std::uint32_t count) {
  window found{axis, 0, 0, 0, 0, 0};
  std::uint32_t bin = 0, lows = 0, centres = 0;
  for (;; ++bin) {
    const std::uint32_t more_lows = counts.lows[bin], more_centres = counts.centres[bin];
    if (lows + centres + more_lows + more_centres >= count) break;
    if (more_lows + more_centres > 0) {
      found.first = static_cast<std::int32_t>(bin);
      found.lows = lows;
      found.centres = centres;
    }
    lows += more_lows;
    centres += more_centres;
  }
  if (lows + centres == 0) found.first = static_cast<std::int32_t>(bin);
  const std::uint32_t right = count - centres - counts.centres[bin];
  found.least = 2 * std::int64_t{std::max(lows, right)} - count;
  while (++bin < bins && counts.lows[bin] + counts.centres[bin] == 0) {
  }
  found.last = static_cast<std::int32_t>(std::min(bin, bins - 1));
  return found;
}

// --- The best plane of an axis -------------------------------------------------------------------

void collect_all(kd_run run, int axis, key_lists& keys) {
  keys.clear();
  for (const kd_record& element : run) add_keys(element, axis, keys);
}

void collect_window(kd_run run, const bin_scale& scale, const window& of, key_lists& keys) {
  keys.clear();
  // One comparison: whether a key is below or above the window is as good as random.
  const auto bins = static_cast<std::uint32_t>(of.last - of.first);
  const auto is_inside = [&](float key) {
    return static_cast<std::uint32_t>(scale.of(key, of.axis) - of.first) <= bins;
  };
  for (const kd_record& element : run) {
    const float low = element.low[of.axis] + 0.0f;
    const float centre = centre_of(element, of.axis) + 0.0f;
    const bool has_low = is_inside(low), has_centre = is_inside(centre);
    if (!(has_low | has_centre)) continue;
    if (low == element.high[of.axis]) {
      keys.flats.push_back(low);
      continue;
    }
    if (has_low) keys.lows.push_back(low);
    if (has_centre) keys.ends.push_back(centre);
  }
}

template <class Chosen>
std::uint32_t count_of(const std::vector<float>& keys, Chosen chosen) {
  std::uint32_t sum = 0;
  for (const float key : keys) sum += chosen(key);
  return sum;
}

/// What a plane at a key of the window leaves on its sides.
side_counts counts_at(float plane, const window& of, std::uint32_t count, const key_lists& keys) {
  const auto is_below = [plane](float key) { return key < plane; };
  const auto is_passed = [plane](float key) { return key <= plane; };
  const std::uint32_t flats = count_of(keys.flats, is_below);
  const std::uint32_t left = of.lows + count_of(keys.lows, is_below) + flats;
  const std::uint32_t passed = of.centres + count_of(keys.ends, is_passed) + flats;
  return {left, count - passed, left + passed - count};
}

constexpr float infinite = std::numeric_limits<float>::infinity();

/// The last plane before the turn and the first one from there on; infinite without one.
std::pair<float, float> planes_around_turn(const window& of, std::uint32_t count, key_lists& keys) {
  // The key with which lows and centres make `count` is one of them.
  std::vector<float>& all = keys.spare;
  all = keys.lows;
  for (const auto* more : {&keys.ends, &keys.flats, &keys.flats})
    all.insert(all.end(), more->begin(), more->end());
  const auto at = all.begin() + static_cast<std::ptrdiff_t>(count - of.lows - of.centres - 1);
  std::nth_element(all.begin(), at, all.end());

  const side_counts counts = counts_at(*at, of, count, keys);
  float before = -infinite, behind = infinite;
  if (counts.left >= counts.right) {
    for (auto key = all.begin(); key != at; ++key)
      if (*key < *at) before = std::max(before, *key);
    return {before, *at};
  }
  for (auto key = at; key != all.end(); ++key)
    if (*key > *at) behind = std::min(behind, *key);
  return {*at, behind};
}

/// The first plane with no more on its right than `plane` and something on its left: the one
/// through the last centre, or the next one behind the last element without extent.
float first_of_level(kd_run run, int axis, float plane) {
  float lowest = plane, last_centre = -infinite, last_flat = -infinite;
  for (const kd_record& element : run) {
    const float low = element.low[axis], centre = centre_of(element, axis);
    const bool is_flat = low == element.high[axis];
    const bool is_last_flat = is_flat & (low < plane) & (low > last_flat);
    const bool is_last_centre = !is_flat & (centre <= plane) & (centre > last_centre);
    lowest = low < lowest ? low : lowest;
    last_flat = is_last_flat ? low : last_flat;
    last_centre = is_last_centre ? centre : last_centre;
  }
  const float behind = std::max(lowest, last_flat);
  if (last_centre > behind) return last_centre + 0.0f;
  for (const kd_record& element : run)
    for (const float key : {element.low[axis], centre_of(element, axis)})
      if (key > behind && key < plane) plane = key;
  return plane + 0.0f;
}

/// What `try_all` does for elements that are all usable, in linear time. `keys` are those in the
/// window.
void try_window(kd_run run, const window& of, key_lists& keys, best_plane& best) {
  const auto count = static_cast<std::uint32_t>(run.size());
  constexpr std::int64_t none = std::numeric_limits<std::int64_t>::max();
  const auto cost_at = [&](float plane) {
    if (std::isinf(plane)) return none;
    const auto [left, right, straddling] = counts_at(plane, of, count, keys);
    return left == 0 || right == 0 ? none : 2 * std::int64_t{std::max(left, right)} - count;
  };
  const auto [before, behind] = planes_around_turn(of, count, keys);
  const std::int64_t cost_before = cost_at(before), cost_behind = cost_at(behind);
  const std::int64_t least = std::min(cost_before, cost_behind);
  if (least == none) return;
  // Elements that end where they begin can make it negative, which is a large unsigned number.
  if (least < 0) return try_all(run, of.axis, keys, best);
  const auto cost = static_cast<std::uint32_t>(least);
  if (!best.would_take(cost, of.axis)) return;
  best.offer(cost, {of.axis, least == cost_before ? first_of_level(run, of.axis, before) : behind});
}

/// Counts in bins and looks closely at the axes that can have the best plane.
void try_bins(kd_run run, const run_range& range, key_lists& keys, best_plane& best) {
  const auto count = static_cast<std::uint32_t>(run.size());
  const std::uint32_t bins = std::min(count / 4, most_bins);
  const bin_scale scale(range, bins);
  std::array<bin_counts, 3> counts;
  for (bin_counts& of : counts) {
    std::fill_n(of.lows.begin(), bins, 0u);
    std::fill_n(of.centres.begin(), bins, 0u);
  }
  count_in_bins(run, scale, counts);

  std::array<window, 3> windows;
  for (int axis = 0; axis < 3; ++axis) windows[axis] = find_window(axis, counts[axis], bins, count);
  std::sort(windows.begin(), windows.end(), [](const window& a, const window& b) {
    return std::pair(a.least, a.axis) < std::pair(b.least, b.axis);
  });
  for (const window& of : windows) {
    const auto least = static_cast<std::uint32_t>(std::max<std::int64_t>(of.least, 0));
    if (!best.would_take(least, of.axis)) continue;
    collect_window(run, scale, of, keys);
    try_window(run, of, keys, best);
  }
}

}  // namespace

kd_plane kd_strategy_ObjMedian::choose(kd_run run, const kd_build_setup&, const bounding_box& box,
                                       int axis, key_lists& keys) const {
  constexpr std::size_t few = 128;  // all their keys are fewer than bins would be worth
  best_plane best;
  const run_range range = range_of(run);
  if (!range.is_usable) {
    for (int a = 0; a < 3; ++a) try_all(run, a, keys, best);
  } else if (run.size() > few) {
    try_bins(run, range, keys, best);
  } else {
    for (int a = 0; a < 3; ++a) {
      collect_all(run, a, keys);
      try_window(run, {a, 0, 0, 0, 0, 0}, keys, best);
    }
  }
  if (best.is_found()) return best.plane;
  return {axis, box.size[axis] * 0.5f + box.min[axis]};
}

}  // namespace morlu
