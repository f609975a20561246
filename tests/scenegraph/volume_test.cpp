#include "osg/volume.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <vector>

namespace osg {
namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();
constexpr float largest = std::numeric_limits<float>::max();

DynamicVolume unit_box() {
  return {Pnt3f(0, 0, 0), Pnt3f(1, 1, 1)};
}

void expect_bounds(const Volume& box, const Pnt3f& min, const Pnt3f& max) {
  Pnt3f low, high;
  box.getBounds(low, high);
  EXPECT_EQ(low, min);
  EXPECT_EQ(high, max);
  EXPECT_EQ(box.getMin(), min);
  EXPECT_EQ(box.getMax(), max);
}

TEST(Volume, EmptyIsNotInvalid) {
  DynamicVolume box;
  EXPECT_TRUE(box.isEmpty() && box.isValid());
  expect_bounds(box, Pnt3f(), Pnt3f());
  EXPECT_EQ(box.getCenter(), Pnt3f());
  EXPECT_EQ(box.getScalarVolume(), 0);
  EXPECT_FALSE(box.intersect(box) || box.intersect(unit_box()) || unit_box().intersect(box));
  EXPECT_FALSE(box.intersect(Line(Pnt3f(), Vec3f(1, 0, 0))) || box.intersect(Pnt3f()));

  box.setValid(false);
  box.extendBy(Pnt3f(1, 2, 3));
  EXPECT_FALSE(box.isEmpty() || box.isValid());
  box.transform(Matrix::scale(2));
  EXPECT_FALSE(box.isValid());
  expect_bounds(box, Pnt3f(2, 4, 6), Pnt3f(2, 4, 6));
  box.setEmpty();
  EXPECT_TRUE(box.isEmpty() && box.isValid());
}

TEST(Volume, ExtendsByPointsAndBoxesButNeverByNaN) {
  DynamicVolume box(Pnt3f(3, -1, 5), Pnt3f(-3, 1, 4));
  expect_bounds(box, Pnt3f(-3, -1, 4), Pnt3f(3, 1, 5));
  box.extendBy(Pnt3f(nan_value, 7, nan_value));
  expect_bounds(box, Pnt3f(-3, -1, 4), Pnt3f(3, 7, 5));
  box.extendBy(DynamicVolume());
  box.extendBy(box);
  expect_bounds(box, Pnt3f(-3, -1, 4), Pnt3f(3, 7, 5));
  box.extendBy(DynamicVolume(Pnt3f(0, 0, 0), Pnt3f(1, 8, 1)));
  expect_bounds(box, Pnt3f(-3, -1, 0), Pnt3f(3, 8, 5));
  box.setBounds(box.getMax(), box.getMin());
  expect_bounds(box, Pnt3f(-3, -1, 0), Pnt3f(3, 8, 5));
  DynamicVolume of_nothing;
  of_nothing.extendBy(Pnt3f(nan_value, nan_value, nan_value));
  EXPECT_TRUE(of_nothing.isEmpty());
}

TEST(Volume, ContentIsZeroForFlatBoxesOnly) {
  EXPECT_EQ(DynamicVolume(Pnt3f(1, 1, 1), Pnt3f(3, 4, 6)).getScalarVolume(), 30);
  EXPECT_EQ(DynamicVolume(Pnt3f(1, 1, 1), Pnt3f(3, 1, 6)).getScalarVolume(), 0);
  EXPECT_EQ(DynamicVolume(Pnt3f(-infinite, 1, 1), Pnt3f(infinite, 1, 6)).getScalarVolume(), 0);
  EXPECT_GT(DynamicVolume(Pnt3f(), Pnt3f(1e-30f, 1e-30f, 1e-30f)).getScalarVolume(), 0);
  EXPECT_EQ(DynamicVolume(Pnt3f(2e38f, 1, 1), Pnt3f(3e38f, 2, 4)).getCenter(),
            Pnt3f(2.5e38f, 1.5f, 2.5f));
}

TEST(Volume, BoxesThatTouchMeet) {
  const DynamicVolume box = unit_box();
  for (UInt32 axis = 0; axis < 3; ++axis) {
    for (const float side : {-1.0f, 1.0f}) {
      Vec3f step;
      step[axis] = side;
      const DynamicVolume neighbour(Pnt3f(0, 0, 0) + step, Pnt3f(1, 1, 1) + step);
      EXPECT_TRUE(box.intersect(neighbour) && neighbour.intersect(box)) << step;
      step[axis] *= 1.0000002f;
      const DynamicVolume apart(Pnt3f(0, 0, 0) + step, Pnt3f(1, 1, 1) + step);
      EXPECT_FALSE(box.intersect(apart) || apart.intersect(box)) << step;
    }
  }
}

TEST(Volume, TransformHoldsTheEightCornersAndNoMore) {
  std::mt19937 engine(8);
  std::uniform_real_distribution<float> number(-10, 10);
  const auto point = [&] { return Pnt3f(number(engine), number(engine), number(engine)); };
  for (int round = 0; round < 2000; ++round) {
    Matrix m;
    for (UInt32 i = 0; i < 16; ++i) m[i] = i % 4 == 3 ? m[i] : number(engine);
    const DynamicVolume box(point(), point());
    DynamicVolume image = box;
    image.transform(m);
    for (UInt32 row = 0; row < 3; ++row) {
      double low = infinite, high = -infinite;
      for (int corner = 0; corner < 8; ++corner) {
        double value = m[12 + row];
        for (UInt32 axis = 0; axis < 3; ++axis) {
          const Pnt3f bound = corner >> axis & 1 ? box.getMax() : box.getMin();
          value += double(m[4 * axis + row]) * bound[axis];
        }
        low = std::min(low, value);
        high = std::max(high, value);
      }
      // Not inside the exact box, and not two floats outside it.
      ASSERT_LE(image.getMin()[row], low + 1e-12);
      ASSERT_GE(image.getMax()[row], high - 1e-12);
      ASSERT_GE(std::nextafter(image.getMin()[row], infinite), low - 1e-12);
      ASSERT_LE(std::nextafter(image.getMax()[row], -infinite), high + 1e-12);
    }
  }
}

TEST(Volume, TransformMindsInfinitiesAndNaN) {
  DynamicVolume slab(Pnt3f(-infinite, 0, 1), Pnt3f(infinite, 2, 3));
  slab.transform(Matrix::translation(10, 10, 10) * Matrix::scale(-1));
  expect_bounds(slab, Pnt3f(-infinite, 8, 7), Pnt3f(infinite, 10, 9));

  for (const float side : {-infinite, infinite}) {  // x' = x - y + side: infinity less infinity
    DynamicVolume sheared(Pnt3f(0, 0, 0), Pnt3f(1, side, 1));
    Matrix shear = Matrix::translation(side, 0, 0);
    shear[4] = -1;
    sheared.transform(shear);
    expect_bounds(sheared, Pnt3f(-infinite, std::min(0.0f, side), 0),
                  Pnt3f(infinite, std::max(0.0f, side), 1));
  }

  DynamicVolume huge(Pnt3f(0, 0, 0), Pnt3f(2, 1, 1));
  huge.transform(Matrix::scale(largest));
  expect_bounds(huge, Pnt3f(0, 0, 0), Pnt3f(infinite, largest, largest));

  DynamicVolume lost = unit_box();
  lost.transform(Matrix::translation(0, nan_value, 0));
  EXPECT_TRUE(lost.isEmpty());
  DynamicVolume empty;
  empty.transform(Matrix::translation(1, 2, 3));
  EXPECT_TRUE(empty.isEmpty());
}

// Decides without rounding whether the ray meets the box: "plane i is reached no later than plane
// j" by cross products, which are exact in double where coordinates are small integers (the
// direction's 24 bits times a few more).
bool exact_hit(const Line& line, const Pnt3f& min, const Pnt3f& max) {
  struct Distance {
    double numerator, denominator;  // denominator > 0
    bool operator<=(const Distance& b) const {
      return numerator * b.denominator <= b.numerator * denominator;
    }
  };
  std::vector<Distance> enters{{0, 1}}, exits;
  for (UInt32 i = 0; i < 3; ++i) {
    const double d = line.getDirection()[i], o = line.getPosition()[i];
    if (d == 0) {
      if (o < min[i] || o > max[i]) return false;
      continue;
    }
    enters.push_back(d > 0 ? Distance{min[i] - o, d} : Distance{o - max[i], -d});
    exits.push_back(d > 0 ? Distance{max[i] - o, d} : Distance{o - min[i], -d});
  }
  return std::all_of(enters.begin(), enters.end(), [&](const Distance& enter) {
    return std::all_of(exits.begin(), exits.end(),
                       [&](const Distance& exit) { return enter <= exit; });
  });
}

// Small integers throughout, so that rays along faces, through edges and corners, from within,
// away from the box and at boxes without thickness are all frequent.
TEST(RayBox, AgreesWithExactArithmetic) {
  std::mt19937 engine(9);
  const auto component = [&](int range) {
    const int value = static_cast<int>(engine() % unsigned(2 * range + 1)) - range;
    return value == 0 && engine() % 2 ? -0.0f : static_cast<float>(value);
  };
  const auto triple = [&](int range) {
    return Vec3f(component(range), component(range), component(range));
  };
  int hits = 0, touches = 0;
  for (int round = 0; round < 300000; ++round) {
    const DynamicVolume box{Pnt3f(triple(3)), Pnt3f(triple(3))};
    const Line line(Pnt3f(triple(5)), triple(round % 2 ? 1 : 4));
    Pnt3f min, max;
    box.getBounds(min, max);
    const bool expected = exact_hit(line, min, max);
    Real32 enter = -7, exit = -8;
    const auto describe = [&] {
      std::ostringstream text;
      text << "box " << min << " | " << max << " line " << line.getPosition() << " | "
           << line.getDirection();
      return text.str();
    };
    ASSERT_EQ(box.intersect(line, enter, exit), expected) << describe();
    ASSERT_EQ(box.intersect(line), expected) << describe();
    if (!expected) {
      ASSERT_TRUE(enter == -7 && exit == -8) << describe();
      continue;
    }
    ++hits;
    touches += enter == exit;
    ASSERT_TRUE(0 <= enter && enter <= exit) << describe();
    ASSERT_TRUE(enter > 0 || box.intersect(line.getPosition())) << describe();
    ASSERT_TRUE(enter == 0 || !box.intersect(line.getPosition())) << describe();
    // Both ends lie on the box, to float accuracy.
    if (exit == largest) continue;  // no direction
    for (const float t : {enter, exit}) {
      const Pnt3f p = line.getPoint(t);
      for (UInt32 i = 0; i < 3; ++i) {
        ASSERT_TRUE(min[i] - 1e-5f <= p[i] && p[i] <= max[i] + 1e-5f) << describe();
      }
    }
  }
  EXPECT_GT(hits, 15000);
  EXPECT_GT(touches, 3000);
}

// A ray that grazes one corner, from a position so fine that doubles round the way to it:
//
//        | box |      position (-f, -n f), direction (1, n), corner (1, n):
//     (1,n)----       it passes the corner's two planes at the very same distance,
//      /              1 + f, but 1 + f and n (1 + f) round to different sides.
//
// The corner's x plane is the box' far one there and its y plane the near one.
TEST(RayBox, RoundingLosesNoGrazingHit) {
  int rays = 0;
  for (int n = 2; n < 200; ++n) {
    const Vec3f direction = Line(Pnt3f(), Vec3f(1, float(n), 0)).getDirection();
    if (double(direction[1]) != double(direction[0]) * n) continue;  // another slope after rounding
    for (int k = 1; k < 64; ++k) {
      const float fine = static_cast<float>(k) * 0x1p-55f;
      const Line line(Pnt3f(-fine, -fine * float(n), 0), Vec3f(1, float(n), 0));
      const DynamicVolume box(Pnt3f(-5, float(n), 0), Pnt3f(1, 500, 0));
      EXPECT_TRUE(box.intersect(line)) << n << " " << k;
      const DynamicVolume turned(Pnt3f(1, -5, 0), Pnt3f(500, float(n), 0));
      EXPECT_TRUE(turned.intersect(line)) << n << " " << k;
      ++rays;
    }
  }
  EXPECT_GT(rays, 500);
}

TEST(RayBox, StandsInfinitiesAndNaN) {
  const DynamicVolume box = unit_box();
  for (const float bad : {nan_value, infinite, -infinite}) {
    for (UInt32 i = 0; i < 3; ++i) {
      Pnt3f position(0.5f, 0.5f, 0.5f);
      Vec3f direction(1, 1, 1);
      position[i] = bad;
      EXPECT_FALSE(box.intersect(Line(position, direction)));
      direction[i] = bad;
      EXPECT_FALSE(box.intersect(Line(Pnt3f(0.5f, 0.5f, 0.5f), direction)));
    }
  }
  const DynamicVolume half_space(Pnt3f(2, -infinite, -infinite),
                                 Pnt3f(infinite, infinite, infinite));
  Real32 enter = 0, exit = 0;
  EXPECT_TRUE(half_space.intersect(Line(Pnt3f(0, 5, 5), Vec3f(1, 0, 0)), enter, exit));
  EXPECT_EQ(enter, 2);
  EXPECT_EQ(exit, largest);
  EXPECT_FALSE(half_space.intersect(Line(Pnt3f(0, 5, 5), Vec3f(-1, 1, 0))));
  EXPECT_TRUE(DynamicVolume(Pnt3f(largest, -1, -1), Pnt3f(largest, 1, 1))
                  .intersect(Line(Pnt3f(-largest, 0, 0), Vec3f(1, 0, 0)), enter, exit));
  EXPECT_EQ(enter, largest);
}

}  // namespace
}  // namespace osg
