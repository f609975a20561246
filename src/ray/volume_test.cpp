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

}  // namespace

volume_test::axis volume_test::axis_of(const double (&row)[3], float margin) {
  axis result{};
  const auto value = [&](int j) { return static_cast<float>(row[j]); };
  result.row = {all(value(0)), all(value(1)), all(value(2))};
  result.absolute = {abs(result.row.x), abs(result.row.y), abs(result.row.z)};
  result.margin = all(margin);
  return result;
}

volume_test::volume_test(const math::transformation_matrix<float>& a_from_b,
                         const math::vector3& bound_a, const math::vector3& bound_b) {
  // A sum of four products is off by less than 8 units of rounding of what its parts are at most;
  // 16 cover carrying a corner and testing a centre.
  constexpr double rounding = 16 * 0x1p-24;
  constexpr float infinite = std::numeric_limits<float>::infinity();
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
    of_a_[k] = axis_of(m.at[k], static_cast<float>(margin[k]));
  }
  translation_ = {all(a_from_b[12]), all(a_from_b[13]), all(a_from_b[14])};
  slab_margin_of_a_ = all(static_cast<float>(2 * (margin[0] + margin[1] + margin[2])));

  const double3x3 w = inverse(m);
  double slab_margin = 0;
  for (int k = 0; k < 3; ++k) {
    // What W M differs from 1 takes from a point of b, and what a margin of a is along this axis.
    double off = 0;
    for (int j = 0; j < 3; ++j) {
      double product = k == j ? -1 : 0;
      for (int i = 0; i < 3; ++i) product += static_cast<float>(w.at[k][i]) * m.at[i][j];
      off += std::fabs(product) * bound_b[j] + 2 * std::fabs(w.at[k][j]) * margin[j];
    }
    const bool usable = off <= std::numeric_limits<float>::max() / 16;
    of_b_[k] =
        usable ? axis_of(w.at[k], static_cast<float>(2 * off)) : axis_of({0, 0, 0}, infinite);
    slab_margin += usable ? 4 * off : infinite;
  }
  slab_margin_of_b_ = all(static_cast<float>(slab_margin));
}

}  // namespace morlu
