#pragma once

#include "ray/vector_ops.h"

namespace morlu {

/// The longest axis of a box; of equal ones the last.
inline int longest_axis(const bounding_box& box) {
  const float x = box.size[0], y = box.size[1], z = box.size[2];
  if (x > y) return x > z ? 0 : 2;
  return y > z ? 1 : 2;
}

/// Gives the axes on which a box is flat some thickness, so that rays along them meet a box: e on
/// either side of the axis's own coordinate, e being 0.05 of the largest extent for the first flat
/// axis and 0.05 of the former e for each further one. Brings `size` up to date.
///
/// Far from the origin e may drown in the coordinate's last bit; the box then still holds what it
/// held, and `size` still tells 2e.
inline void widen_flat_axes(bounding_box& box) {
  constexpr float flat_below = 1e-7f;
  constexpr float share = 0.05f;
  box.update_size();
  float e = 0;
  for (int axis = 0; axis < 3; ++axis)
    if (box.size[axis] > e) e = box.size[axis];
  for (int axis = 0; axis < 3; ++axis) {
    if (!(flat_below > box.size[axis])) continue;
    e *= share;
    const float centre = box.size[axis] * 0.5f + box.min[axis];
    if (centre - e < box.min[axis]) box.min[axis] = centre - e;
    if (centre + e > box.max[axis]) box.max[axis] = centre + e;
    box.size[axis] = 2 * e;
  }
}

}  // namespace morlu
