// Collisions: yes or no against all pairs of triangles, contact points, and what a call leaves in
// its record.

#include <gtest/gtest.h>

#include <osg/cores.h>

#include "ray/intersect.h"
#include "ray/triangle_pairs.h"
#include "ray/ray_scenes.h"

namespace morlu::tests {
namespace {

/// All pairs in world space, by the six segments of the definition.
bool any_pair_touches(const std::vector<triangle>& a, const std::vector<triangle>& b) {
  const auto segments_hit = [](const triangle& face, const triangle& edge) {
    const int ends[3][2] = {{0, 1}, {1, 2}, {0, 2}};
    for (const auto& [from, to] : ends)
      if (segment_hits_triangle(face[0], face[1], face[2], edge[from], edge[to])) return true;
    return false;
  };
  for (const triangle& in_a : a)
    for (const triangle& in_b : b)
      if (segments_hit(in_a, in_b) || segments_hit(in_b, in_a)) return true;
  return false;
}

::osg::NodePtr placed(const ::osg::GeometryPtr& geometry, const ::osg::Matrix& matrix) {
  const auto transform = ::osg::Transform::create();
  transform->setMatrix(matrix);
  auto node = tests::make_node(transform);
  node->addChild(tests::make_node(geometry));
  return node;
}

std::vector<triangle> moved(const std::vector<triangle>& triangles, const ::osg::Matrix& matrix) {
  std::vector<triangle> result = triangles;
  for (triangle& each : result) {
    for (vector3& corner : each.corners) {
      const auto p = matrix.transformPoint(::osg::Pnt3f(corner[0], corner[1], corner[2]));
      corner = {p[0], p[1], p[2]};
    }
  }
  return result;
}

// The first subgraph stays where it is, so that its object space is the world and the definition's
// own arithmetic applies to both.
TEST(Collision, AnswersAsAllPairsDo) {
  const unsigned seed = 99;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> angle(0, 6.28f), share(0, 1);
  const auto ball = tests::ball(9);
  const auto soup = tests::random_soup(random, 60);
  int touching = 0, apart = 0;
  for (const auto& [a, b, reach] : {std::tuple(ball, ball, 2.2f), std::tuple(ball, soup, 9.0f)}) {
    const auto node_a = tests::make_node(tests::make_geometry(a));
    const auto geometry_b = tests::make_geometry(b);
    for (int pose = 0; pose < 150; ++pose) {
      const vector3 at = math::unit(tests::random_point(random, 1)) * (reach * share(random));
      ::osg::Matrix matrix = ::osg::Matrix::translation(at[0], at[1], at[2]) *
                             ::osg::Matrix::rotation({at[1], at[2], at[0]}, angle(random));
      if (pose % 3 == 0) matrix = matrix * ::osg::Matrix::scale(-0.5f, 0.5f, 0.8f);
      const auto node_b = placed(geometry_b, matrix);
      osg::CollisionResults results;
      const bool hit = osg::collision(node_a, node_b, osg::CollisionParam(), results);
      EXPECT_EQ(hit, any_pair_touches(a, moved(b, matrix))) << "pose " << pose;
      EXPECT_EQ(results.hit, hit);
      (hit ? touching : apart)++;
    }
  }
  EXPECT_GT(touching, 40);
  EXPECT_GT(apart, 40);
}

TEST(Collision, TellsNodesAndContactInTheWorld) {
  const auto geometry = tests::make_geometry(tests::ball(12));
  const auto a = placed(geometry, ::osg::Matrix::translation(10, 0, 0));
  const auto b = placed(geometry, ::osg::Matrix::translation(11.5f, 0, 0));
  osg::CollisionResults results;
  ASSERT_TRUE(osg::collision(a, b, osg::CollisionParam(), results));
  EXPECT_EQ(results.node_a, a->getChild(0));
  EXPECT_EQ(results.node_b, b->getChild(0));
  for (const float centre : {10.0f, 11.5f})  // on both surfaces, within their facets
    EXPECT_NEAR((results.point - ::osg::Pnt3f(centre, 0, 0)).length(), 1, 0.08f);
}

TEST(Collision, TheRecordOfAMiss) {
  const auto geometry = tests::make_geometry(tests::ball(6));
  const auto a = tests::make_node(geometry);
  const auto far = placed(geometry, ::osg::Matrix::translation(50, 0, 0));
  const auto near = placed(geometry, ::osg::Matrix::translation(2.005f, 0, 0));
  const auto nothing = tests::make_node(::osg::Group::create());
  osg::CollisionResults results;
  ASSERT_TRUE(osg::collision(a, a, osg::CollisionParam(), results));
  const auto point = results.point;
  osg::num_colltests() = 0;
  for (const auto& other : {far, near, nothing}) {
    results.hit = true;  // left over from a former call
    EXPECT_FALSE(osg::collision(a, other, osg::CollisionParam(), results));
    EXPECT_FALSE(results.hit);
    EXPECT_EQ(results.point, point);
  }
  EXPECT_FALSE(osg::collision(a, ::osg::NullFC, osg::CollisionParam(), results));
  EXPECT_FALSE(osg::collision(::osg::NullFC, a, osg::CollisionParam(), results));
  EXPECT_EQ(osg::num_picktests(), 5u);  // one a call, in the shared counter
}

// Two triangles that cross, so that only the third segment of each finds the other:
// the direction of that segment decides whether the location tests see it too.
TEST(Collision, EveryDetectedPairHasAContactPoint) {
  std::mt19937 random(3);
  int found = 0;
  for (int i = 0; i < 20000; ++i) {
    const triangle a{{tests::random_point(random, 1), tests::random_point(random, 1),
                      tests::random_point(random, 1)}};
    const triangle b{{tests::random_point(random, 1), tests::random_point(random, 1),
                      tests::random_point(random, 1)}};
    if (!triangles_intersect(a, b)) continue;
    ++found;
    const vector3 p = contact_point(a, b);
    for (const triangle* each : {&a, &b}) {
      const vector3 n = math::unit(math::cross((*each)[1] - (*each)[0], (*each)[2] - (*each)[0]));
      ASSERT_NEAR(math::dot(n, p - (*each)[0]), 0, 1e-4f);
    }
  }
  EXPECT_GT(found, 1000);
}

// Front faces only: an edge that comes out of the back of a triangle doesn't count by itself.
TEST(Collision, DependsOnWinding) {
  const triangle floor{{vector3{0, 0, 0}, vector3{4, 0, 0}, vector3{0, 4, 0}}};
  const triangle up{{vector3{1, 1, -1}, vector3{1, 1, 1}, vector3{9, 9, 1}}};
  const triangle down{{vector3{1, 1, 1}, vector3{1, 1, -1}, vector3{9, 9, 1}}};
  EXPECT_FALSE(segment_hits_triangle(floor[0], floor[1], floor[2], up[0], up[1]));
  EXPECT_TRUE(segment_hits_triangle(floor[0], floor[1], floor[2], down[0], down[1]));
}

}  // namespace
}  // namespace morlu::tests
