#pragma once

#include <cmath>
#include <concepts>
#include <cstdint>
#include <iostream>

#include "kd/candidates.h"
#include "morlu/geoset.h"
#include "ray/bih_build.h"
#include "ray/bounding_box.h"

/// What builds ask of the things that they part: elements of a geometry set, or whole objects, of
/// which only bounds are known.
namespace morlu {

/// Objects hand out both ends at once; a number that is none of theirs leaves what was there.
template <class Set>
concept bounded_objects = requires(Set& set, unsigned i, int axis, float& end) {
  { set.size() } -> std::convertible_to<std::uint64_t>;
  set.axis_min_max(i, axis, end, end);
};

/// The ends of object `i` of `count` on an axis, from the rows that hold those of all. Beyond them
/// a line says so and `low` and `high` stay as they are.
inline void read_object_bounds(const osg::bounds_rows& lows, const osg::bounds_rows& highs,
                               std::uint64_t count, std::uint64_t i, int axis, float& low,
                               float& high) {
  if (i >= count) {
    std::cout << "Morlu_osg_scene_Geost::axis_min_max: Index out of bounce. " << std::endl;
    return;
  }
  low = lows[axis][i];
  high = highs[axis][i];
}

/// Writes the records of the elements `first` to `end` - 1, axis by axis in ascending order: an
/// object without bounds has those of the one before it, the first one 0.
template <class Set>
void read_bounds(Set& set, std::uint64_t first, std::uint64_t end, kd_record* to) {
  for (int axis = 0; axis < 3; ++axis) {
    float low = 0, high = 0;
    for (std::uint64_t i = first; i < end; ++i) {
      if constexpr (bounded_objects<Set>) {
        set.axis_min_max(static_cast<unsigned>(i), axis, low, high);
      } else {
        static_assert(bounded_elements<Set>);
        low = set.low(i, axis);
        high = set.high(i, axis);
      }
      to[i - first].low[axis] = low;
      to[i - first].high[axis] = high;
    }
  }
  for (std::uint64_t i = first; i < end; ++i) {
    to[i - first].element = static_cast<std::uint32_t>(i);
    to[i - first].unused = 0;
  }
}

/// Computes `set.box`: that of geometry is exact, that of objects gets some thickness on flat axes.
/// A bound that is no number counts only where there is no other.
template <class Set>
void compute_box(Set& set) {
  if constexpr (bounded_objects<Set>) {
    for (int axis = 0; axis < 3; ++axis) {
      float low = 0, high = 0;
      for (std::uint64_t i = 0; i < set.size(); ++i) {
        set.axis_min_max(static_cast<unsigned>(i), axis, low, high);
        float &least = set.box.min[axis], &most = set.box.max[axis];
        if (i == 0 || low < least || std::isnan(least)) least = low;
        if (i == 0 || high > most || std::isnan(most)) most = high;
      }
    }
    widen_flat_axes(set.box);
  } else {
    set.calcBoundingBox();
  }
}

}  // namespace morlu
