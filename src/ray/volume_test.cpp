#include "ray/volume_test.h"

#include <cmath>
#include <limits>

namespace morlu {

namespace {

struct double3x3 {
  double at[3][3];
};

/// By cofactors. Of a singular matrix: no finite numbers.
double3x3 inverse(const double3x3& m) {
  const auto& a = m.at;
  double3x3 result{};
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      const int r1 = (column + 1) % 3, r2 = (column + 2) % 3;
      const int c1 = (row + 1) % 3, c2 = (row + 2) % 3;
      result.at[row][column] = a[r1][c1] * a[r2][c2] - a[r1][c2] * a[r2][c1];
    }
  }
  const double determinant =
      a[0][0] * result.at[0][0] + a[0][1] * result.at[1][0] + a[0][2] * result.at[2][0];
  for (auto& row : result.at)
    for (double& value : row) value /= determinant;
  return result;
}

float4 pair_of_a(const float* from) {
  return float4{from[0], from[1], from[0], from[1]};
}
float4 pair_of_b(const float* from) {
  return float4{from[0], from[0], from[1], from[1]};
}

template <class Load>
volume_lanes load_lanes(const pair_volumes::record& from, const Load& load) {
  const auto load3 = [&](const float(&rows)[3][2]) {
    return float4x3{load(rows[0]), load(rows[1]), load(rows[2])};
  };
  return {load3(from.centre), load3(from.half), load3(from.normal), load(from.middle),
          load(from.reach)};
}

}  // namespace

volume_lanes lanes_of_a(const pair_volumes::record& from) {
  return load_lanes(from, pair_of_a);
}
volume_lanes lanes_of_b(const pair_volumes::record& from) {
  return load_lanes(from, pair_of_b);
}
volume_lanes lanes_of_one(const pair_volumes::record& from, int side) {
  return load_lanes(from, [side](const float* pair) { return all(pair[side]); });
}

volume_test::volume_test(const math::transformation_matrix<float>& a_from_b,
                         const math::vector3& bound_a, const math::vector3& bound_b) {
  // A sum of four products is off by less than 8 units of rounding of what its parts are at most;
  // 16 cover carrying a corner and testing a centre.
  constexpr double rounding = 16 * 0x1p-24;
  double3x3 m{};
  double margin[3];
  for (std::size_t k = 0; k < 3; ++k) {
    const double t = a_from_b[12 + k];
    double reach = std::fabs(t) + bound_a[k];
    for (std::size_t j = 0; j < 3; ++j) {
      m.at[k][j] = a_from_b[4 * j + k];
      reach += std::fabs(m.at[k][j]) * bound_b[j];
    }
    margin[k] = rounding * reach;
    translation_[k] = all(a_from_b[12 + k]);
  }
  slab_margin_ = all(static_cast<float>(2 * (margin[0] + margin[1] + margin[2])));

  const double3x3 w = inverse(m);
  for (int k = 0; k < 3; ++k) {
    // What W M differs from 1 takes from a point of b, and what a margin of a is along this axis.
    double off = 0;
    for (int j = 0; j < 3; ++j) {
      double product = k == j ? -1 : 0;
      for (int i = 0; i < 3; ++i) product += static_cast<float>(w.at[k][i]) * m.at[i][j];
      off += std::fabs(product) * bound_b[j] + 2 * std::fabs(w.at[k][j]) * margin[j];
    }
    const bool usable = off <= std::numeric_limits<float>::max() / 2;
    for (int j = 0; j < 3; ++j) {
      const float of_a = static_cast<float>(m.at[k][j]);
      const float of_b = usable ? static_cast<float>(w.at[k][j]) : 0;
      of_a_[k].row[j] = all(of_a);
      of_a_[k].absolute[j] = all(std::fabs(of_a));
      of_b_[k].row[j] = all(of_b);
      of_b_[k].absolute[j] = all(std::fabs(of_b));
    }
    of_a_[k].margin = all(static_cast<float>(margin[k]));
    of_b_[k].margin =
        all(usable ? static_cast<float>(2 * off) : std::numeric_limits<float>::infinity());
  }
}

unsigned volume_test::touching(const volume_lanes& a, const volume_lanes& b) const {
  const auto row_dot = [](const float4(&row)[3], const float4x3& v) {
    return row[0] * v.x + row[1] * v.y + row[2] * v.z;
  };
  const auto column_dot = [this](int j, const float4x3& v) {
    return of_a_[0].row[j] * v.x + of_a_[1].row[j] * v.y + of_a_[2].row[j] * v.z;
  };
  const float4x3 d = {row_dot(of_a_[0].row, b.centre) + translation_[0] - a.centre.x,
                      row_dot(of_a_[1].row, b.centre) + translation_[1] - a.centre.y,
                      row_dot(of_a_[2].row, b.centre) + translation_[2] - a.centre.z};
  // A comparison with a NaN never tells apart.
  const auto far_on_a = [&](int k, float4 distance, float4 half) {
    return abs(distance) > half + of_a_[k].margin + row_dot(of_a_[k].absolute, b.half);
  };
  const auto far_on_b = [&](int k, float4 half) {
    return abs(row_dot(of_b_[k].row, d)) >
           half + of_b_[k].margin + row_dot(of_b_[k].absolute, a.half);
  };
  mask4 apart = far_on_a(0, d.x, a.half.x) | far_on_a(1, d.y, a.half.y) |
                far_on_a(2, d.z, a.half.z) | far_on_b(0, b.half.x) | far_on_b(1, b.half.y) |
                far_on_b(2, b.half.z);

  const float4x3 m = {column_dot(0, a.normal), column_dot(1, a.normal), column_dot(2, a.normal)};
  const float4 s = dot(m, b.normal);
  const float4x3 r = {m.x - s * b.normal.x, m.y - s * b.normal.y, m.z - s * b.normal.z};
  const float4x3 r_size = {abs(r.x), abs(r.y), abs(r.z)};
  const float4 between = dot(a.normal, d) + s * b.middle - a.middle;
  apart |= abs(between) > a.reach + abs(s) * b.reach + dot(r_size, b.half) + slab_margin_;
  return ~lanes_of(apart) & 0xf;
}

}  // namespace morlu
