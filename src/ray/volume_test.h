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

template <class Load>
volume_lanes load_lanes(const pair_volumes::record& from, const Load& load) {
  const auto load3 = [&](const float(&rows)[3][2]) {
    return float4x3{load(rows[0]), load(rows[1]), load(rows[2])};
  };
  return {load3(from.centre), load3(from.half), load3(from.normal), load(from.middle),
          load(from.reach)};
}
/// Both children of a record of a, of one of b, or a single one on all places.
inline volume_lanes lanes_of_a(const pair_volumes::record& from) {
  return load_lanes(from, [](const float* two) { return float4{two[0], two[1], two[0], two[1]}; });
}
inline volume_lanes lanes_of_b(const pair_volumes::record& from) {
  return load_lanes(from, [](const float* two) { return float4{two[0], two[0], two[1], two[1]}; });
}
inline volume_lanes lanes_of_one(const pair_volumes::record& from, int side) {
  return load_lanes(from, [side](const float* two) { return all(two[side]); });
}

/// Tells volumes of two trees apart, by separating axes: those of either box and the normals of
/// both slabs.
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
///   along b.normal:     the same with W and -W D
class volume_test {
 public:
  volume_test(const math::transformation_matrix<float>& a_from_b, const math::vector3& bound_a,
              const math::vector3& bound_b);

  /// Lanes whose volumes may touch.
  unsigned touching(const volume_lanes& a, const volume_lanes& b) const;

 private:
  struct axis {
    float4x3 row;       // of the matrix
    float4x3 absolute;  // its values without their signs
    float4 margin;
  };
  static axis axis_of(const double (&row)[3], float margin);

  axis of_a_[3];  // M
  axis of_b_[3];  // W
  float4x3 translation_;
  float4 slab_margin_of_a_;
  float4 slab_margin_of_b_;
};

inline unsigned volume_test::touching(const volume_lanes& a, const volume_lanes& b) const {
  const auto row = [](const axis& k, const float4x3& v) { return dot(k.row, v); };
  const float4x3 carried = {row(of_a_[0], b.centre), row(of_a_[1], b.centre),
                            row(of_a_[2], b.centre)};
  const float4x3 d = {carried.x + translation_.x - a.centre.x,
                      carried.y + translation_.y - a.centre.y,
                      carried.z + translation_.z - a.centre.z};
  const float4x3 wd = {row(of_b_[0], d), row(of_b_[1], d), row(of_b_[2], d)};

  // A comparison with a NaN never tells apart.
  const auto beyond = [](const axis& k, float4 distance, float4 half, const float4x3& other) {
    return abs(distance) > half + k.margin + dot(k.absolute, other);
  };
  const mask4 boxes_apart =
      beyond(of_a_[0], d.x, a.half.x, b.half) | beyond(of_a_[1], d.y, a.half.y, b.half) |
      beyond(of_a_[2], d.z, a.half.z, b.half) | beyond(of_b_[0], wd.x, b.half.x, a.half) |
      beyond(of_b_[1], wd.y, b.half.y, a.half) | beyond(of_b_[2], wd.z, b.half.z, a.half);
  if (lanes_of(boxes_apart) == 0xf) return 0;

  const auto slabs_apart = [](const axis(&matrix)[3], const volume_lanes& of, const float4x3& to,
                              const volume_lanes& other, float4 margin) {
    const float4x3& n = of.normal;
    const auto column = [&](float4 float4x3::*j) {
      return matrix[0].row.*j * n.x + matrix[1].row.*j * n.y + matrix[2].row.*j * n.z;
    };
    const float4x3 m = {column(&float4x3::x), column(&float4x3::y), column(&float4x3::z)};
    const float4 s = dot(m, other.normal);
    const float4x3 r = {abs(m.x - s * other.normal.x), abs(m.y - s * other.normal.y),
                        abs(m.z - s * other.normal.z)};
    return abs(dot(n, to) + s * other.middle - of.middle) >
           of.reach + abs(s) * other.reach + dot(r, other.half) + margin;
  };
  const float4x3 back = {-wd.x, -wd.y, -wd.z};
  const mask4 apart = boxes_apart | slabs_apart(of_a_, a, d, b, slab_margin_of_a_) |
                      slabs_apart(of_b_, b, back, a, slab_margin_of_b_);
  return ~lanes_of(apart) & 0xf;
}

}  // namespace morlu
