// Rays: the tests of boxes and triangles by themselves, and whole traces against brute force in
// double precision.

#include "ray/trace.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ray/ray_scenes.h"
#include "support/run_threads.h"

namespace morlu::tests {
namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

ray_hit triangle_hit(const triangle& t, const vector3& p, const vector3& q,
                     bool two_sided = false) {
  ray_hit hit{};
  hit.two_sided = two_sided;
  intersect_triangle(t[0], t[1], t[2], p, q, hit);
  return hit;
}

/// (0,0) (4,0) (0,4) in the plane z = 0, front towards +z.
const triangle floor_triangle{{vector3{0, 0, 0}, vector3{4, 0, 0}, vector3{0, 4, 0}}};

TEST(IntersectTriangle, BoundsBelongToTheTriangle) {
  struct {
    float x, y;
    bool hit;
  } const cases[] = {{1, 1, true}, {0, 0, true},   {4, 0, true},       {2, 0, true},
                     {2, 2, true}, {-1, 1, false}, {2.001f, 2, false}, {nan_value, 1, false}};
  for (const auto& each : cases) {
    const ray_hit hit = triangle_hit(floor_triangle, {each.x, each.y, 3}, {each.x, each.y, -1});
    EXPECT_EQ(hit.hit, each.hit) << each.x << ' ' << each.y;
    if (!hit.hit) continue;
    EXPECT_EQ(hit.t, 0.75f);
    EXPECT_EQ(hit.point[2], 0);
  }
  EXPECT_TRUE(triangle_hit(floor_triangle, {1, 1, 0}, {1, 1, -1}).hit);   // starts on it
  EXPECT_TRUE(triangle_hit(floor_triangle, {1, 1, 1}, {1, 1, 0}).hit);    // ends on it
  EXPECT_FALSE(triangle_hit(floor_triangle, {1, 1, 2}, {1, 1, 1}).hit);   // ends before it
  EXPECT_FALSE(triangle_hit(floor_triangle, {-1, 1, 0}, {5, 1, 0}).hit);  // runs within it
}

TEST(IntersectTriangle, SeesFrontFacesAndBothOnRequest) {
  EXPECT_FALSE(triangle_hit(floor_triangle, {1, 1, -1}, {1, 1, 3}).hit);
  const ray_hit back = triangle_hit(floor_triangle, {1, 1, -1}, {1, 1, 3}, true);
  EXPECT_TRUE(back.hit);
  EXPECT_TRUE(back.two_sided);
  EXPECT_LT(back.normal[2], 0);  // that of the turned triangle
  EXPECT_TRUE(triangle_hit(floor_triangle, {1, 1, 3}, {1, 1, -1}, true).hit);
}

TEST(IntersectBox, EntersLeavesAndMisses) {
  const bounding_box box{{0, 0, 0}, {2, 2, 2}, {2, 2, 2}};
  ray_hit hit{};
  EXPECT_EQ(intersect_box(box, {-1, 1, 1}, {1, 0, 0}, hit), 3);
  EXPECT_TRUE(hit.hit);
  EXPECT_EQ(hit.t, 1);
  EXPECT_EQ(hit.point[0], 0);
  EXPECT_EQ(intersect_box(box, {1, 1, 1}, {0, -0.0f, 1}, hit), 1);  // from inside
  EXPECT_EQ(hit.t, 0);
  EXPECT_EQ(intersect_box(box, {3, 1, 1}, {1, 0, 0}, hit), 0);  // behind the origin
  EXPECT_FALSE(hit.hit);
  EXPECT_EQ(intersect_box(box, {-1, 2.01f, 1}, {1, 0, 0}, hit), 0);
  EXPECT_FALSE(hit.hit);
  intersect_box(box, {-1, 2, 1}, {1, 0, 0}, hit);  // along a face
  EXPECT_TRUE(hit.hit);
  intersect_box(box, {1, 1, 1}, {0, 0, 0}, hit);
  EXPECT_TRUE(hit.hit);
}

/// Distance to the nearest front face, in double precision; infinity without one.
double brute_force(const osg::triangle_set& set, const vector3& origin, const vector3& direction) {
  double nearest = std::numeric_limits<double>::infinity();
  for (const triangle& t : set.all()) {
    double ab[3], ac[3], ap[3], n[3], e[3];
    for (int k = 0; k < 3; ++k) {
      ab[k] = double(t[1][k]) - t[0][k];
      ac[k] = double(t[2][k]) - t[0][k];
      ap[k] = double(origin[k]) - t[0][k];
    }
    for (int k = 0; k < 3; ++k) {
      const int i = (k + 1) % 3, j = (k + 2) % 3;
      n[k] = ab[i] * ac[j] - ab[j] * ac[i];
      e[k] = ap[i] * direction[j] - ap[j] * direction[i];
    }
    double d = 0, along = 0, v = 0, w = 0;
    for (int k = 0; k < 3; ++k) {
      d -= n[k] * direction[k];
      along += n[k] * ap[k];
      v += ac[k] * e[k];
      w -= ab[k] * e[k];
    }
    if (d > 0 && along >= 0 && v >= 0 && w >= 0 && v + w <= d)
      nearest = std::min(nearest, along / d);
  }
  return nearest;
}

/// A traced hit and brute force agree on the distance; where they disagree on yes or no, the ray
/// runs along a silhouette: moving it a hair's breadth changes brute force's own answer.
void expect_like_brute_force(const bih_tree<float>& tree, const osg::triangle_set& set,
                             const vector3& origin, const vector3& direction, int& disputed) {
  ray_hit hit{};
  empty_trace_statistics nothing;
  trace(tree, set, origin, direction, hit, nothing);
  const double expected = brute_force(set, origin, direction);
  const bool agree =
      hit.hit ? std::fabs(expected - hit.t) < 1e-4 * (1 + hit.t) : std::isinf(expected);
  if (!agree) ++disputed;
  if (hit.hit) {
    EXPECT_NEAR(math::length(hit.normal), 1, 1e-5f);
    EXPECT_LT(math::dot(hit.normal, direction), 1e-3f);
    EXPECT_LT(hit.index, set.count);
  }
}

TEST(Trace, FindsWhatBruteForceFinds) {
  const unsigned seed = 42;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const std::vector<std::vector<triangle>> scenes = {tests::random_soup(random, 800),
                                                     tests::ball(24), tests::random_soup(random, 3),
                                                     std::vector<triangle>(9, floor_triangle)};
  for (const auto& scene : scenes) {
    const auto set = tests::make_set(scene);
    bih_tree<float> tree;
    tests::build(tree, set);
    int disputed = 0;
    for (int i = 0; i < 4000; ++i) {
      const vector3 origin = tests::random_point(random, i % 2 ? 12.0f : 1.0f);
      expect_like_brute_force(tree, set, origin, math::unit(tests::random_point(random, 1)),
                              disputed);
    }
    EXPECT_LE(disputed, 8) << scene.size() << " triangles";  // rays that graze an edge
  }
}

// Along the axes, with zeros of either sign, from within clip planes and along edges: 0 * infinity
// comes up, and no hit may be lost for it.
//
//    +---+---+---+   rays downward through the middle of each cell, through grid lines, and
//    |  /|  /|  /|   through the shared corners; every one of them has to meet the floor
//    | / | / | / |
//    +---+---+---+
TEST(Trace, LosesNoHitAlongAxesAndEdges) {
  std::vector<triangle> mesh;
  for (int x = 0; x < 16; ++x) {
    for (int y = 0; y < 16; ++y) {
      const auto at = [&](int i, int j) {
        return vector3{static_cast<float>(x + i), static_cast<float>(y + j), 5};
      };
      mesh.push_back({{at(0, 0), at(1, 0), at(1, 1)}});
      mesh.push_back({{at(0, 0), at(1, 1), at(0, 1)}});
    }
  }
  const auto set = tests::make_set(mesh);
  bih_tree<float> tree;
  tests::build(tree, set);
  for (const float zero : {0.0f, -0.0f}) {
    for (int i = 0; i <= 64; ++i) {
      for (int j = 0; j <= 64; ++j) {
        ray_hit hit{};
        trace_statistics stats;
        trace(tree, set, {i * 0.25f, j * 0.25f, 9}, {zero, -zero, -1}, hit, stats);
        ASSERT_TRUE(hit.hit) << i * 0.25f << ' ' << j * 0.25f;
        EXPECT_EQ(hit.t, 4);
        EXPECT_EQ(stats.rays, 1u);
        EXPECT_GT(stats.tri_tests, stats.failed_tri_tests + stats.overwrite_tri_tests);
        EXPECT_LT(stats.tri_tests, 64u);  // of 512
      }
    }
  }
}

TEST(Trace, OfEqualHitsTheFirstOneMetStays) {
  const auto set = tests::make_set(std::vector<triangle>(7, floor_triangle));
  bih_tree<float> tree;
  tests::build(tree, set);
  ray_hit hit{};
  empty_trace_statistics nothing;
  trace(tree, set, {1, 1, 3}, {0, 0, -1}, hit, nothing);
  ASSERT_TRUE(hit.hit);
  EXPECT_EQ(hit.index, tree.indices[0]);
}

TEST(Trace, AnyLengthOfDirectionGivesTheDistance) {
  const auto set = tests::make_set({floor_triangle});
  bih_tree<float> tree;
  tests::build(tree, set);
  ray_hit hit{};
  empty_trace_statistics nothing;
  for (const float size : {0.25f, 1.0f, 8.0f}) {
    trace(tree, set, {1, 1, 3}, {0, 0, -size}, hit, nothing);
    ASSERT_TRUE(hit.hit);
    EXPECT_EQ(hit.t, 3);
  }
  trace(tree, set, {1, 1, 0}, {0, 0, 0}, hit, nothing);
  EXPECT_FALSE(hit.hit);
  trace(tree, set, {nan_value, 1, 3}, {0, 0, -1}, hit, nothing);
  EXPECT_FALSE(hit.hit);
}

TEST(Trace, ManyThreadsShareATree) {
  const auto set = tests::make_set(tests::ball(40));
  bih_tree<float> tree;
  tests::build(tree, set);
  std::vector<int> hits(4);
  support::run_threads(4, [&](int thread) {
    std::mt19937 random(5);
    empty_trace_statistics nothing;
    for (int i = 0; i < 3000; ++i) {
      ray_hit hit{};
      const vector3 from = math::unit(tests::random_point(random, 1)) * 3;
      trace(tree, set, from, math::unit(from * -1), hit, nothing);
      hits[static_cast<std::size_t>(thread)] += hit.hit;
    }
  });
  EXPECT_EQ(hits, std::vector<int>(4, 3000));
}

}  // namespace
}  // namespace morlu::tests
