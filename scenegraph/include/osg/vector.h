#pragma once

#include <charconv>
#include <cmath>
#include <compare>
#include <concepts>
#include <limits>
#include <ostream>
#include <type_traits>

#include "osg/base_types.h"

/// Points, vectors and colours: plain values of N components in a row, nothing else in them.
///
/// All arithmetic runs in the component type, component by component, in index order. A default
/// constructed value is all zeros. Comparison is exact, never within a tolerance.
namespace osg {

/// Storage, element access, comparison and text form that points, vectors and colours share.
/// `Derived` only keeps the kinds apart: a point never compares with a vector.
template <class Derived, class T, UInt32 N>
class Tuple {
  static_assert(std::is_arithmetic_v<T>);
  static_assert(N >= 1);

 public:
  using ValueType = T;
  static constexpr UInt32 dimension = N;

  constexpr Tuple() = default;

  /// One argument a component, each converted to the component type.
  template <class... C>
  requires(sizeof...(C) == N && (std::convertible_to<C, T> && ...)) constexpr explicit(N == 1)
      Tuple(C... components)
      : values_{static_cast<T>(components)...} {}

  /// Component `i`, which must be below N.
  constexpr T& operator[](UInt32 i) { return values_[i]; }
  constexpr const T& operator[](UInt32 i) const { return values_[i]; }

  /// The N components in a row.
  constexpr T* getValues() { return values_; }
  constexpr const T* getValues() const { return values_; }

  /// Lexicographic, component 0 first. -0.0 equals 0.0; a NaN equals nothing and orders with
  /// nothing, so values that hold one are no keys for an ordered container.
  constexpr bool operator==(const Tuple&) const = default;
  constexpr auto operator<=>(const Tuple&) const = default;

  /// Writes "x y z": single blanks, no brackets, six significant digits at most, whatever the
  /// stream's precision, flags, width and locale are, and leaves all of them as they were.
  friend std::ostream& operator<<(std::ostream& out, const Derived& value) {
    char text[N * 32];  // "-1.17549e-38" is the longest float or double, integers need 20
    char* end = text;
    for (UInt32 i = 0; i < N; ++i) {
      if (i > 0) *end++ = ' ';
      if constexpr (std::is_floating_point_v<T>) {
        end = std::to_chars(end, text + sizeof text, value[i], std::chars_format::general, 6).ptr;
      } else {
        end = std::to_chars(end, text + sizeof text, +value[i]).ptr;
      }
    }
    return out.write(text, end - text);
  }

 protected:
  T values_[N] = {};
};

/// A direction, a difference of points, a normal or a texture coordinate (u first, v second).
template <class T, UInt32 N>
class Vector : public Tuple<Vector<T, N>, T, N> {
 public:
  using Tuple<Vector, T, N>::Tuple;
  constexpr Vector() = default;

  constexpr Vector& operator+=(const Vector& b) {
    for (UInt32 i = 0; i < N; ++i) (*this)[i] = static_cast<T>((*this)[i] + b[i]);
    return *this;
  }
  constexpr Vector& operator-=(const Vector& b) {
    for (UInt32 i = 0; i < N; ++i) (*this)[i] = static_cast<T>((*this)[i] - b[i]);
    return *this;
  }
  constexpr Vector& operator*=(T s) {
    for (UInt32 i = 0; i < N; ++i) (*this)[i] = static_cast<T>((*this)[i] * s);
    return *this;
  }
  constexpr Vector& operator/=(T s) {
    for (UInt32 i = 0; i < N; ++i) (*this)[i] = static_cast<T>((*this)[i] / s);
    return *this;
  }

  friend constexpr Vector operator+(Vector a, const Vector& b) { return a += b; }
  friend constexpr Vector operator-(Vector a, const Vector& b) { return a -= b; }
  friend constexpr Vector operator*(Vector a, T s) { return a *= s; }
  friend constexpr Vector operator*(T s, Vector a) { return a *= s; }
  friend constexpr Vector operator/(Vector a, T s) { return a /= s; }
  constexpr Vector operator-() const {
    Vector negated;
    for (UInt32 i = 0; i < N; ++i) negated[i] = static_cast<T>(-(*this)[i]);
    return negated;
  }

  /// Sum of products, ((0 + a0*b0) + a1*b1) + ...
  constexpr T dot(const Vector& b) const {
    T sum = 0;
    for (UInt32 i = 0; i < N; ++i) sum = static_cast<T>(sum + (*this)[i] * b[i]);
    return sum;
  }

  /// Right-handed cross product.
  constexpr Vector cross(const Vector& b) const requires(N == 3) {
    const Vector& a = *this;
    return Vector(a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]);
  }

  /// sqrt(0 + x*x + y*y + z*z), summed in that order; infinite where a square overflows.
  T length() const requires std::floating_point<T> { return std::sqrt(dot(*this)); }

  /// Scales to length 1. A vector shorter than 1e-6 stays as it is. One whose length overflows
  /// is brought into range first, so every finite vector of some length ends as a unit vector.
  void normalize() requires std::floating_point<T> {
    T size = length();
    if (size < T(1e-6)) return;
    if (size > std::numeric_limits<T>::max()) {
      *this *= std::numeric_limits<T>::min();
      size = length();
    }
    *this /= size;
  }
};

/// A position. Points differ by vectors; adding two points has no meaning and doesn't compile.
template <class T, UInt32 N>
class Point : public Tuple<Point<T, N>, T, N> {
 public:
  using Tuple<Point, T, N>::Tuple;
  constexpr Point() = default;

  /// The point that `offset` leads to from the origin.
  constexpr explicit Point(const Vector<T, N>& offset) {
    for (UInt32 i = 0; i < N; ++i) (*this)[i] = offset[i];
  }

  /// The vector from the origin to this point.
  constexpr Vector<T, N> subZero() const {
    Vector<T, N> offset;
    for (UInt32 i = 0; i < N; ++i) offset[i] = (*this)[i];
    return offset;
  }

  constexpr Point& operator+=(const Vector<T, N>& b) { return *this = *this + b; }
  constexpr Point& operator-=(const Vector<T, N>& b) { return *this = *this - b; }

  friend constexpr Vector<T, N> operator-(const Point& a, const Point& b) {
    return a.subZero() - b.subZero();
  }
  friend constexpr Point operator+(const Point& a, const Vector<T, N>& b) {
    return Point(a.subZero() + b);
  }
  friend constexpr Point operator-(const Point& a, const Vector<T, N>& b) {
    return Point(a.subZero() - b);
  }
};

/// Red, green, blue.
template <class T>
class Color3 : public Tuple<Color3<T>, T, 3> {
 public:
  using Tuple<Color3, T, 3>::Tuple;
  constexpr Color3() = default;
};

/// Red, green, blue, alpha.
template <class T>
class Color4 : public Tuple<Color4<T>, T, 4> {
 public:
  using Tuple<Color4, T, 4>::Tuple;
  constexpr Color4() = default;
};

using Pnt2f = Point<Real32, 2>;
using Pnt3f = Point<Real32, 3>;
using Pnt4f = Point<Real32, 4>;
using Pnt3d = Point<Real64, 3>;
using Vec2f = Vector<Real32, 2>;
using Vec3f = Vector<Real32, 3>;
using Vec4f = Vector<Real32, 4>;
using Vec3d = Vector<Real64, 3>;
using Color3f = Color3<Real32>;
using Color4f = Color4<Real32>;
using Color3ub = Color3<UInt8>;
using Color4ub = Color4<UInt8>;

static_assert(sizeof(Vec2f) == 8 && sizeof(Pnt3f) == 12 && sizeof(Vec3f) == 12);
static_assert(sizeof(Color3f) == 12 && sizeof(Color4f) == 16 && sizeof(Color4ub) == 4);
static_assert(std::is_trivially_copyable_v<Pnt3f> && std::is_trivially_copyable_v<Vec3f>);
static_assert(std::is_trivially_copyable_v<Color3f> && std::is_trivially_copyable_v<Color4f>);
static_assert(std::is_standard_layout_v<Pnt3f> && std::is_standard_layout_v<Color4f>);

}  // namespace osg
