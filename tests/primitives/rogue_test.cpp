#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>

#include "morlu/primitives.h"

namespace {

using point = osg::Point<float, 3>;
using triangle = std::array<point, 3>;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
const float limit = 999999995904.0f;

bool rogue(const triangle& t) {
  return morlu::osg::is_rogue(t[0], t[1], t[2]);
}

// Three corners well apart, but for the one coordinate that a test puts in.
triangle with_coordinate(int corner, int axis, float value) {
  triangle t = {point(1, 2, 3), point(40, 7, 5), point(6, 80, 90)};
  t[static_cast<std::size_t>(corner)][static_cast<unsigned>(axis)] = value;
  return t;
}

TEST(Rogue, CornersCoincideWithinTheBoundOnAllAxes) {
  const point a(0, 0, 0), far_off(5, 7, 9);
  const float bound = 1e-6f, beyond = std::nextafter(bound, 1.0f);
  for (int axis = 0; axis < 3; ++axis) {
    for (const float sign : {1.0f, -1.0f}) {
      point near(0, 0, 0), apart(0, 0, 0);
      near[static_cast<unsigned>(axis)] = sign * bound;
      apart[static_cast<unsigned>(axis)] = sign * beyond;
      for (triangle t :
           {triangle{a, near, far_off}, triangle{far_off, a, near}, triangle{near, far_off, a}})
        EXPECT_TRUE(rogue(t)) << axis << ' ' << sign;
      for (triangle t :
           {triangle{a, apart, far_off}, triangle{far_off, a, apart}, triangle{apart, far_off, a}})
        EXPECT_FALSE(rogue(t)) << axis << ' ' << sign;
    }
  }
  EXPECT_TRUE(rogue({a, point(bound, bound, -bound), far_off}));
}

TEST(Rogue, LinesAlongAnAxisButNotFlatTrianglesAndSlivers) {
  EXPECT_FALSE(rogue({point(0, 0, 5), point(1, 0, 5), point(0, 1, 5)}));           // in a plane
  EXPECT_TRUE(rogue({point(0, 3, 5), point(1, 3, 5), point(2, 3, 5)}));            // along x
  EXPECT_TRUE(rogue({point(3, 0, 5), point(3, 9, 5), point(3, 4, 5)}));            // along y
  EXPECT_TRUE(rogue({point(3, 5, 0), point(3, 5, 9), point(3, 5, 4)}));            // along z
  EXPECT_TRUE(rogue({point(0, -0.0f, 5), point(1, 0.0f, 5), point(2, 0.0f, 5)}));  // -0.0 is 0.0
  EXPECT_FALSE(rogue({point(0, 0, 0), point(1, 1, 1), point(2, 2, 2)}));           // a slanted line
  EXPECT_FALSE(rogue({point(0, 3, 5), point(1, std::nextafter(3.0f, 4.0f), 5), point(2, 3, 5)}));
}

TEST(Rogue, CoordinatesOutOfRangeOrNoNumbers) {
  for (int corner = 0; corner < 3; ++corner) {
    for (int axis = 0; axis < 3; ++axis) {
      for (const float bad : {std::nextafter(limit, infinity), -std::nextafter(limit, infinity),
                              infinity, -infinity, not_a_number, -not_a_number})
        EXPECT_TRUE(rogue(with_coordinate(corner, axis, bad))) << corner << axis << bad;
      for (const float good : {limit, -limit, std::numeric_limits<float>::denorm_min()})
        EXPECT_FALSE(rogue(with_coordinate(corner, axis, good))) << corner << axis << good;
    }
  }
}

// The definition again, as sets and in double: the values below are such that neither differences
// nor the limit round.
bool rogue_by_definition(const triangle& t) {
  const auto value = [&t](int corner, int axis) {
    return static_cast<double>(t[static_cast<std::size_t>(corner)][static_cast<unsigned>(axis)]);
  };
  int shared_axes = 0;
  std::array<double, 3> apart{};
  for (int axis = 0; axis < 3; ++axis) {
    const double a = value(0, axis), b = value(1, axis), c = value(2, axis);
    if (!(std::fabs(a) <= limit) || !(std::fabs(b) <= limit) || !(std::fabs(c) <= limit))
      return true;
    if (std::max({a, b, c}) == std::min({a, b, c})) ++shared_axes;
    apart[0] = std::max(apart[0], std::fabs(a - b));
    apart[1] = std::max(apart[1], std::fabs(b - c));
    apart[2] = std::max(apart[2], std::fabs(a - c));
  }
  return shared_axes >= 2 || *std::min_element(apart.begin(), apart.end()) <= 1e-6f;
}

TEST(Rogue, AgreesWithTheDefinitionOnOddValues) {
  const float values[] = {0.0f,  -0.0f,     0x1p-20f, 0x1p-21f, -0x1p-21f, 1.0f,
                          -1.0f, 0x1.8p39f, -0x1p40f, limit,    infinity,  not_a_number};
  constexpr unsigned seed = 20240611;
  std::mt19937 random(seed);
  int rogues = 0;
  constexpr int count = 200000;
  for (int i = 0; i < count; ++i) {
    // Few kinds of value a triangle, so that coinciding corners and shared axes are common.
    const unsigned kinds = 1 + random() % std::size(values), first = random() % std::size(values);
    triangle t;
    for (point& p : t)
      for (unsigned axis = 0; axis < 3; ++axis)
        p[axis] = values[(first + random() % kinds) % std::size(values)];
    ASSERT_EQ(rogue(t), rogue_by_definition(t))
        << "seed " << seed << ": " << t[0] << ", " << t[1] << ", " << t[2];
    rogues += rogue(t);
  }
  EXPECT_GT(rogues, count / 10);
  EXPECT_LT(rogues, count * 99 / 100);
}

TEST(CountTriangles, CountsUsableOnesOfEveryPrimitive) {
  //  2---3---5   a strip over 0..5 gives four triangles; the fan around 6 has two, of which one
  //  | \ | \ |   has corners 6 and 7 in one place
  //  0---1---4
  const auto geometry = osg::Geometry::create();
  const auto types = osg::GeoPTypesUI8::create();
  const auto lengths = osg::GeoPLengthsUI32::create();
  const auto positions = osg::GeoPositions3f::create();
  for (const auto& [type, length] : {std::pair{osg::kTriangleStrip, 6u},
                                     {osg::kTriangleFan, 4u},
                                     {osg::kLines, 2u},
                                     {osg::kPoints, 1u}}) {
    types->push_back(type);
    lengths->push_back(length);
  }
  for (const point& p :
       {point(0, 0, 0), point(1, 0, 0), point(0, 1, 0), point(1, 1, 0), point(2, 0, 0),
        point(2, 1, 0), point(5, 0, 0), point(5, 0, 0), point(6, 0, 0), point(6, 1, 0),
        point(7, 7, 7), point(8, 8, 8), point(9, 9, 9)})
    positions->push_back(p);
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setPositions(positions);
  EXPECT_EQ(morlu::osg::count_triangles(geometry), 5);

  positions->setValue(point(0, not_a_number, 0), 3);  // in three of the strip's triangles
  EXPECT_EQ(morlu::osg::count_triangles(geometry), 2);

  EXPECT_EQ(morlu::osg::count_triangles(osg::Geometry::create()), 0);
  EXPECT_EQ(morlu::osg::count_triangles(osg::NullFC), 0);
}

}  // namespace
