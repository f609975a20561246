// Sources: the inverse is the Laplace expansion of the 4x4 determinant by pairs of rows (D. Eberly,
// "The Laplace expansion theorem"); the polar factor is the scaled Newton iteration of N. Higham,
// "Computing the polar decomposition - with applications" (1986), with Frobenius norms as scale.

#include "osg/matrix.h"

#include <cfloat>

#include "osg/quaternion.h"

namespace osg {
namespace {

/// The 2x2 minors of the first two and of the last two columns of a matrix, widened to double.
/// Products of two floats are exact in double, so no minor of a float matrix rounds more than once.
struct Minors {
  double a[16];
  double s[6];  // columns 0 and 1, rows 01 02 03 12 13 23
  double c[6];  // columns 2 and 3, the same rows

  template <class T>
  explicit Minors(const T* values) {
    std::copy_n(values, 16, a);
    constexpr int pairs[6][2] = {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};
    for (int i = 0; i < 6; ++i) {
      const auto [p, q] = pairs[i];
      s[i] = a[p] * a[4 + q] - a[4 + p] * a[q];
      c[i] = a[8 + p] * a[12 + q] - a[12 + p] * a[8 + q];
    }
  }

  /// Summed so that an affine matrix gets exactly the sum that its inverse's last value is divided
  /// by: that value is then 1.
  double determinant() const {
    return (s[3] * c[2] - s[1] * c[4] + s[0] * c[5]) + (s[2] * c[3] - s[4] * c[1] + s[5] * c[0]);
  }

  /// Cofactors, transposed: the inverse times the determinant.
  std::array<double, 16> adjugate() const {
    return {a[5] * c[5] - a[6] * c[4] + a[7] * c[3],    a[2] * c[4] - a[1] * c[5] - a[3] * c[3],
            a[13] * s[5] - a[14] * s[4] + a[15] * s[3], a[10] * s[4] - a[9] * s[5] - a[11] * s[3],
            a[6] * c[2] - a[4] * c[5] - a[7] * c[1],    a[0] * c[5] - a[2] * c[2] + a[3] * c[1],
            a[14] * s[2] - a[12] * s[5] - a[15] * s[1], a[8] * s[5] - a[10] * s[2] + a[11] * s[1],
            a[4] * c[4] - a[5] * c[2] + a[7] * c[0],    a[1] * c[2] - a[0] * c[4] - a[3] * c[0],
            a[12] * s[4] - a[13] * s[2] + a[15] * s[0], a[9] * s[2] - a[8] * s[4] - a[11] * s[0],
            a[5] * c[1] - a[4] * c[3] - a[6] * c[0],    a[0] * c[3] - a[1] * c[1] + a[2] * c[0],
            a[13] * s[1] - a[12] * s[3] - a[14] * s[0], a[8] * s[3] - a[9] * s[1] + a[10] * s[0]};
  }
};

/// Rounds to T and takes the sign off a zero.
template <class T>
T rounded(double value) {
  return static_cast<T>(value + 0.0);
}

/// A 3x3 matrix by columns.
struct Columns {
  Vec3d x, y, z;

  Columns cofactors() const { return {y.cross(z), z.cross(x), x.cross(y)}; }
  double norm() const { return std::sqrt(x.dot(x) + y.dot(y) + z.dot(z)); }

  friend Columns operator*(const Columns& m, double f) { return {m.x * f, m.y * f, m.z * f}; }
  friend Columns operator+(const Columns& m, const Columns& n) {
    return {m.x + n.x, m.y + n.y, m.z + n.z};
  }
  friend Columns operator-(const Columns& m, const Columns& n) { return m + n * -1.0; }
};

/// The upper left 3x3, scaled by a power of two so that its largest value lies in [0.5, 1): no
/// square or product of what came from floats leaves the range of a double then. Zero or
/// non-finite values come back as they are.
template <class T>
Columns scaled_upper_left(const T* m) {
  double largest = 0;
  for (int i = 0; i < 11; ++i) {
    if (i % 4 != 3) largest = std::max(largest, std::abs(static_cast<double>(m[i])));
  }
  int exponent = 0;
  if (std::isfinite(largest)) std::frexp(largest, &exponent);
  const auto scaled = [&](int i) { return std::ldexp(static_cast<double>(m[i]), -exponent); };
  const auto column = [&](int i) { return Vec3d(scaled(i), scaled(i + 1), scaled(i + 2)); };
  return {column(0), column(4), column(8)};
}

/// True unless the determinant is 0 as far as rounding can tell. Each of the six products under its
/// sum meets at most five roundings, so the sum is off by less than eight of them, taken of the sum
/// of the products' sizes. Long and short columns don't matter, as both sides scale with each.
bool is_regular(const Columns& m) {
  const auto size = [](const Vec3d& v) {
    return Vec3d(std::abs(v[0]), std::abs(v[1]), std::abs(v[2]));
  };
  const Vec3d a = size(m.x), b = size(m.y), c = size(m.z);
  const double sizes = a[0] * (b[1] * c[2] + b[2] * c[1]) + a[1] * (b[2] * c[0] + b[0] * c[2]) +
                       a[2] * (b[0] * c[1] + b[1] * c[0]);
  const double determinant = m.x.dot(m.cofactors().x);
  return std::abs(determinant) > 4 * DBL_EPSILON * sizes && std::isfinite(determinant);
}

/// Newton's iteration m <- (g m + m^-T / g) / 2, which tends to the orthogonal factor. The scale g
/// brings m and its inverse to one size, so that even columns of very different lengths need few
/// rounds; then convergence is quadratic. False if the cap comes first.
bool orthogonalize(Columns& m) {
  constexpr int round_cap = 40;        // seven were the most over millions of random matrices
  constexpr double last_step = 1e-12;  // squared by the round that takes it: below rounding
  for (int round = 0; round < round_cap; ++round) {
    const Columns cofactors = m.cofactors();
    const Columns inverse_transposed = cofactors * (1.0 / m.x.dot(cofactors.x));
    const double g = std::sqrt(inverse_transposed.norm() / m.norm());
    const Columns next = m * (0.5 * g) + inverse_transposed * (0.5 / g);
    const double step = (next - m).norm();
    m = next;
    if (step <= last_step) return true;
  }
  return false;
}

}  // namespace

template <class T>
TransformationMatrix<T> TransformationMatrix<T>::rotation(const Vector<T, 3>& axis, T radians) {
  const Matrix4d turn =
      Quaternion::fromAxisAngle(Vec3d(axis[0], axis[1], axis[2]), radians).toMatrix();
  TransformationMatrix m;
  std::transform(turn.getValues(), turn.getValues() + 16, m.values_, rounded<T>);
  return m;
}

template <class T>
double TransformationMatrix<T>::determinant() const {
  return Minors(values_).determinant();
}

template <class T>
TransformationMatrix<T> TransformationMatrix<T>::inverse() const {
  constexpr double smallest_determinant = 1e-30;
  const Minors minors(values_);
  const double determinant = minors.determinant();
  TransformationMatrix result;
  if (!(std::abs(determinant) >= smallest_determinant) || std::isinf(determinant)) return result;
  const std::array<double, 16> adjugate = minors.adjugate();
  for (UInt32 i = 0; i < 16; ++i) result[i] = rounded<T>(adjugate[i] / determinant);
  return result;
}

template <class T>
PolarFactor<T> TransformationMatrix<T>::polarDecompose() const {
  PolarFactor<T> factor;
  Columns m = scaled_upper_left(values_);
  if (!is_regular(m) || !orthogonalize(m)) return factor;
  const Vec3d columns[3] = {m.x, m.y, m.z};
  for (UInt32 i = 0; i < 12; ++i) {
    if (i % 4 != 3) factor.orthogonal[i] = rounded<T>(columns[i / 4][i % 4]);
  }
  factor.determinantSign = m.x.dot(m.cofactors().x) < 0 ? -1 : 1;
  return factor;
}

#define OSG_INSTANTIATE(T)                                                                        \
  template OSG_API TransformationMatrix<T> TransformationMatrix<T>::rotation(const Vector<T, 3>&, \
                                                                             T);                  \
  template OSG_API double TransformationMatrix<T>::determinant() const;                           \
  template OSG_API TransformationMatrix<T> TransformationMatrix<T>::inverse() const;              \
  template OSG_API PolarFactor<T> TransformationMatrix<T>::polarDecompose() const;
OSG_INSTANTIATE(Real32)
OSG_INSTANTIATE(Real64)
#undef OSG_INSTANTIATE

}  // namespace osg
