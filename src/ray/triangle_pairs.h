#pragma once

#include "ray/float4.h"
#include "ray/triangle_set.h"

namespace morlu {

/// A triangle that hits another, in the six-segment sense: an edge of one runs through the other
/// from its front to its back. The third edge of each runs from corner 0 to corner 2.
bool triangles_intersect(const triangle& a, const triangle& b);

/// A point where two triangles that intersect do so.
math::vector3 contact_point(const triangle& a, const triangle& b);

/// Up to four triangles, one a lane, that stand ready to be tested against others.
class triangle_lanes {
 public:
  static constexpr std::uint32_t most = 4;

  /// `count` is 1 to 4.
  triangle_lanes(const triangle* triangles, std::uint32_t count);

  /// The lanes b for which `triangles_intersect(a, b)`, by the same arithmetic.
  unsigned hit_by(const triangle& a) const;

 private:
  float4x3 corner_[3];
  float4x3 edge_[3];   // backwards: from the end to the start of each tested segment
  float4x3 sides_[2];  // from corner 0 to the others
  float4x3 normal_;
  unsigned used_;
};

}  // namespace morlu
