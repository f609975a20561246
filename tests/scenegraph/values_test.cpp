#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <iomanip>
#include <limits>
#include <locale>
#include <random>
#include <sstream>

#include "osg/line.h"
#include "osg/vector.h"

namespace osg {
namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

template <class A, class B>
concept Addable = requires(A a, B b) {
  a + b;
};
template <class A, class B>
concept Comparable = requires(A a, B b) {
  a == b;
};

// The kinds are told apart by the compiler, though they share their storage.
static_assert(std::is_same_v<decltype(Pnt3f() - Pnt3f()), Vec3f>);
static_assert(std::is_same_v<decltype(Pnt3f() + Vec3f()), Pnt3f>);
static_assert(std::is_same_v<decltype(Pnt3f() - Vec3f()), Pnt3f>);
static_assert(!Addable<Pnt3f, Pnt3f> && !Addable<Color3f, Color3f>);
static_assert(!Comparable<Pnt3f, Vec3f> && !Comparable<Color3f, Vec3f>);
static_assert(!std::is_convertible_v<Vec3f, Pnt3f> && !std::is_convertible_v<Pnt3f, Vec3f>);
static_assert(!std::is_convertible_v<float, Vector<float, 1>>);

TEST(Tuple, OrdersExactlyAndLexicographically) {
  const float one_up = std::nextafter(1.0f, 2.0f);
  const Pnt3f ascending[] = {
      {-infinite, 9.0f, 9.0f}, {-1, 9, 9},     {0, -1, 9},       {0, 0, 1},
      {0, 0, one_up},          {0, 1e-30f, 0}, {1e-38f, -5, -5}, {1, one_up, -9.0f}};
  for (const Pnt3f& a : ascending) {
    for (const Pnt3f& b : ascending) {
      EXPECT_EQ(a < b, &a < &b) << a << " | " << b;
      EXPECT_EQ(a == b, &a == &b) << a << " | " << b;
      EXPECT_EQ(a != b, &a != &b) << a << " | " << b;
    }
  }
  EXPECT_EQ(Vec3f(0.0f, 1, 2), Vec3f(-0.0f, 1, 2));
  EXPECT_FALSE(Vec3f(0.0f, 1, 2) < Vec3f(-0.0f, 1, 2));
  EXPECT_NE(Vec3f(nan_value, 0, 0), Vec3f(nan_value, 0, 0));
}

TEST(Tuple, WritesTheDefaultFormWhateverTheStreamIsSetTo) {
  struct Comma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
  };
  const auto text_of = [](const auto& value) {
    std::ostringstream out;
    out.imbue(std::locale(std::locale::classic(), new Comma));
    out << std::hex << std::scientific << std::showpos << std::uppercase << std::setprecision(17)
        << std::setfill('*') << std::setw(30);
    const auto flags = out.flags();
    out << value;
    EXPECT_EQ(out.flags(), flags);
    EXPECT_EQ(out.precision(), 17);
    EXPECT_EQ(out.width(), 30);
    EXPECT_EQ(out.fill(), '*');
    return out.str();
  };
  EXPECT_EQ(text_of(Pnt3f(1, -2.5f, 1e6f)), "1 -2.5 1e+06");
  EXPECT_EQ(text_of(Pnt3f(-0.0f, infinite, 123456.7f)), "-0 inf 123457");
  EXPECT_EQ(text_of(Vector<double, 4>(1.0 / 3, -1e-300, 1e300, nan_value)),
            "0.333333 -1e-300 1e+300 nan");
  EXPECT_EQ(text_of(Color4ub(0, 65, 200, 255)), "0 65 200 255");
  EXPECT_EQ(text_of(Vector<UInt64, 2>(UInt64(-1), UInt64(-1))),
            "18446744073709551615 18446744073709551615");
  EXPECT_EQ(text_of(Vector<float, 1>(0.5f)), "0.5");
}

// The same numbers as the standard library's own default form.
TEST(Tuple, TextAgreesWithAFreshStream) {
  std::mt19937 random(1);
  for (int i = 0; i < 2000; ++i) {
    const float value = std::bit_cast<float>(static_cast<UInt32>(random()));
    std::ostringstream ours, fresh;
    ours << Vec2f(value, -value);
    fresh << value << ' ' << -value;
    ASSERT_EQ(ours.str(), fresh.str());
  }
}

TEST(Vector, SumsProductsFromTheFirstComponentOn) {
  // 1 + 2^-24 rounds to 1 each time; in any other order the two small squares would survive.
  const Vec3f v(1, 0x1p-12f, 0x1p-12f);
  EXPECT_EQ(v.dot(v), 1.0f);
  EXPECT_EQ(Vec3f(0x1p-12f, 0x1p-12f, 1).dot(Vec3f(0x1p-12f, 0x1p-12f, 1)), 1 + 0x1p-23f);
  EXPECT_EQ(Vec3f(1, 0, 0).cross(Vec3f(0, 1, 0)), Vec3f(0, 0, 1));
  EXPECT_EQ(Vec3f(2, 3, 6).length(), 7.0f);
}

TEST(Vector, NormalizeLeavesShortVectorsAndSurvivesLongOnes) {
  const auto normalized = [](Vec3f v) {
    v.normalize();
    return v;
  };
  const float bound = 1e-6f, below = std::nextafter(bound, 0.0f);
  EXPECT_EQ(normalized(Vec3f(0, below, 0)), Vec3f(0, below, 0));
  EXPECT_EQ(normalized(Vec3f(0, bound, 0)), Vec3f(0, 1, 0));
  EXPECT_EQ(normalized(Vec3f()), Vec3f());
  EXPECT_EQ(normalized(Vec3f(0, 0, -3e38f)), Vec3f(0, 0, -1));
  EXPECT_NEAR(normalized(Vec3f(3e30f, -4e30f, 0))[1], -0.8f, 1e-6f);
  EXPECT_TRUE(std::isnan(normalized(Vec3f(1, nan_value, 0))[1]));

  std::mt19937 random(2);
  std::uniform_real_distribution<float> exponent(-5.9f, 38.0f), component(-1, 1);
  for (int i = 0; i < 10000; ++i) {
    const Vec3f direction(component(random), component(random), component(random));
    const Vec3f v = direction * std::pow(10.0f, exponent(random));
    if (v.length() < 1e-6f) continue;
    ASSERT_NEAR(normalized(v).length(), 1.0f, 3e-7f) << v;
    ASSERT_GT(normalized(v).dot(direction), 0.99999f * direction.length()) << v;
  }
}

TEST(Line, DirectionHasUnitLengthHoweverSmallTheInput) {
  for (const float size : {1e-45f, 1e-30f, 1e-7f, 1.0f, 3e38f}) {
    EXPECT_EQ(Line(Pnt3f(1, 2, 3), Vec3f(0, -size, 0)).getDirection(), Vec3f(0, -1, 0)) << size;
  }
  EXPECT_NEAR(Line(Pnt3f(), Vec3f(3e-20f, 0, 4e-20f)).getDirection()[2], 0.8f, 1e-7f);
  EXPECT_EQ(Line(Pnt3f(1, 2, 3), Vec3f()).getDirection(), Vec3f());
  EXPECT_EQ(Line(Pnt3f(1, 2, 3), Vec3f(0, 0, 9)).getPoint(2), Pnt3f(1, 2, 5));
}

}  // namespace
}  // namespace osg
