// Collisions of graphs: the first pair against the definition, contact points, and what a call
// leaves in its record.

#include <gtest/gtest.h>

#include <osg/cores.h>

#include <cmath>
#include <limits>
#include <list>

#include "ray/attachment.h"
#include "ray/intersect.h"
#include "ray/plain_descent.h"
#include "ray/ray_scenes.h"

namespace morlu::tests {
namespace {

::osg::NodePtr placed(const ::osg::GeometryPtr& geometry, const ::osg::Matrix& matrix) {
  return tests::placed(node_with(geometry), matrix);
}

plain_descent::cell cell_of(const ::osg::NodePtr& node) {
  const auto volume = node->getVolume(true);
  plain_descent::cell cell{};
  osg::set(cell.min, volume.getMin());
  osg::set(cell.max, volume.getMax());
  return cell;
}

/// One pair of geometry nodes by the definition.
bool plain_touch(const ::osg::NodePtr& a, const ::osg::NodePtr& b, ::osg::Pnt3f& point) {
  matrix4 a_from_b;
  osg::set(a_from_b, a->getToWorld().inverse() * b->getToWorld());
  const auto* in_a = osg::usable_payload(a);
  const auto* in_b = osg::usable_payload(b);
  if (!in_a || !in_b) return false;
  plain_descent descent({*in_a->tree, *in_a->geo_set}, {*in_b->tree, *in_b->geo_set}, a_from_b);
  if (!descent.run(cell_of(a), cell_of(b))) return false;
  osg::set(point, descent.point());
  point = a->getToWorld().transformPoint(point);
  return true;
}

osg::CollisionResults plain_collision(const ::osg::NodePtr& a, const ::osg::NodePtr& b) {
  std::list<::osg::NodePtr> all_a, all_b;
  osg::collect_geo_nodes(a, all_a);
  osg::collect_geo_nodes(b, all_b);
  osg::CollisionResults results;
  for (const auto& first : all_a) {
    for (const auto& second : all_b) {
      results.hit = plain_touch(first, second, results.point);
      results.node_a = first;
      results.node_b = second;
      if (results.hit) return results;
    }
  }
  return results;
}

/// Groups and geometries at random, below transforms of all kinds: turned, mirrored, sheared,
/// pressed flat, without a number.
class random_graphs {
 public:
  explicit random_graphs(unsigned seed) : random_(seed) {
    for (int i = 0; i < 4; ++i) cores_.push_back(tests::make_geometry(tests::ball(3 + i)));
    cores_.push_back(tests::make_geometry({tests::ball(3)[0]}));
    cores_.push_back(::osg::Geometry::create());
  }

  ::osg::NodePtr make(int depth) {
    const auto node = node_with(transform(matrix(depth == 0)));
    for (int i = below(depth == 0 ? 2 : 4); i >= 0; --i) {
      if (depth > 0 && below(2)) {
        node->addChild(make(depth - 1));
      } else {
        node->addChild(node_with(cores_[static_cast<std::size_t>(below(6))]));
        if (below(8) == 0) node->getChild(node->getNChildren() - 1)->addChild(make(0));
      }
    }
    return node;
  }
  ::osg::Matrix matrix(bool strange) {
    const vector3 at = tests::random_point(random_, 2), axis = tests::random_point(random_, 1);
    ::osg::Matrix result = ::osg::Matrix::translation(at[0], at[1], at[2]) *
                           ::osg::Matrix::rotation({axis[0], axis[1], axis[2]}, axis[0] * 3);
    const int kind = strange ? below(24) : 0;
    if (kind == 1) result = result * ::osg::Matrix::scale(-1, 1, 1);
    if (kind == 2) result = result * ::osg::Matrix::scale(0.1f, 2, 1);
    if (kind == 3) result = result * ::osg::Matrix::scale(1, 0, 1);
    if (kind == 4) result[4] += 3, result[9] -= 1;
    if (kind == 5) result = result * ::osg::Matrix::scale(1e-12f);
    if (kind == 6) result[5] = std::numeric_limits<float>::quiet_NaN();
    return result;
  }

 private:
  int below(unsigned n) { return static_cast<int>(random_() % n); }

  std::mt19937 random_;
  std::vector<::osg::GeometryPtr> cores_;
};

// The pair that is found, and the point to the last bit: what leaves parts of the graphs out must
// not change the order nor lose a pair, whatever the matrices on the way.
TEST(Collision, FindsTheFirstPairOfGraphs) {
  const unsigned seed = 99;
  SCOPED_TRACE(seed);
  random_graphs graphs(seed);
  int touching = 0, apart = 0;
  for (int i = 0; i < 3000; ++i) {
    const auto a = graphs.make(i % 4), b = graphs.make(i / 4 % 4);
    const auto above_a = tests::placed(a, graphs.matrix(false)),
               above_b = tests::placed(b, graphs.matrix(false));
    osg::CollisionResults results;
    const bool hit = osg::collision(a, b, osg::CollisionParam(), results);
    ASSERT_EQ(results.hit, hit);
    ::osg::DynamicVolume around_a, around_b;
    a->getWorldVolume(around_a);
    b->getWorldVolume(around_b);
    if (!around_a.intersect(around_b)) {  // the coarse test comes before all else
      ASSERT_FALSE(hit);
      continue;
    }
    const auto expected = plain_collision(a, b);
    ASSERT_EQ(hit, expected.hit) << "graphs " << i;
    (hit ? touching : apart)++;
    if (!hit) continue;
    ASSERT_EQ(results.node_a, expected.node_a) << "graphs " << i;
    ASSERT_EQ(results.node_b, expected.node_b) << "graphs " << i;
    for (unsigned axis = 0; axis < 3; ++axis)  // a NaN where the first node's matrix holds one
      ASSERT_TRUE(results.point[axis] == expected.point[axis] ||
                  (std::isnan(results.point[axis]) && std::isnan(expected.point[axis])))
          << "graphs " << i;
  }
  EXPECT_GT(touching, 300);
  EXPECT_GT(apart, 300);
}

// Two triangles that share one corner to the last bit, the rest of each lying apart, far from the
// origin: what leaves parts of the graphs out in the world must not lose what touches in the space
// of a.
TEST(Collision, LosesNoCornersThatMeet) {
  const unsigned seed = 12;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  random_graphs graphs(seed);
  int touching = 0;
  for (int i = 0; i < 4000; ++i) {
    const vector3 far = tests::random_point(random, 300);
    const auto there = ::osg::Matrix::translation(far[0], far[1], far[2]);
    const ::osg::Matrix world_a = there * graphs.matrix(false);
    const ::osg::Matrix world_b = there * graphs.matrix(false);
    matrix4 a_from_b;
    osg::set(a_from_b, world_a.inverse() * world_b);
    const triangle in_b{{tests::random_point(random, 1), tests::random_point(random, 1),
                         tests::random_point(random, 1)}};
    const triangle edge = carry(a_from_b, in_b);
    const vector3 beyond = edge[1] + (edge[1] - edge[0]) * 0.5f;
    const triangle in_a{{edge[1], beyond + tests::random_point(random, 0.3f),
                         beyond + tests::random_point(random, 0.3f)}};
    const bool expected = triangles_intersect(in_a, edge);
    touching += expected;
    osg::CollisionResults results;
    ASSERT_EQ(osg::collision(placed(tests::make_geometry({in_a}), world_a),
                             placed(tests::make_geometry({in_b}), world_b), osg::CollisionParam(),
                             results),
              expected)
        << "pair " << i;
  }
  EXPECT_GT(touching, 1000);
}

TEST(Collision, TheRecordOfAMiss) {
  const auto geometry = tests::make_geometry(tests::ball(6));
  const auto a = node_with(geometry);
  const auto far = placed(geometry, ::osg::Matrix::translation(50, 0, 0));
  const auto near = placed(geometry, ::osg::Matrix::translation(2.005f, 0, 0));
  const auto nothing = node_with(::osg::Group::create());
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
