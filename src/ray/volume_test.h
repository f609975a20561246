#pragma once

#include "ray/float4.h"
#include "ray/pair_volumes.h"

namespace morlu {

/// Two volumes of one tree in lanes, for a test of four pairs: those of a in lanes 0 and 2 and in 1
/// and 3, those of b in 0 and 1 and in 2 and 3.
struct volume_lanes {
  float4x3 centre, half, normal;
  float4 middle, reach;
};

/// Both children of a record of a, or one of them on both places.
volume_lanes lanes_of_a(const pair_volumes::record& from);
volume_lanes lanes_of_b(const pair_volumes::record& from);
volume_lanes lanes_of_one(const pair_volumes::record& from, int side);

/// Tells volumes of two trees apart, by separating axes: those of either box, and the normal of a's
/// slab.
///
///   After S. Gottschalk, M. Lin, D. Manocha, "OBBTree" (1996), for any affine matrix: what b's box
///   becomes in the space of a is no box then, and the axes of b are those of its own space. The
///   nine axes across two edges each are left out: the slabs tell more for less.
///
/// Volumes that have a point in common, b's corners being carried in single precision, are never
/// told apart, whatever the roundings here. With x = M q + t for a point of b:
///
///   D = M b.centre + t - a.centre         x - a.centre = D + M (q - b.centre)
///   along axis k of a:  |D[k]| <= a.half[k] + sum |M[k][j]| b.half[j]
///   along axis k of b:  |(W D)[k]| <= b.half[k] + sum |W[k][j]| a.half[j]        W M = 1
///   along a.normal:     m = M' a.normal = s b.normal + r
///                       |a.normal D + s b.middle - a.middle|
///                                        <= a.reach + |s| b.reach + sum |r[j]| b.half[j]
class volume_test {
 public:
  volume_test(const math::transformation_matrix<float>& a_from_b, const math::vector3& bound_a,
              const math::vector3& bound_b);

  /// Lanes whose volumes may touch.
  unsigned touching(const volume_lanes& a, const volume_lanes& b) const;

 private:
  struct axis {
    float4 row[3];       // of the matrix
    float4 absolute[3];  // its values without their signs
    float4 margin;
  };
  axis of_a_[3];  // M
  axis of_b_[3];  // W
  float4 translation_[3];
  float4 slab_margin_;
};

}  // namespace morlu
