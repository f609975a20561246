// Many rays at once, on every vector unit of this machine: the same bits as one by one.

#include "ray/stream_trace.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <limits>

#include "ray/ray_scenes.h"
#include "ray/trace.h"

namespace morlu::tests {
namespace {

using rays = std::vector<ray_query>;

struct scene {
  osg::triangle_set set;
  bih_tree<float> tree;

  explicit scene(const std::vector<triangle>& triangles) : set(make_set(triangles)) {
    build(tree, set);
  }
};

template <class T>
bool same_bits(const T& a, const T& b) {
  using words = std::array<std::uint32_t, sizeof(T) / 4>;
  return std::bit_cast<words>(a) == std::bit_cast<words>(b);
}

bool same_hit(const ray_hit& a, const ray_hit& b) {
  if (!a.hit || !b.hit) return a.hit == b.hit;
  return a.index == b.index && same_bits(a.t, b.t) && same_bits(a.point, b.point) &&
         same_bits(a.normal, b.normal) && a.two_sided == b.two_sided;
}

/// Returns how many rays hit.
int expect_same(const scene& in, const rays& queries) {
  std::vector<ray_hit> one_by_one(queries.size());
  empty_trace_statistics nothing;
  int hits = 0;
  for (std::size_t i = 0; i < queries.size(); ++i) {
    trace(in.tree, in.set, queries[i].origin, queries[i].direction, one_by_one[i], nothing);
    hits += one_by_one[i].hit;
  }
  for (const vector_unit unit : units_here()) {
    std::vector<ray_hit> together(queries.size(), ray_hit{true, {}, {}, 7, 7, true});
    trace_many(in.tree, in.set, queries, together, unit);
    for (std::size_t i = 0; i < queries.size(); ++i)
      if (!same_hit(one_by_one[i], together[i])) {
        ADD_FAILURE() << "ray " << i << " on unit " << static_cast<int>(unit);
        break;
      }
  }
  return hits;
}

rays random_rays(std::mt19937& random, std::size_t count, float reach) {
  rays queries;
  for (std::size_t i = 0; i < count; ++i)
    queries.push_back({random_point(random, i % 2 ? reach : reach / 8),
                       math::unit(random_point(random, 1)) * (i % 5 ? 1 : 0.3f)});
  return queries;
}

TEST(TraceMany, GivesTheHitsOfSingleTraces) {
  const unsigned seed = 11;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::vector<triangle> doubled = ball(20);
  for (const triangle& each : ball(20)) doubled.push_back(each);
  std::vector<triangle> inward = ball(16, {0, 0, 0}, 8);
  for (triangle& each : inward) std::swap(each.corners[1], each.corners[2]);
  for (const auto& triangles :
       {random_soup(random, 3000), ball(40, {0.3f, 0, 0}, 9), doubled, inward, ball(2)}) {
    const scene in(triangles);
    EXPECT_GT(expect_same(in, random_rays(random, 4001, 12)), 10) << triangles.size();
  }
}

// Zero directions of either sign, starts within clip planes and on the box, values that are no
// numbers: every comparison with NaN has to fall to the same side.
TEST(TraceMany, TreatsNansAndZerosAlike) {
  std::vector<triangle> floors;
  for (int x = 0; x < 16; ++x)
    for (int y = 0; y < 16; ++y) {
      const auto at = [&](int i, int j) {
        return vector3{static_cast<float>(x + i), static_cast<float>(y + j),
                       static_cast<float>((x + y) % 3)};
      };
      floors.push_back({{at(0, 0), at(1, 0), at(1, 1)}});
      floors.push_back({{at(0, 0), at(1, 1), at(0, 1)}});
    }
  const scene in(floors);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  rays queries;
  for (const float zero : {0.0f, -0.0f})
    for (int i = 0; i <= 32; ++i)
      for (int j = 0; j <= 32; ++j) {
        const float x = static_cast<float>(i) * 0.5f, y = static_cast<float>(j) * 0.5f;
        queries.push_back({{x, y, 9}, {zero, -zero, -1}});
        queries.push_back({{x, y, 2}, {1, zero, zero}});
        queries.push_back({{x, y, 4}, {-1, -1, -1}});
        queries.push_back({{x, -1, y}, {zero, 1, -0.1f}});
      }
  for (const float odd : {nan, infinity, -infinity, 0.0f, 1e-40f, 1e38f})
    for (int axis = 0; axis < 3; ++axis) {
      ray_query of_origin{{3, 4, 9}, {0.1f, 0.1f, -1}}, of_direction = of_origin;
      of_origin.origin[static_cast<std::size_t>(axis)] = odd;
      of_direction.direction[static_cast<std::size_t>(axis)] = odd;
      queries.push_back(of_origin);
      queries.push_back(of_direction);
    }
  EXPECT_GT(expect_same(in, queries), 1000);
}

// Leaves that hold more than all lanes at once, and trees as deep as they get: equal centres can't
// be told apart, so they end at the depth limit.
TEST(TraceMany, TakesLargeLeavesAndDeepTrees) {
  std::mt19937 random(3);
  std::vector<triangle> stack = ball(6, {4, 0, 0}, 0.5f);
  for (int i = 0; i < 700; ++i) {
    const float size = 1 + static_cast<float>(i % 7);
    stack.push_back({{vector3{-size, -size, 0}, vector3{size, -size, 0}, vector3{0, 2 * size, 0}}});
  }
  const scene in(stack);
  EXPECT_GT(in.tree.stats.max_leaf_size, 32u);
  EXPECT_GT(in.tree.stats.max_depth, 40u);
  EXPECT_GT(expect_same(in, random_rays(random, 500, 9)), 10);
}

TEST(TraceMany, TakesAnyNumberOfRays) {
  std::mt19937 random(5);
  const scene in(ball(12));
  const rays queries = random_rays(random, 70, 2);
  for (std::size_t count = 0; count <= queries.size(); ++count)
    expect_same(in, rays(queries.begin(), queries.begin() + static_cast<std::ptrdiff_t>(count)));
}

}  // namespace
}  // namespace morlu::tests
