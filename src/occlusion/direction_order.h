#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "ray/vector_ops.h"

namespace morlu::osg {

inline constexpr unsigned octants = 8;

/// By the signs of the coordinates; NaN counts as positive.
inline unsigned octant_of(const math::vector3& way) {
  return (way[0] < 0 ? 1u : 0u) | (way[1] < 0 ? 2u : 0u) | (way[2] < 0 ? 4u : 0u);
}

/// An order of the rays along normal + direction in which neighbours go similar ways: octant by
/// octant, in each by cells of the octahedron that the ways go through, along a space-filling
/// curve.
class direction_order {
 public:
  explicit direction_order(std::span<const math::vector3> directions);

  std::span<const math::vector3> directions() const { return directions_; }

  /// Places in the list of directions. Kept until the normal is another one. O(directions).
  std::span<const std::uint32_t> of(const math::vector3& normal);

 private:
  static constexpr std::uint32_t cells_a_side = 16, cells = octants * cells_a_side * cells_a_side;

  void sort();

  std::span<const math::vector3> directions_;
  math::vector3 normal_;
  std::vector<std::uint16_t> cell_of_;
  std::vector<std::uint32_t> order_;  // empty until there is a normal
  std::array<std::uint32_t, cells> next_of_cell_;
};

}  // namespace morlu::osg
