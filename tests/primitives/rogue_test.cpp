#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>

#include "morlu/primitives.h"
#include "support/scene_parts.h"

namespace {

using point = osg::Point<float, 3>;
using triangle = std::array<point, 3>;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
const float limit = 999999995904.0f;

bool rogue(const triangle& t) {
  return morlu::osg::is_rogue(t[0], t[1], t[2]);
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
  const float values[] = {0.0f,
                          -0.0f,
                          0x1p-20f,
                          0x1p-21f,
                          -0x1p-21f,
                          1e-6f,
                          std::nextafter(1e-6f, 1.0f),
                          -1e-6f,
                          1.0f,
                          -1.0f,
                          0x1.8p39f,
                          -0x1p40f,
                          limit,
                          -limit,
                          std::nextafter(limit, infinity),
                          infinity,
                          -infinity,
                          not_a_number};
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
  const std::vector<point> corners = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {2, 0, 0},
                                      {2, 1, 0}, {5, 0, 0}, {5, 0, 0}, {6, 0, 0}, {6, 1, 0},
                                      {7, 7, 7}, {8, 8, 8}, {9, 9, 9}};
  const auto geometry = primitives_over(
      corners,
      {{osg::kTriangleStrip, 6}, {osg::kTriangleFan, 4}, {osg::kLines, 2}, {osg::kPoints, 1}});
  EXPECT_EQ(morlu::osg::count_triangles(geometry), 5);

  geometry->getPositions()->setValue(point(0, not_a_number, 0),
                                     3);  // in three of the strip's triangles
  EXPECT_EQ(morlu::osg::count_triangles(geometry), 2);

  EXPECT_EQ(morlu::osg::count_triangles(osg::Geometry::create()), 0);
  EXPECT_EQ(morlu::osg::count_triangles(osg::NullFC), 0);
}

}  // namespace
