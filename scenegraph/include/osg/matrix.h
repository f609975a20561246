#pragma once

#include <algorithm>
#include <array>
#include <type_traits>

#include "osg/export.h"
#include "osg/vector.h"

namespace osg {

template <class T>
struct PolarFactor;

/// A 4x4 matrix, stored by columns:
///
///     | m[0]  m[4]  m[8]   m[12] |     columns 0 to 2: images of the axes,
///     | m[1]  m[5]  m[9]   m[13] |     column 3: translation
///     | m[2]  m[6]  m[10]  m[14] |
///     | m[3]  m[7]  m[11]  m[15] |
///
/// Points are columns to its right, so (A * B) * p = A * (B * p). Default constructed: identity.
/// Instantiated for float and double.
template <class T>
class TransformationMatrix {
 public:
  using ValueType = T;

  constexpr TransformationMatrix() = default;

  /// From sixteen values in storage order, column after column.
  constexpr explicit TransformationMatrix(const std::array<T, 16>& columns) {
    setValues(columns.data());
  }

  /// Value `i` of the storage, 0 to 15; 12 to 14 are the translation.
  constexpr T& operator[](UInt32 i) { return values_[i]; }
  constexpr const T& operator[](UInt32 i) const { return values_[i]; }

  /// The sixteen values in storage order.
  constexpr T* getValues() { return values_; }
  constexpr const T* getValues() const { return values_; }
  constexpr void setValues(const T* columns) { std::copy_n(columns, 16, values_); }

  constexpr void setIdentity() { *this = TransformationMatrix(); }

  constexpr Vector<T, 3> getTranslation() const {
    return Vector<T, 3>(values_[12], values_[13], values_[14]);
  }
  /// Replaces the translation and leaves the rest.
  constexpr void setTranslation(const Vector<T, 3>& t) {
    for (UInt32 row = 0; row < 3; ++row) values_[12 + row] = t[row];
  }

  static constexpr TransformationMatrix identity() { return TransformationMatrix(); }

  static constexpr TransformationMatrix translation(const Vector<T, 3>& t) {
    TransformationMatrix m;
    m.setTranslation(t);
    return m;
  }
  static constexpr TransformationMatrix translation(T x, T y, T z) {
    return translation(Vector<T, 3>(x, y, z));
  }
  static constexpr TransformationMatrix scale(T x, T y, T z) {
    TransformationMatrix m;
    m[0] = x;
    m[5] = y;
    m[10] = z;
    return m;
  }
  static constexpr TransformationMatrix scale(T s) { return scale(s, s, s); }

  /// Counter-clockwise by `radians` when `axis` points at the viewer. The axis needs no unit
  /// length; a zero, infinite or NaN axis or angle gives the identity.
  OSG_API static TransformationMatrix rotation(const Vector<T, 3>& axis, T radians);

  /// The product; each value is ((a0*b0 + a1*b1) + a2*b2) + a3*b3 in T.
  friend constexpr TransformationMatrix operator*(const TransformationMatrix& a,
                                                  const TransformationMatrix& b) {
    TransformationMatrix product;
    for (UInt32 column = 0; column < 16; column += 4) {
      for (UInt32 row = 0; row < 4; ++row) {
        product[column + row] = a[row] * b[column] + a[4 + row] * b[column + 1] +
                                a[8 + row] * b[column + 2] + a[12 + row] * b[column + 3];
      }
    }
    return product;
  }
  /// this = this * b: `b` is applied to a point first.
  constexpr TransformationMatrix& operator*=(const TransformationMatrix& b) {
    return *this = *this * b;
  }

  /// Image of a point under rotation, scale and translation, without division by w; each
  /// coordinate is ((m0*x + m4*y) + m8*z) + m12 in T.
  constexpr Point<T, 3> transformPoint(const Point<T, 3>& p) const {
    const T* m = values_;
    return Point<T, 3>(m[0] * p[0] + m[4] * p[1] + m[8] * p[2] + m[12],
                       m[1] * p[0] + m[5] * p[1] + m[9] * p[2] + m[13],
                       m[2] * p[0] + m[6] * p[1] + m[10] * p[2] + m[14]);
  }

  /// Image of a direction under the upper left 3x3, scale included; each coordinate is
  /// (m0*x + m4*y) + m8*z in T.
  constexpr Vector<T, 3> transformVector(const Vector<T, 3>& v) const {
    const T* m = values_;
    return Vector<T, 3>(m[0] * v[0] + m[4] * v[1] + m[8] * v[2],
                        m[1] * v[0] + m[5] * v[1] + m[9] * v[2],
                        m[2] * v[0] + m[6] * v[1] + m[10] * v[2]);
  }

  friend constexpr Point<T, 3> operator*(const TransformationMatrix& m, const Point<T, 3>& p) {
    return m.transformPoint(p);
  }
  friend constexpr Vector<T, 3> operator*(const TransformationMatrix& m, const Vector<T, 3>& v) {
    return m.transformVector(v);
  }

  /// Exact, value by value; -0.0 equals 0.0, NaN equals nothing.
  constexpr bool operator==(const TransformationMatrix&) const = default;

  /// Determinant of the whole matrix, formed in double.
  OSG_API double determinant() const;

  /// Inverse of the whole 4x4, by cofactors in double, rounded once to T. A matrix whose
  /// determinant is below 1e-30 in absolute value, or is no finite number, gives the identity.
  OSG_API TransformationMatrix inverse() const;

  /// Splits the upper left 3x3 into an orthogonal factor times a symmetric stretch and returns
  /// the orthogonal one, see PolarFactor. Computed in double; depends on nothing but the values.
  OSG_API PolarFactor<T> polarDecompose() const;

 private:
  T values_[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
};

/// What polarDecompose finds. A matrix that mirrors has an orthogonal factor that mirrors, with
/// determinantSign -1: negate its 3x3 to get the proper rotation (properRotation does so).
template <class T>
struct PolarFactor {
  TransformationMatrix<T> orthogonal;  // no translation; identity when the sign is 0
  Int32 determinantSign = 0;           // 1 or -1; 0 for a singular or non-finite 3x3

  /// The orthogonal factor, negated where the matrix mirrors: always a rotation.
  constexpr TransformationMatrix<T> properRotation() const {
    TransformationMatrix<T> rotation = orthogonal;
    if (determinantSign >= 0) return rotation;
    for (UInt32 column = 0; column < 12; column += 4) {
      for (UInt32 row = 0; row < 3; ++row) {
        rotation[column + row] = T(0) - orthogonal[column + row];
      }
    }
    return rotation;
  }
};

using Matrix = TransformationMatrix<Real32>;
using Matrix4f = TransformationMatrix<Real32>;
using Matrix4d = TransformationMatrix<Real64>;

static_assert(sizeof(Matrix) == 64 && std::is_trivially_copyable_v<Matrix>);

}  // namespace osg
