// The surface-area heuristic over all ends of elements.
//
// After J. D. MacDonald, K. S. Booth, "Heuristics for ray tracing using space subdivision" (1990).
// Ours counts what stands on both sides once more on the side that a ray is taken to visit first,
// and makes planes that cut nothing cheaper.

#include <algorithm>

#include "kd/strategies.h"

namespace morlu {

namespace {

void collect_keys(kd_run run, int axis, key_lists& keys) {
  keys.clear();
  for (const kd_record& element : run) {
    if (!is_usable(element, axis)) continue;
    const float low = element.low[axis] + 0.0f, high = element.high[axis] + 0.0f;
    if (low == high) {
      keys.flats.push_back(low);
    } else {
      keys.lows.push_back(low);
      keys.ends.push_back(high);
    }
  }
  keys.sort();
}

/// What planes along one axis cost. The share of rays that visit a side is its part of the area:
///
///     side a x (c - min), b, c  ->  2 ((c - min) b + b c + (c - min) c) / area
///
/// and the parts that don't change with the plane are formed once.
struct plane_cost {
  const kd_build_setup& setup;
  float area, b, c, below, above;

  plane_cost(const kd_build_setup& of, const bounding_box& box, int axis)
      : setup(of),
        area((box.size[0] * box.size[1] + box.size[1] * box.size[2] + box.size[0] * box.size[2]) *
             2),
        b(box.size[(axis + 1) % 3]),
        c(box.size[(axis + 2) % 3]),
        below(c * b - box.min[axis] * b - box.min[axis] * c),
        above(box.max[axis] * b + c * b + box.max[axis] * c) {}

  float of_plane(float at, const side_counts& counts) const {
    const auto [left, right, straddling] = counts;
    const float p_left = (at * b + below + at * c) * 2 / area;
    const float p_right = (above - at * b - at * c) * 2 / area;
    const float left_first =
        (static_cast<float>(straddling + left) * p_left + static_cast<float>(right) * p_right) *
        setup.intersect_cost;
    const float right_first =
        (static_cast<float>(straddling + right) * p_right + static_cast<float>(left) * p_left) *
        setup.intersect_cost;
    float cost = setup.cost_scale * std::min(left_first, right_first) + setup.traversal_cost;
    if (straddling == 0 && left >= 1 && right >= 1) cost *= 0.8f;
    return cost;
  }
};

}  // namespace

kd_plane kd_strategy_SurfaceArea::choose(kd_run run, const kd_build_setup& setup,
                                         const bounding_box& box, int axis, key_lists& keys) const {
  const auto count = static_cast<std::uint32_t>(run.size());
  float best = static_cast<float>(count) * setup.intersect_cost;  // of a leaf
  kd_plane plane{axis, box.min[axis]};
  for (int a = 0; a < 3; ++a) {
    const plane_cost costs(setup, box, a);
    collect_keys(run, a, keys);
    walk_candidates(keys, {0, count, 0}, [&](float at, const side_counts& counts) {
      if (setup.no_straddle && counts.straddling != 0) return;
      const float cost = costs.of_plane(at, counts);
      if (!(best > cost)) return;
      best = cost;
      plane = {a, at};
    });
  }
  return plane;
}

}  // namespace morlu
