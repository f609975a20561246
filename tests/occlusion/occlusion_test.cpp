// The sampler beside brute force and closed forms, and many points beside one by one.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "occlusion/occlusion_scenes.h"

namespace morlu::tests {
namespace {

using osg::sample_point;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

// --- Brute force ---------------------------------------------------------------------------------

using vector3d = ::osg::Vec3d;

vector3d of(const vector3& v) {
  return {v[0], v[1], v[2]};
}

/// In double precision, over all triangles, by other formulas: volumes that the ray spans with each
/// edge.
double plain_occlusion(const std::vector<triangle>& all, const vector3& position,
                       const vector3& normal, double distance, bool two_sided) {
  double blocked = 0;
  int shot = 0;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j)
      for (int k = 0; k < 4; ++k, ++shot) {
        const vector3d d{i * 2 / 3. - 1, j * 2 / 3. - 1, k * 2 / 3. - 1};
        const vector3d from = of(position) + d * 1e-4, way = of(normal) + d;
        double nearest = std::numeric_limits<double>::infinity();
        for (const triangle& each : all) {
          const vector3d a = of(each[0]) - from, b = of(each[1]) - from, c = of(each[2]) - from;
          const double u = way.dot(c.cross(b)), v = way.dot(a.cross(c)), w = way.dot(b.cross(a));
          const double sum = u + v + w;
          const bool front = u >= 0 && v >= 0 && w >= 0 && sum > 0;
          const bool back = u <= 0 && v <= 0 && w <= 0 && sum < 0;
          if (!front && !(two_sided && back)) continue;
          const vector3d hit = (a * u + b * v + c * w) / sum;
          if (hit.dot(way) < 0) continue;
          nearest = std::min(nearest, (from + hit - of(position)).length());
        }
        if (nearest < distance)
          blocked += 1;
        else if (nearest < 2 * distance)
          blocked += (nearest - distance) / distance;
      }
  return 1 - blocked / shot;
}

/// All triangles as the scene has them.
std::vector<triangle> triangles_of(const test_scene& in) {
  std::vector<triangle> all;
  for (const auto& set : in.objects->geosets)
    all.insert(all.end(), set.triangles.get(), set.triangles.get() + set.num_objects);
  return all;
}

/// Balls, soups and floors, some scaled, some mirrored, some without triangles.
::osg::NodePtr random_scene(std::mt19937& random, int objects) {
  std::vector<::osg::NodePtr> parts;
  for (int i = 0; i < objects; ++i) {
    const auto geometry = i % 7 == 6   ? ::osg::Geometry::create()
                          : i % 3 == 0 ? make_geometry(random_soup(random, 5 + random() % 60))
                          : i % 3 == 1
                              ? make_geometry(ball(3 + static_cast<int>(random() % 5)))
                              : make_geometry(quad({-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}));
    const float turn = i % 5 == 4 ? -1 : 1;
    const float size = i % 3 == 0 ? 0.3f : 1;
    parts.push_back(placed(node_with(geometry),
                           scaled({size * turn, size * 1.5f, size}, random_point(random, 6))));
  }
  return group(parts);
}

std::vector<sample_point> random_points(std::mt19937& random, std::size_t count) {
  std::vector<sample_point> points;
  for (std::size_t i = 0; i < count; ++i) {
    const vector3 normal = math::unit(random_point(random, 1));
    points.push_back({random_point(random, i % 4 ? 7 : 15), normal * (i % 9 ? 1.0f : 0.0f)});
  }
  return points;
}

TEST(Occlusion, IsWhatBruteForceSees) {
  const unsigned seed = 4;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 3; ++round) {
    const test_scene in(random_scene(random, 25));
    const auto all = triangles_of(in);
    int disputed = 0, blocked = 0;
    for (const sample_point& point : random_points(random, 120))
      for (const float distance : {1.5f, 4.0f, in.diagonal()})
        for (const bool two_sided : {false, true}) {
          const float got = in.at(point.position, point.normal, distance, two_sided);
          const double expected =
              plain_occlusion(all, point.position, point.normal, distance, two_sided);
          disputed += std::fabs(got - expected) > 1e-3;  // a ray along an edge is 1 / 64
          EXPECT_NEAR(got, expected, 4.0 / 64) << round;
          blocked += got < 0.9f;
        }
    EXPECT_GT(blocked, 100);
    EXPECT_LT(disputed, 12);
  }
}

// --- Closed forms --------------------------------------------------------------------------------

//   +-----------+    A room of one object or of six flat ones, fronts inward: its walls lie in the
//   |     p->   |    boxes' own sides, where rays leave the boxes, and may lie far from the origin,
//   +-----------+    where floats are coarse. Each ray must still meet a wall.
TEST(Occlusion, WallsOfARoomBlockAllRays) {
  for (const float far : {0.0f, 1000.0f, -3e4f}) {
    std::vector<std::vector<triangle>> walls;
    const auto wall = [&](const vector3& at, const vector3& u, const vector3& v) {
      walls.push_back(quad(at, at + u, at + u + v, at + v));
    };
    const vector3 x{3.7f, 0, 0}, y{0, 5.3f, 0}, z{0, 0, 2.9f};
    const vector3 low{0.1f + far, -0.7f + far, 1.3f + far}, high = low + x + y + z;
    wall(low, x, y), wall(low, y, z), wall(low, z, x);
    wall(high, y * -1, x * -1), wall(high, z * -1, y * -1), wall(high, x * -1, z * -1);
    std::vector<triangle> room;
    std::vector<::osg::NodePtr> nodes;
    for (const auto& each : walls) {
      room.insert(room.end(), each.begin(), each.end());
      nodes.push_back(mesh_node(each));
    }
    for (const auto& root : {mesh_node(room), group(nodes)}) {
      const test_scene in(root);
      std::mt19937 random(8);
      for (int i = 0; i < 60; ++i) {
        const vector3 p = low + x * 0.5f + y * 0.5f + z * 0.5f + random_point(random, 1.3f);
        EXPECT_EQ(in.at(p, {0, 0, 0}, 10), 0) << i << " at " << far;
        EXPECT_EQ(in.at(p, math::unit(random_point(random, 1)), 10), 0) << i << " at " << far;
        EXPECT_EQ(in.at(p, {0, 0, 1}, 10, true), 0) << i << " at " << far;
      }
    }
  }
}

TEST(Occlusion, NothingBlocksWithoutObjects) {
  for (const ::osg::NodePtr& root :
       {::osg::NodePtr(), group({}), node_with(::osg::Geometry::create())}) {
    const test_scene in(root);
    EXPECT_EQ(in.objects->size(), 0u);
    EXPECT_EQ(in.at({0, 0, 0}, {0, 0, 1}, 10), 1);
    osg::occlusion_sampler sampler(in.top_tree, *in.objects);
    std::vector<float> values(3, 0);
    sampler.occlusion_at_many(std::vector<sample_point>(3), 3, 10, false, values);
    EXPECT_EQ(values, std::vector<float>(3, 1));
  }
}

TEST(Directions, AreAGridOverTheCube) {
  const auto one = osg::direction_grid(1);
  ASSERT_EQ(one.size(), 8u);
  for (unsigned i = 0; i < 8; ++i)
    for (unsigned axis = 0; axis < 3; ++axis)
      EXPECT_EQ(one[i].values[axis], i >> (2 - axis) & 1 ? 1 : -1) << i;
  const auto two = osg::direction_grid(2);
  ASSERT_EQ(two.size(), 27u);
  EXPECT_EQ(math::length(two[13]), 0);
  EXPECT_EQ(osg::direction_grid(15).size(), 4096u);
  EXPECT_EQ(osg::direction_grid(3)[1].values[2], static_cast<float>(2.0 / 3 - 1));
  EXPECT_EQ(osg::direction_grid(0).size(), 8u);
  EXPECT_EQ(osg::direction_grid(static_cast<unsigned>(-5)).size(), 8u);
  EXPECT_THROW(osg::direction_grid(1u << 30), std::length_error) << "(n + 1)^3 is 2^90";
}

TEST(Directions, AreThoseOfTheFirstCall) {
  const std::size_t first = osg::sample_directions(3).size();
  EXPECT_EQ(osg::sample_directions(1).size(), first);
  EXPECT_EQ(osg::sample_directions(0).size(), first);
}

// --- Many points ---------------------------------------------------------------------------------

/// Returns how many values aren't 1.
int expect_same(const test_scene& in, const std::vector<sample_point>& points, float distance,
                bool two_sided) {
  std::vector<float> expected;
  int occluded = 0;
  for (const sample_point& point : points) {
    expected.push_back(in.at(point.position, point.normal, distance, two_sided));
    occluded += expected.back() != 1;
  }
  for (const vector_unit unit : units_here()) {
    osg::occlusion_sampler sampler(in.top_tree, *in.objects, unit);
    std::vector<float> values(points.size(), 7);
    sampler.occlusion_at_many(points, 3, distance, two_sided, values);
    for (std::size_t i = 0; i < points.size(); ++i)
      if (std::bit_cast<std::uint32_t>(values[i]) != std::bit_cast<std::uint32_t>(expected[i])) {
        ADD_FAILURE() << "point " << i << " on unit " << static_cast<int>(unit) << ": " << values[i]
                      << " for " << expected[i] << " at distance " << distance;
        break;
      }
  }
  return occluded;
}

TEST(ManyPoints, GetTheValuesOfEachAlone) {
  const unsigned seed = 21;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (const int objects : {1, 4, 60, 300}) {
    const test_scene in(random_scene(random, objects));
    auto points = random_points(random, 150);
    for (const triangle& each : triangles_of(in)) {  // on the surface, as in a bake
      if (points.size() > 400) break;
      points.push_back({each[0], math::unit(math::cross(each[1] - each[0], each[2] - each[0]))});
    }
    for (const float distance : {0.0f, 0.3f, 3.0f, in.diagonal() * 0.5f, in.diagonal(), infinity})
      for (const bool two_sided : {false, true}) {
        const int occluded = expect_same(in, points, distance, two_sided);
        if (distance >= 3 && distance < infinity) {
          EXPECT_GT(occluded, 20) << objects;
        }
      }
  }
}

// Short directions (a normal against a direction) make the walk's bounds on distances wrong, so
// that which hit is found depends on the order of visits; many objects and triangles in one place
// make equal distances; values that are no numbers make comparisons fail.
TEST(ManyPoints, AgreeOnTiesAndOddValues) {
  std::mt19937 random(2);
  std::vector<::osg::NodePtr> parts;
  std::vector<triangle> twice = random_soup(random, 40);
  twice.insert(twice.end(), twice.begin(), twice.end());
  for (int i = 0; i < 12; ++i) parts.push_back(mesh_node(twice));
  for (int i = 0; i < 6; ++i)
    parts.push_back(mesh_node(quad({-9, -9, 1}, {9, -9, 1}, {9, 9, 1}, {-9, 9, 1})));
  for (const float odd : {nan, infinity, 1e20f, 1e37f, 1e-30f}) {
    parts.push_back(placed(mesh_node(twice), scaled({1, 1, 1}, {odd, 0, 0})));
    parts.push_back(placed(mesh_node(twice), scaled({odd, odd, 1}, {0, 0, 0})));
  }
  std::vector<sample_point> points = random_points(random, 100);
  for (const float odd : {nan, infinity, -infinity, 0.0f, -0.0f, 1e-40f, 1e19f, 1e38f})
    for (int axis = 0; axis < 3; ++axis) {
      sample_point point{{1, 2, 3}, {0, 0, 1}};
      point.position[axis] = odd;
      points.push_back(point);
      point = {{1, 2, 3}, {1.0f / 3, 1.0f / 3, -1}};
      point.normal[axis] = odd;
      points.push_back(point);
    }
  // a lid so large that its hit is no number, before a floor that would block
  const auto floor = [](float z) {
    return mesh_node(quad({-9, -9, z}, {9, -9, z}, {9, 9, z}, {-9, 9, z}));
  };
  expect_same(test_scene(group({placed(floor(2), scaled({1e19f, 1e19f, 1}, {0, 0, 0})), floor(1)})),
              {{{1, 2, 3}, {0, 0, -1}}, {{0, 0, 9}, {0, 0, -1}}}, 40, false);
  for (const std::size_t count : {std::size_t{18}, std::size_t{20}, parts.size()}) {
    const test_scene in(group({parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(count)}));
    for (const float distance : {2.0f, 40.0f, 1e30f, nan, -1.0f})
      for (const bool two_sided : {false, true}) expect_same(in, points, distance, two_sided);
  }
}

}  // namespace
}  // namespace morlu::tests
