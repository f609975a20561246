#pragma once

#include "kd/candidates.h"
#include "kd/compile_tree.h"
#include "morlu/primitives.h"

/// Where to put the plane of a node.
namespace morlu {

/// A plane along an axis. One at a side of the node's box parts nothing: the node is a leaf.
struct kd_plane {
  int axis;
  float at;
};

/// A strategy chooses the plane for a run of elements whose cell is `box`, the longest axis of
/// which is `axis`. `keys` is room to work in. Strategies have no state and throw only
/// `std::bad_alloc`.
template <class Strategy>
concept kd_strategy = requires(const Strategy& strategy, kd_run run, const kd_build_setup& setup,
                               const bounding_box& box, int axis, key_lists& keys) {
  { strategy.choose(run, setup, box, axis, keys) } -> std::same_as<kd_plane>;
};

/// Of all planes through the lower end or the centre of an element that leave something on either
/// side, the one with the least |left - right| + straddling; of equal ones the first, axis by axis.
/// The middle of the box on `axis` if there is none. An element whose centre is not finite is right
/// of all planes; if a bound is NaN, two lines on standard output say so for each axis. O(elements)
/// for all but odd distributions, where it is O(elements x log elements).
struct kd_strategy_ObjMedian {
  kd_plane choose(kd_run run, const kd_build_setup& setup, const bounding_box& box, int axis,
                  key_lists& keys) const;
};

/// Of all planes through an end of an element, the one at which a random ray through the box costs
/// least, if that is less than testing all elements; else the lower side of the box on `axis`. An
/// element whose centre is not finite is right of all planes. O(elements x log elements).
struct kd_strategy_SurfaceArea {
  kd_plane choose(kd_run run, const kd_build_setup& setup, const bounding_box& box, int axis,
                  key_lists& keys) const;
};

}  // namespace morlu
