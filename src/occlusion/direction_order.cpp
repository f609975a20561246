#include "occlusion/direction_order.h"

#include <cmath>
#include <cstring>

namespace morlu::osg {

using math::vector3;

namespace {

/// The bits of a number below 16 with a gap after each.
constexpr std::uint32_t spread(std::uint32_t bits) {
  bits = (bits | bits << 2) & 0x33;
  return (bits | bits << 1) & 0x55;
}

std::uint32_t cell_on_side(float share) {
  const float scaled = share * 16;
  return scaled > 0 && scaled < 16 ? static_cast<std::uint32_t>(scaled) : 0;  // 0 for NaN
}

std::uint16_t cell_of(const vector3& way) {
  const float size = std::fabs(way[0]) + std::fabs(way[1]) + std::fabs(way[2]);
  const std::uint32_t u = cell_on_side(std::fabs(way[0]) / size);
  const std::uint32_t v = cell_on_side(std::fabs(way[1]) / size);
  return static_cast<std::uint16_t>(octant_of(way) << 8 | spread(u) << 1 | spread(v));
}

}  // namespace

direction_order::direction_order(std::span<const vector3> directions)
    : directions_(directions), cell_of_(directions.size()) {}

std::span<const std::uint32_t> direction_order::of(const vector3& normal) {
  if (order_.empty() || std::memcmp(&normal, &normal_, sizeof(normal)) != 0) {
    normal_ = normal;
    sort();
  }
  return order_;
}

void direction_order::sort() {
  order_.resize(directions_.size());
  next_of_cell_.fill(0);
  for (std::size_t i = 0; i < directions_.size(); ++i) {
    cell_of_[i] = cell_of(normal_ + directions_[i]);
    ++next_of_cell_[cell_of_[i]];
  }
  std::uint32_t first = 0;
  for (std::uint32_t& next : next_of_cell_) {
    const std::uint32_t count = next;
    next = first;
    first += count;
  }
  for (std::size_t i = 0; i < directions_.size(); ++i)
    order_[next_of_cell_[cell_of_[i]]++] = static_cast<std::uint32_t>(i);
}

}  // namespace morlu::osg
