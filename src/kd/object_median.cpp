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

#include "kd/strategies.h"

namespace morlu {

namespace {

/// The best plane so far, in unsigned arithmetic as the counts are.
struct best_plane {
  std::uint32_t cost = 0xFFFFFFFF;
  kd_plane plane{-1, 0};

  bool is_found() const { return plane.axis >= 0; }
  /// Costs may come in any order of axes; an earlier one wins a tie.
  void offer(std::uint32_t other_cost, const kd_plane& other) {
    if (other_cost > cost || (other_cost == cost && other.axis >= plane.axis)) return;
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

void collect_window(kd_run run, const bin_scale& scale, const window& of, key_lists& keys) {
  keys.clear();
  const auto is_inside = [&](float key) {
    const std::int32_t bin = scale.of(key, of.axis);
    return bin >= of.first && bin <= of.last;
  };
  for (const kd_record& element : run) {
    const float low = element.low[of.axis] + 0.0f;
    const float centre = centre_of(element, of.axis) + 0.0f;
    const bool has_low = is_inside(low), has_centre = is_inside(centre);
    if (!has_low && !has_centre) continue;
    if (low == element.high[of.axis]) {
      keys.flats.push_back(low);
      continue;
    }
    if (has_low) keys.lows.push_back(low);
    if (has_centre) keys.ends.push_back(centre);
  }
  keys.sort();
}

/// Where right became as low as it is at `plane` from the bins below the window on: the first plane
/// from the last centre there, behind the last element without extent there and with something on
/// its left.
float first_of_level(kd_run run, const bin_scale& scale, const window& of, float plane) {
  constexpr float below_all = -std::numeric_limits<float>::infinity();
  float lowest = plane, last_centre = below_all, last_flat = below_all;
  for (const kd_record& element : run) {
    const float low = element.low[of.axis], centre = centre_of(element, of.axis);
    lowest = std::min(lowest, low);
    if (scale.of(centre, of.axis) >= of.first) continue;
    float& last = low == element.high[of.axis] ? last_flat : last_centre;
    last = std::max(last, centre);
  }
  const float behind = std::max(lowest, last_flat);
  if (last_centre > behind) return last_centre + 0.0f;
  for (const kd_record& element : run)
    for (const float key : {element.low[of.axis], centre_of(element, of.axis)})
      if (key > behind && key < plane) plane = key;
  return plane + 0.0f;
}

/// What `try_all` does for elements that are all usable, in linear time.
void try_window(kd_run run, const bin_scale& scale, const window& of, key_lists& keys,
                best_plane& best) {
  const auto count = static_cast<std::uint32_t>(run.size());
  const std::uint32_t right_of_below = count - of.centres;
  std::int64_t least = std::numeric_limits<std::int64_t>::max();
  side_counts at_least{};
  float plane = 0;
  collect_window(run, scale, of, keys);
  walk_candidates(keys, {of.lows, right_of_below, 0}, [&](float at, const side_counts& counts) {
    const std::int64_t cost = 2 * std::int64_t{std::max(counts.left, counts.right)} - count;
    if (counts.left == 0 || counts.right == 0 || cost >= least) return;
    least = cost;
    at_least = counts;
    plane = at;
  });
  if (at_least.left == 0) return;
  // Elements that end where they begin can make it negative, which is a large unsigned number.
  if (least < 0) return try_all(run, of.axis, keys, best);
  if (at_least.right == right_of_below && at_least.right >= at_least.left)
    plane = first_of_level(run, scale, of, plane);
  best.offer(static_cast<std::uint32_t>(least), {of.axis, plane});
}

void try_windows(kd_run run, const run_range& range, key_lists& keys, best_plane& best) {
  // As many keys stay in the window as there are bins to look through.
  const auto count = static_cast<std::uint32_t>(run.size());
  const std::uint32_t bins = std::clamp(count / 4, 16u, most_bins);
  const bin_scale scale(range, bins);
  std::array<bin_counts, 3> counts;
  for (bin_counts& of : counts) {
    std::fill_n(of.lows.begin(), bins, 0u);
    std::fill_n(of.centres.begin(), bins, 0u);
  }
  count_in_bins(run, scale, counts);

  std::array<window, 3> windows;
  for (int axis = 0; axis < 3; ++axis) windows[axis] = find_window(axis, counts[axis], bins, count);
  std::stable_sort(windows.begin(), windows.end(),
                   [](const window& a, const window& b) { return a.least < b.least; });
  for (const window& of : windows) {
    const bool is_late = best.is_found() && of.axis > best.plane.axis;
    if (of.least + (is_late ? 1 : 0) <= std::int64_t{best.cost})
      try_window(run, scale, of, keys, best);
  }
}

}  // namespace

kd_plane kd_strategy_ObjMedian::choose(kd_run run, const kd_build_setup&, const bounding_box& box,
                                       int axis, key_lists& keys) const {
  constexpr std::size_t few = 64;  // are sorted in less time than bins take
  best_plane best;
  const run_range range = run.size() > few ? range_of(run) : run_range{};
  if (range.is_usable)
    try_windows(run, range, keys, best);
  else
    for (int a = 0; a < 3; ++a) try_all(run, a, keys, best);
  if (best.is_found()) return best.plane;
  return {axis, box.size[axis] * 0.5f + box.min[axis]};
}

}  // namespace morlu
