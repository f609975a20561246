// Collision of two trees: its answer against all pairs of triangles, its first contact against the
// descent as it is defined, and the volumes that it leaves pairs out by.

#include "ray/pair_descent.h"

#include <gtest/gtest.h>

#include <osg/io/model_files.h>
#include <osg/scene_file_handler.h>

#include <list>

#include "ray/intersect.h"
#include "ray/plain_descent.h"
#include "ray/ray_scenes.h"
#include "support/model_truth.h"
#include "support/run_threads.h"

namespace morlu::tests {
namespace {

struct solid {
  explicit solid(const std::vector<triangle>& triangles) : set(make_set(triangles)) {
    build(tree, set);
  }
  float size() const { return math::distance(set.box.min, set.box.max); }
  vector3 centre() const { return (set.box.min + set.box.max) * 0.5f; }

  osg::triangle_set set;
  bih_tree<float> tree;
};

/// All pairs by the six segments of the definition. Triangles that a wide margin keeps apart are
/// passed over, to have it in time.
bool any_pair_touches(const solid& a, const solid& b, const matrix4& a_from_b) {
  const auto segments_hit = [](const triangle& face, const triangle& edge) {
    const int ends[3][2] = {{0, 1}, {1, 2}, {0, 2}};
    for (const auto& [from, to] : ends)
      if (segment_hits_triangle(face[0], face[1], face[2], edge[from], edge[to])) return true;
    return false;
  };
  const auto apart = [margin = a.size() * 0.01f](const triangle& s, const triangle& t) {
    for (int axis = 0; axis < 3; ++axis)
      if (s.low(axis) - margin > t.high(axis) || t.low(axis) - margin > s.high(axis)) return true;
    return false;
  };
  for (const triangle& each : b.set.all()) {
    const triangle in_b = carry(a_from_b, each);
    for (const triangle& in_a : a.set.all())
      if (!apart(in_a, in_b) && (segments_hit(in_a, in_b) || segments_hit(in_b, in_a))) return true;
  }
  return false;
}

matrix4 matrix_of(const ::osg::Matrix& from) {
  matrix4 result;
  osg::set(result, from);
  return result;
}

/// Counts what was seen, so that a test can tell that it saw both answers.
struct tally {
  int touching = 0, apart = 0;

  /// Both trees in that pose.
  void check(const solid& a, const solid& b, const ::osg::Matrix& pose, bool as_plain = true) {
    const matrix4 a_from_b = matrix_of(pose);
    pair_descent pair({a.tree, a.set}, {b.tree, b.set}, a_from_b);
    const bool hit = pair.run();
    ASSERT_EQ(hit, any_pair_touches(a, b, a_from_b));
    (hit ? touching : apart)++;
    plain_descent plain({a.tree, a.set}, {b.tree, b.set}, a_from_b);
    const bool plain_hit =
        plain.run({a.set.box.min, a.set.box.max}, {b.set.box.min, b.set.box.max});
    if (as_plain) {
      ASSERT_EQ(plain_hit, hit);
    }
    if (!plain_hit) return;
    ASSERT_TRUE(hit);
    for (int axis = 0; axis < 3; ++axis) ASSERT_EQ(pair.point()[axis], plain.point()[axis]);
  }
};

::osg::Vec3f to_layer(const vector3& v) {
  return {v[0], v[1], v[2]};
}

/// b turned and moved so that the centres are `distance` apart, in a space of its own that the
/// pose's number chooses: as it is, mirrored, unevenly scaled, sheared, pressed flat.
::osg::Matrix random_pose(std::mt19937& random, const solid& a, const solid& b, float distance,
                          int number) {
  std::uniform_real_distribution<float> angle(0, 6.28f);
  ::osg::Matrix own;
  if (number % 5 == 1) own = ::osg::Matrix::scale(-1, 1, 1);
  if (number % 5 == 2) own = ::osg::Matrix::scale(0.5f, 1.5f, 0.02f);
  if (number % 5 == 3) own[4] = 2, own[9] = -0.7f;
  if (number % 5 == 4) own = ::osg::Matrix::scale(1, 0, 1);
  const vector3 direction = math::unit(random_point(random, 1));
  const vector3 axis = random_point(random, 1);
  return ::osg::Matrix::translation(to_layer(a.centre() + direction * distance)) *
         ::osg::Matrix::rotation(to_layer(axis), angle(random)) * own *
         ::osg::Matrix::translation(to_layer(b.centre() * -1));
}

/// Poses about the distance at which the two begin to touch along some direction.
void check_poses(std::mt19937& random, const solid& a, const solid& b, int poses, tally& seen) {
  std::uniform_real_distribution<float> share(0.1f, 0.6f);
  for (int number = 0; number < poses && !testing::Test::HasFatalFailure(); ++number) {
    const float distance = share(random) * (a.size() + b.size());
    seen.check(a, b, random_pose(random, a, b, distance, number));
  }
}

std::vector<triangle> moved(std::vector<triangle> triangles, const vector3& by) {
  for (triangle& each : triangles)
    for (vector3& corner : each.corners) corner = corner + by;
  return triangles;
}

TEST(PairDescent, FindsTheFirstContactOfManyPoses) {
  const unsigned seed = 515;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::vector<triangle> chain(40, triangle{{vector3{-3, -1, 0}, vector3{3, -1, 0.5f},
                                            vector3{0, 2, -0.5f}}});  // one centre: a full leaf
  const solid solids[] = {solid(ball(7)),    solid(random_soup(random, 50)),
                          solid(chain),      solid(ball(6, {0, 0, 0}, 0.01f)),
                          solid({chain[0]}), solid(moved(ball(5), {300, -200, 100}))};
  tally seen;
  for (const solid& a : solids)
    for (const solid& b : solids) check_poses(random, a, b, 200, seen);
  EXPECT_GT(seen.touching, 500);
  EXPECT_GT(seen.apart, 500);
}

// Corners on small whole numbers and poses that keep them there: all arithmetic is exact, and most
// contacts lie at the very bound of boxes, edges and corners. The plain descent loses some of them.
TEST(PairDescent, LosesNoContactAtABound) {
  const unsigned seed = 77;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto whole = [&](int reach) {
    return static_cast<float>(static_cast<int>(random() % static_cast<unsigned>(2 * reach + 1)) -
                              reach);
  };
  tally seen;
  for (int pose = 0; pose < 4000 && !HasFatalFailure(); ++pose) {
    const float flat = pose % 3 ? 1.0f : 0.0f;
    const auto some = [&] {
      std::vector<triangle> triangles(1 + random() % 8);
      for (triangle& each : triangles)
        for (vector3& corner : each.corners) corner = {whole(3), whole(3), flat * whole(3)};
      return triangles;
    };
    ::osg::Matrix matrix = ::osg::Matrix::translation(whole(5), whole(5), whole(2));
    for (unsigned column = 0; column < 3; ++column)
      for (unsigned row = 0; row < 3; ++row)
        matrix[4 * column + row] = pose % 2 ? whole(1) : (row + column + random() % 2) % 3 == 0;
    seen.check(solid(some()), solid(some()), matrix, false);
  }
  EXPECT_GT(seen.touching, 500);
  EXPECT_GT(seen.apart, 500);
}

// An edge of b ends on a corner of a, and the rest of a lies beyond: the volumes have that one
// point in common, which no rounding may take away.
//
//     b ----> * <a        an end on a corner counts, whatever the coordinates
TEST(PairDescent, LosesNoCornersThatMeet) {
  const unsigned seed = 4711;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  tally seen;
  for (int pose = 0; pose < 6000 && !HasFatalFailure(); ++pose) {
    const float scale = std::ldexp(1.0f, static_cast<int>(random() % 21) - 10);
    ::osg::Matrix matrix = ::osg::Matrix::translation(to_layer(random_point(random, 3 * scale)));
    for (unsigned column = 0; column < 3; ++column) {
      const vector3 image = random_point(random, pose % 4 ? scale : scale * 1e-4f);
      for (unsigned row = 0; row < 3; ++row) matrix[4 * column + row] = image[row];
    }
    std::vector<triangle> in_b = random_soup(random, 1 + random() % 5);
    const triangle edge = carry(matrix_of(matrix), in_b[0]);
    const vector3 along = edge[1] - edge[0];
    const auto beyond = [&] {
      return edge[1] + along * 0.5f + random_point(random, 0.3f) * math::length(along);
    };
    solid a({triangle{{edge[1], beyond(), beyond()}}});
    seen.check(a, solid(in_b), matrix, false);
  }
  EXPECT_GT(seen.touching, 2000);
}

std::vector<triangle> model_triangles(const std::string& file) {
  std::vector<triangle> all;
  ::osg::io::registerModelFormats();
  const auto read = ::osg::SceneFileHandler::the().read((support::models_folder() / file).string());
  std::list<::osg::NodePtr> nodes;
  osg::collect_geo_nodes(read.root, nodes);
  for (const auto& node : nodes) {
    osg::triangle_set set;
    osg::collect_triangles(node, set);
    for (const triangle& each : set.all())
      all.push_back(carry(matrix_of(node->getToWorld()), each));
  }
  return all;
}

TEST(PairDescent, AgreesOnRealMeshes) {
  if (support::model_truth().is_null()) GTEST_SKIP() << "no models here";
  const unsigned seed = 31;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::list<solid> solids;
  for (const char* const file :
       {"marbles/marble.gltf", "spider/spider.obj", "suzanne/Suzanne.gltf"})
    solids.emplace_back(model_triangles(file));
  tally seen;
  for (const solid& a : solids)
    for (const solid& b : solids) check_poses(random, a, b, 15, seen);
  EXPECT_GT(seen.touching, 20);
  EXPECT_GT(seen.apart, 20);
}

/// Every corner below lies in box and slab, up to the rounding that queries allow for.
void expect_volumes_hold(const solid& in) {
  const pair_volumes& volumes = volumes_of(in.tree, in.set);
  std::vector<std::pair<std::size_t, std::int32_t>> pending{{0, 0}};  // a node and its record
  std::vector<std::uint8_t> seen(in.set.count);
  const auto check_leaves = [&](auto&& self, std::size_t index, const pair_volumes::record& record,
                                int side) -> void {
    const bih_node& node = in.tree.nodes[index];
    if (!node.is_leaf()) {
      self(self, index + 1, record, side);
      self(self, static_cast<std::size_t>(node.right_child), record, side);
      return;
    }
    for (int i = 0; i < node.leaf_count; ++i) {
      const std::uint32_t number = in.tree.indices[node.leaf_start + i];
      seen[number] = 1;
      for (const vector3& corner : in.set.triangles[number].corners) {
        double along = 0, size = 0;
        for (int axis = 0; axis < 3; ++axis) {
          size += std::fabs(volumes.bound()[axis]);
          const double off = static_cast<double>(corner[axis]) - record.centre[axis][side];
          along += record.normal[axis][side] * off;
          ASSERT_LE(std::fabs(off), record.half[axis][side] + 2e-7 * size);
        }
        ASSERT_LE(std::fabs(along - record.middle[side]), record.reach[side] + 2e-7 * size);
      }
    }
  };
  while (!pending.empty()) {
    const auto [index, number] = pending.back();
    pending.pop_back();
    const pair_volumes::record& record = volumes.at(number);
    const std::size_t children[] = {index + 1,
                                    static_cast<std::size_t>(in.tree.nodes[index].right_child)};
    for (int side = 0; side < 2; ++side) {
      check_leaves(check_leaves, children[side], record, side);
      if (record.child[side] >= 0)
        pending.emplace_back(children[side], record.child[side]);
      else
        ASSERT_EQ(~record.child[side], static_cast<std::int32_t>(children[side]));
    }
  }
  for (const std::uint8_t each : seen) ASSERT_TRUE(each);
}

TEST(PairVolumes, HoldAllBelow) {
  std::mt19937 random(8);
  expect_volumes_hold(solid(ball(20)));
  expect_volumes_hold(solid(moved(ball(20), {1000, 2000, -500})));
  expect_volumes_hold(solid(random_soup(random, 2000)));
  expect_volumes_hold(solid(ball(9, {0, 0, 0}, 1e-25f)));  // normals of no length
  expect_volumes_hold(solid(ball(9, {0, 0, 0}, 1e25f)));   // normals beyond any float
  expect_volumes_hold(solid(std::vector<triangle>(60, ball(3)[0])));
}

// Slabs are what keeps near misses of smooth bodies cheap: without them balls that barely miss take
// ten times as many tests. On a ball of radius 1 a patch of size h is about h * h / 2 thick.
TEST(PairVolumes, AreThinOnSmoothSurfaces) {
  const solid round(ball(100));
  const pair_volumes& volumes = volumes_of(round.tree, round.set);
  const auto inner = static_cast<std::int32_t>(round.tree.stats.leaves) - 1;
  double area = 0, thickness = 0;
  for (std::int32_t i = 0; i < inner; ++i) {
    for (int side = 0; side < 2; ++side) {
      const pair_volumes::record& record = volumes.at(i);
      float widest = 0, length = 0;
      for (int axis = 0; axis < 3; ++axis) {
        widest = std::max(widest, record.half[axis][side]);
        length += record.normal[axis][side] * record.normal[axis][side];
      }
      if (widest > 0.2f || widest <= 0) continue;
      ASSERT_NEAR(length, 1, 1e-5f);
      area += widest * widest;
      thickness += record.reach[side];
    }
  }
  EXPECT_GT(area, 0);
  EXPECT_LT(thickness, 0.75 * area);
}

TEST(PairVolumes, AreTheSameForManyThreads) {
  const solid round(ball(30));
  const pair_volumes* seen[8] = {};
  support::run_threads(8, [&](int thread) { seen[thread] = &volumes_of(round.tree, round.set); });
  for (const auto* each : seen) EXPECT_EQ(each, seen[0]);
}

// A tree that is built anew has volumes of its own, and rays have none made.
TEST(PairVolumes, LiveAsLongAsTheTree) {
  solid a(ball(6)), b(ball(8));
  EXPECT_FALSE(a.tree.volumes.is_made());
  pair_descent({a.tree, a.set}, {b.tree, b.set}, matrix_of({})).run();
  EXPECT_TRUE(a.tree.volumes.is_made());
  a.set = make_set(moved(ball(4), {5, 0, 0}));
  build(a.tree, a.set);
  EXPECT_FALSE(a.tree.volumes.is_made());
  tally seen;
  seen.check(a, b, ::osg::Matrix());
  seen.check(a, b, ::osg::Matrix::translation(5, 0.5f, 0));
  EXPECT_EQ(seen.touching, 1);
  EXPECT_EQ(seen.apart, 1);
}

}  // namespace
}  // namespace morlu::tests
