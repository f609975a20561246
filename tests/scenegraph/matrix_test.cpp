#include "osg/matrix.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "osg/quaternion.h"

namespace osg {
namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();
constexpr float pi = 3.14159265f;

class Randomness {
 public:
  explicit Randomness(unsigned seed) : engine_(seed) {}
  float number(float low = -1, float high = 1) {
    return std::uniform_real_distribution<float>(low, high)(engine_);
  }
  Vec3f vector() { return Vec3f(number(), number(), number()); }
  Matrix full_matrix() {
    Matrix m;
    for (UInt32 i = 0; i < 16; ++i) m[i] = number();
    return m;
  }
  Matrix rotation() { return Matrix::rotation(vector(), number(-7, 7)); }
  // Rotations, uneven scales (a third of them mirrors) and a translation.
  Matrix affine_matrix() {
    const auto factor = [&] { return std::exp(number(-3, 3)) * (number() < -0.6f ? -1.0f : 1.0f); };
    return Matrix::translation(vector() * 10.0f) * rotation() *
           Matrix::scale(factor(), factor(), factor()) * rotation();
  }

 private:
  std::mt19937 engine_;
};

template <class T>
double distance(const TransformationMatrix<T>& a, const TransformationMatrix<T>& b) {
  double largest = 0;
  for (UInt32 i = 0; i < 16; ++i) {
    largest = std::max(largest, std::abs(double(a[i]) - double(b[i])));
  }
  return largest;
}

// An independent determinant: Gauss with full row exchange.
double eliminated_determinant(const Matrix& m) {
  double a[4][4], determinant = 1;
  for (UInt32 i = 0; i < 16; ++i) a[i % 4][i / 4] = m[i];
  for (int k = 0; k < 4; ++k) {
    int pivot = k;
    for (int row = k; row < 4; ++row) {
      if (std::abs(a[row][k]) > std::abs(a[pivot][k])) pivot = row;
    }
    if (a[pivot][k] == 0) return 0;
    if (pivot != k) {
      std::swap(a[pivot], a[k]);
      determinant = -determinant;
    }
    determinant *= a[k][k];
    for (int row = k + 1; row < 4; ++row) {
      for (int column = 3; column >= k; --column) {
        a[row][column] -= a[row][k] / a[k][k] * a[k][column];
      }
    }
  }
  return determinant;
}

TEST(Matrix, StoresColumnsAndNeverDividesByW) {
  const Matrix m({2, 3, 5, 91, 7, 11, 13, 92, 17, 19, 23, 93, 29, 31, 37, 94});
  EXPECT_EQ(m * Pnt3f(), Pnt3f(29, 31, 37));
  EXPECT_EQ(m * Vec3f(1, 0, 0), Vec3f(2, 3, 5));
  EXPECT_EQ(m * Vec3f(0, 1, 0), Vec3f(7, 11, 13));
  EXPECT_EQ(m * Vec3f(0, 0, 1), Vec3f(17, 19, 23));
  EXPECT_EQ(m * Pnt3f(1, 10, 100),
            Pnt3f(2 + 70 + 1700 + 29, 3 + 110 + 1900 + 31, 5 + 130 + 2300 + 37));
  EXPECT_EQ(m.getTranslation(), Vec3f(29, 31, 37));
  EXPECT_NEAR((Matrix::rotation(Vec3f(0, 0, 5), pi / 2) * Vec3f(1, 0, 0))[1], 1, 1e-6);
  EXPECT_EQ(Matrix::rotation(Vec3f(), 1), Matrix());
  EXPECT_EQ(Matrix::rotation(Vec3f(1, nan_value, 0), 1), Matrix());
}

TEST(Matrix, ProductAppliesTheRightFactorFirst) {
  const Matrix move = Matrix::translation(1, 2, 3), grow = Matrix::scale(2);
  EXPECT_EQ(move * grow * Pnt3f(1, 1, 1), Pnt3f(3, 4, 5));
  EXPECT_EQ(grow * move * Pnt3f(1, 1, 1), Pnt3f(4, 6, 8));
  Randomness random(3);
  for (int i = 0; i < 1000; ++i) {
    const Matrix a = random.full_matrix(), b = random.full_matrix(), c = random.full_matrix();
    ASSERT_LT(distance((a * b) * c, a * (b * c)), 1e-5);
    // Points see only the affine part.
    const Matrix d = random.affine_matrix(), e = random.affine_matrix();
    const Pnt3f p(random.vector());
    ASSERT_LT((d * e * p - d * (e * p)).length(), 1e-3f);
  }
}

TEST(Matrix, InverseUndoesWholeMatricesAndKeepsAffineOnesAffine) {
  Randomness random(4);
  for (int i = 0; i < 5000; ++i) {
    const Matrix m = random.full_matrix();
    ASSERT_NEAR(m.determinant(), eliminated_determinant(m), 1e-12);
    if (std::abs(m.determinant()) > 1e-2) {
      ASSERT_LT(distance(m.inverse() * m, Matrix()), 1e-3);
    }
    Matrix4d wide;
    for (UInt32 k = 0; k < 16; ++k) wide[k] = m[k];
    if (std::abs(m.determinant()) > 1e-2) {
      ASSERT_LT(distance(wide * wide.inverse(), Matrix4d()), 1e-11);
    }
    const Matrix affine = random.affine_matrix();
    for (UInt32 k = 0; k < 16; ++k) wide[k] = affine[k];
    const Matrix4d inverse = wide.inverse();
    ASSERT_TRUE(inverse[3] == 0 && inverse[7] == 0 && inverse[11] == 0 && inverse[15] == 1);
    ASSERT_LT(distance(wide * inverse, Matrix4d()), 1e-11);
  }
  EXPECT_EQ(Matrix::translation(0.1f, -7, 1e20f).inverse(), Matrix::translation(-0.1f, 7, -1e20f));
  for (UInt32 i = 1; i < 16; ++i) EXPECT_FALSE(std::signbit(Matrix::scale(-2, 1, 1).inverse()[i]));
}

TEST(Matrix, InverseOfAVanishingDeterminantIsTheIdentity) {
  // As doubles, 1e-30f lies just above 1e-30 and the next smaller float below it.
  const float above = 1e-30f, below = std::nextafter(above, 0.0f);
  EXPECT_EQ(Matrix::scale(-above, 1, 1).inverse()[0], -1 / above);
  EXPECT_EQ(Matrix::scale(below, 1, 1).inverse(), Matrix());
  EXPECT_EQ(Matrix::scale(-below, 1, 1).inverse(), Matrix());
  EXPECT_EQ(Matrix::scale(1, 0, 1).inverse(), Matrix());
  EXPECT_EQ(Matrix::scale(1, nan_value, 1).inverse(), Matrix());
  EXPECT_EQ(Matrix::scale(1, infinite, 1).inverse(), Matrix());
}

// What singles out the polar factor Q of A: Q is orthogonal, and transpose(Q) A is symmetric with
// no negative eigenvalue.
void expect_polar_factor(const Matrix& a, const PolarFactor<float>& factor, double tolerance) {
  const Matrix& q = factor.orthogonal;
  double stretch[3][3], scale = 0;
  for (UInt32 row = 0; row < 3; ++row) {
    for (UInt32 column = 0; column < 3; ++column) {
      double orthogonality = row == column ? -1 : 0;
      stretch[row][column] = 0;
      for (UInt32 k = 0; k < 3; ++k) {
        orthogonality += double(q[4 * row + k]) * q[4 * column + k];
        stretch[row][column] += double(q[4 * row + k]) * a[4 * column + k];
      }
      ASSERT_NEAR(orthogonality, 0, 5e-7);
      scale = std::max(scale, std::abs(stretch[row][column]));
    }
  }
  const double slack = tolerance * scale;
  const auto minor = [&](int i, int j) {
    return stretch[i][i] * stretch[j][j] - stretch[i][j] * stretch[j][i];
  };
  for (int i = 0; i < 3; ++i) {
    const int j = (i + 1) % 3;
    ASSERT_NEAR(stretch[i][j], stretch[j][i], slack);
    ASSERT_GE(stretch[i][i], -slack);
    ASSERT_GE(minor(i, j), -slack * scale);
  }
  ASSERT_TRUE(q[12] == 0 && q[13] == 0 && q[14] == 0 && q[15] == 1);
}

TEST(Polar, FactorIsOrthogonalAndLeavesASymmetricStretch) {
  Randomness random(5);
  int mirrors = 0;
  for (int i = 0; i < 5000; ++i) {
    Matrix a = i % 2 ? random.affine_matrix() : random.full_matrix();
    a[3] = a[7] = a[11] = 0, a[15] = 1;
    const PolarFactor<float> factor = a.polarDecompose();
    ASSERT_NO_FATAL_FAILURE(expect_polar_factor(a, factor, 1e-6)) << i;
    ASSERT_EQ(factor.determinantSign, a.determinant() > 0 ? 1 : -1);
    mirrors += factor.determinantSign < 0;
    ASSERT_GT(factor.properRotation().determinant(), 0.99);
    // A power of two in front changes no bit.
    Matrix shrunk = Matrix::scale(0x1p-60f) * a;
    ASSERT_EQ(shrunk.polarDecompose().orthogonal, factor.orthogonal);
  }
  EXPECT_GT(mirrors, 1000);
}

TEST(Polar, AxisScalesAndMirrorsComeOutExactly) {
  for (const float s : {1e-30f, 1e-10f, 0.3f, 1.0f, 7.0f, 1e38f}) {
    const Matrix uneven = Matrix::translation(5, 6, 7) * Matrix::scale(3, s, 0.1f);
    EXPECT_EQ(uneven.polarDecompose().orthogonal, Matrix()) << s;
    EXPECT_EQ(uneven.polarDecompose().determinantSign, 1) << s;
    const PolarFactor<float> mirror = Matrix::scale(-s, 2, 3).polarDecompose();
    EXPECT_EQ(mirror.orthogonal, Matrix::scale(-1, 1, 1)) << s;
    EXPECT_EQ(mirror.determinantSign, -1) << s;
    EXPECT_EQ(mirror.properRotation(), Matrix::scale(1, -1, -1)) << s;
  }
}

TEST(Polar, SingularAndNonFiniteInputGivesTheIdentity) {
  Randomness random(6);
  const auto expect_singular = [](const Matrix& m) {
    EXPECT_EQ(m.polarDecompose().orthogonal, Matrix());
    EXPECT_EQ(m.polarDecompose().determinantSign, 0);
  };
  for (UInt32 i = 0; i < 3; ++i) {
    for (const float bad : {0.0f, nan_value, infinite}) {
      Matrix m;
      m[5 * i] = bad;
      expect_singular(m);
    }
  }
  for (int i = 0; i < 200; ++i) {  // two equal columns under another: rank 2, or 1
    const Vec3f a = random.vector(), b = i % 2 ? random.vector() : a;
    expect_singular(
        Matrix({a[0], a[1], a[2], 0, b[0], b[1], b[2], 0, a[0], a[1], a[2], 0, 1, 2, 3, 1}));
  }
}

TEST(Quaternion, TurnsAsItsMatrixDoes) {
  Randomness random(7);
  for (int i = 0; i < 5000; ++i) {
    // Half turns among them: there the unit part vanishes.
    const float angle = i % 3 ? random.number(-7, 7) : pi;
    const Vec3f axis = i % 2 ? random.vector() : Vec3f(float(i % 4), float(i % 5), 1);
    const Matrix rotation = Matrix::rotation(axis, angle);
    const Quaternion q(rotation);
    const Vec3f v = random.vector();
    ASSERT_LT((q.rotate(v) - rotation * v).length(), 5e-7f) << i;
    ASSERT_LT((q.rotate(axis) - axis).length(), 1e-6f * axis.length()) << i;
    // The proper rotation within any matrix is one that a quaternion can hold.
    const Matrix within = random.affine_matrix().polarDecompose().properRotation();
    ASSERT_LT((Quaternion(within).rotate(v) - within * v).length(), 5e-7f) << i;
  }
  for (UInt32 i = 0; i < 3; ++i) {
    Matrix half_turn = Matrix::scale(-1);
    half_turn[5 * i] = 1;
    EXPECT_EQ(Quaternion(half_turn).rotate(Vec3f(1, 2, 3)), half_turn * Vec3f(1, 2, 3));
  }
}

TEST(Quaternion, WithoutRotationEveryBitStays) {
  const Quaternion none(Matrix::translation(3, 4, 5).polarDecompose().properRotation());
  EXPECT_EQ(none, Quaternion());
  EXPECT_EQ(Quaternion(Matrix::scale(nan_value)), Quaternion());
  for (const float x : {-0.0f, 1e-45f, 0.1f, -infinite, -nan_value}) {
    const Vec3f v(x, -0.0f, 0.3f);
    const Vec3f turned = none.rotate(v);
    for (UInt32 i = 0; i < 3; ++i) {
      EXPECT_EQ(std::bit_cast<UInt32>(turned[i]), std::bit_cast<UInt32>(v[i])) << x;
    }
  }
}

}  // namespace
}  // namespace osg
