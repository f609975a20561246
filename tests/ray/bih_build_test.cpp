// The tree that a build leaves: coverage, bounds, order, and the counters of cases small enough to
// count by hand.

#include "ray/bih_build.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numeric>

#include "ray/bih_partition.h"
#include "ray/ray_scenes.h"

namespace morlu::tests {
namespace {

/// The build as one would write it down, without records: swaps in the index array, extents
/// computed at each use.
class plain_build {
 public:
  explicit plain_build(const osg::triangle_set& set) : set_(set), indices(set.count) {
    std::iota(indices.begin(), indices.end(), 0u);
    nodes.push_back({});
    split(0, 0, static_cast<std::uint32_t>(set.count), set.box, 0);
  }

 private:
  void split(std::size_t node, std::uint32_t start, std::uint32_t count, bounding_box box,
             std::uint32_t depth) {
    const vector3& s = box.size;
    const int axis = s[0] > s[1] ? (s[0] > s[2] ? 0 : 2) : (s[1] > s[2] ? 1 : 2);
    const float mid = s[axis] * 0.5f + box.min[axis];
    std::uint32_t write = start;
    for (std::uint32_t i = start; i < start + count; ++i) {
      const float low = set_.low(indices[i], axis), high = set_.high(indices[i], axis);
      if (mid > (high - low) * 0.5f + low) std::swap(indices[i], indices[write++]);
    }
    float left = box.min[axis], right = box.max[axis];
    for (std::uint32_t i = start; i < write; ++i)
      left = std::max(left, set_.high(indices[i], axis));
    for (std::uint32_t i = write; i < start + count; ++i)
      right = std::min(right, set_.low(indices[i], axis));
    const float widening = (box.max[axis] - box.min[axis]) * 0.01f;
    nodes[node].axis = static_cast<std::int16_t>(axis);
    nodes[node].left_plane = left + widening;
    nodes[node].right_plane = right - widening;
    bounding_box half = box;
    half.max[axis] = mid;
    half.update_size();
    side(start, write - start, half, depth);
    nodes[node].right_child = static_cast<std::int32_t>(nodes.size());
    half = box;
    half.min[axis] = mid;
    half.update_size();
    side(write, start + count - write, half, depth);
  }
  void side(std::uint32_t start, std::uint32_t count, const bounding_box& box,
            std::uint32_t depth) {
    nodes.push_back({});
    if (count > 3 && depth < 50) return split(nodes.size() - 1, start, count, box, depth + 1);
    nodes.back().right_child = -1;
    nodes.back().axis = -1;
    nodes.back().leaf_start = static_cast<std::int32_t>(start);
    nodes.back().leaf_count = static_cast<std::int32_t>(count);
  }

  const osg::triangle_set& set_;

 public:
  std::vector<std::uint32_t> indices;
  std::vector<bih_node> nodes;
};

void expect_same_tree(const bih_tree<float>& tree, const plain_build& plain) {
  ASSERT_EQ(tree.stats.nodes + 1, plain.nodes.size());
  EXPECT_EQ(tree.node_capacity, plain.nodes.size());
  std::int32_t covered = 0, largest = 0;
  std::uint64_t leaves = 0;
  for (std::size_t i = 0; i < plain.nodes.size(); ++i) {
    const bih_node &ours = tree.nodes[i], &theirs = plain.nodes[i];
    ASSERT_EQ(ours.axis, theirs.axis) << "node " << i;
    ASSERT_EQ(ours.right_child, theirs.right_child) << "node " << i;
    ASSERT_EQ(ours.leaf_start, theirs.leaf_start) << "node " << i;  // the planes' bits too
    ASSERT_EQ(ours.leaf_count, theirs.leaf_count) << "node " << i;
    if (!ours.is_leaf()) continue;
    ASSERT_EQ(ours.leaf_start, covered) << "leaves lie one after the other";
    covered += ours.leaf_count;
    largest = std::max(largest, ours.leaf_count);
    ++leaves;
  }
  EXPECT_EQ(static_cast<std::uint64_t>(covered), tree.index_count);
  EXPECT_EQ(tree.stats.leaves, leaves);
  EXPECT_EQ(tree.stats.max_leaf_size, static_cast<std::uint64_t>(largest));
  EXPECT_TRUE(std::equal(plain.indices.begin(), plain.indices.end(), tree.indices.get(),
                         tree.indices.get() + tree.index_count));
}

TEST(BihBuild, EqualsThePlainBuild) {
  const unsigned seed = 7;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (const std::size_t count : {1u, 2u, 3u, 4u, 5u, 17u, 300u, 5000u}) {
    SCOPED_TRACE(count);
    const auto set = tests::make_set(tests::random_soup(random, count));
    bih_tree<float> tree;
    tests::build(tree, set);
    expect_same_tree(tree, plain_build(set));
    const auto ball = tests::make_set(tests::ball(static_cast<int>(count % 40) + 3));
    tests::build(tree, ball);  // over the former tree
    expect_same_tree(tree, plain_build(ball));
  }
}

triangle small_at(float x, float y, float z) {
  return {{vector3{x, y, z}, vector3{x + 0.5f, y, z}, vector3{x, y + 0.5f, z + 0.5f}}};
}

void expect_stats(const bih_tree<float>& tree, std::uint64_t nodes, std::uint64_t leaves,
                  std::uint64_t depth, std::uint64_t largest) {
  EXPECT_EQ(tree.stats.nodes, nodes);
  EXPECT_EQ(tree.stats.leaves, leaves);
  EXPECT_EQ(tree.stats.max_depth, depth);
  EXPECT_EQ(tree.stats.max_leaf_size, largest);
}

TEST(BihBuild, CountsOfSmallTrees) {
  bih_tree<float> tree;
  tests::build(tree, tests::make_set({small_at(0, 0, 0)}));
  expect_stats(tree, 2, 2, 0, 1);

  // Equal centres go to one side until the depth ends it: 51 inner nodes, an empty leaf beside each
  // of the first 50, and two leaves below the last.
  tests::build(tree, tests::make_set(std::vector<triangle>(4, small_at(0, 0, 0))));
  expect_stats(tree, 102, 52, 50, 4);
  tests::build(tree, tests::make_set(std::vector<triangle>(3, small_at(0, 0, 0))));
  expect_stats(tree, 2, 2, 0, 3);
}

TEST(BihBuild, SplitsTheLongestAxisAndOfEqualOnesTheLast) {
  const auto root_axis = [](float x, float y, float z) {
    const auto set = tests::make_set({{{vector3{0, 0, 0}, vector3{x, y, 0}, vector3{0, y, z}}}});
    bih_tree<float> tree;
    tests::build(tree, set);
    return tree.nodes[0].axis;
  };
  EXPECT_EQ(root_axis(2, 2, 2), 2);
  EXPECT_EQ(root_axis(2, 2, 1), 1);
  EXPECT_EQ(root_axis(3, 2, 2), 0);
  EXPECT_EQ(root_axis(3, 2, 3), 2);
}

TEST(BoundingBox, FlatAxesGetThicknessAboutTheirOwnCoordinate) {
  const auto flat = tests::make_set({{{vector3{0, 0, 50}, vector3{4, 0, 50}, vector3{4, 2, 50}}}});
  EXPECT_EQ(flat.box.size[2], 2 * (4 * 0.05f));
  EXPECT_LT(flat.box.min[2], 50.0f - 0.19f);
  EXPECT_GT(flat.box.max[2], 50.0f + 0.19f);
  EXPECT_EQ(flat.box.max[1], 2);

  bounding_box line{{1, 7, -3}, {5, 7, -3}, {}};
  widen_flat_axes(line);
  const float e = 4 * 0.05f;
  EXPECT_EQ(line.size[1], 2 * e);
  EXPECT_EQ(line.size[2], 2 * (e * 0.05f));  // the factor adds up
  EXPECT_LE(line.min[2], -3 - e * 0.049f);

  bounding_box far{{1e9f, 0, 0}, {1e9f, 1, 1}, {}};
  widen_flat_axes(far);  // the thickness drowns; what was inside stays inside
  EXPECT_LE(far.min[0], 1e9f);
  EXPECT_GE(far.max[0], 1e9f);
}

TEST(BihTree, WithoutMemoryNothingIsLeftToWalk) {
  bih_tree<float> tree;
  tests::build(tree, tests::make_set({small_at(0, 0, 0)}));
  EXPECT_THROW(tree.ensure_node(std::uint64_t{1} << 31), std::length_error);
  EXPECT_FALSE(tree.is_usable());
  EXPECT_THROW(tree.reset_indices(std::uint64_t{1} << 31), std::length_error);
  EXPECT_FALSE(tree.is_usable());
  EXPECT_EQ(tree.index_count, 0u);
  expect_stats(tree, 0, 0, 0, 0);
}

/// The partition as one would write it down.
bih_cut plain_partition(bih_record* run, std::uint32_t count, float left_plane, float right_plane,
                        int axis, float mid) {
  std::uint32_t write = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const float low = run[i].low[axis], high = run[i].high[axis];
    if (mid > (high - low) * 0.5f + low) {
      if (high > left_plane) left_plane = high;
      std::swap(run[i], run[write++]);
    } else if (low < right_plane) {
      right_plane = low;
    }
  }
  return {write, left_plane, right_plane};
}

TEST(BihPartition, IsTheSameInEveryRegister) {
  std::mt19937 random(9);
  for (int round = 0; round < 2000; ++round) {
    const std::size_t count = 1 + random() % 40;
    const float share = static_cast<float>(random() % 5) * 0.5f;  // of the sides: all, most, half
    std::vector<bih_record> run(count + 1);
    for (std::uint32_t i = 0; i <= count; ++i) {
      const vector3 a = random_point(random, 1), b = random_point(random, 0.1f);
      for (unsigned k = 0; k < 3; ++k) {
        run[i].low[k] = a[k] - std::fabs(b[k]);
        run[i].high[k] = a[k] + std::fabs(b[k]);
      }
      run[i].element = i;
      run[i].unused = 0;
    }
    if (round % 50 == 0) run[random() % count].low[round % 3] = std::nanf("");
    using partition = bih_cut (*)(bih_record*, std::uint32_t, float, float, int, float);
    std::vector<partition> others{partition_run<two_registers>};
#ifdef MORLU_VECTOR_UNITS
    if (widest_unit() != vector_unit::none) others.push_back(avx2::partition);
#endif
    std::vector<bih_record> expected = run;
    const auto planes = [&](partition cut, std::vector<bih_record>& on) {
      return cut(on.data(), static_cast<std::uint32_t>(count), -0.7f, 0.8f, round % 3, share - 1);
    };
    const bih_cut wanted = planes(plain_partition, expected);
    for (const partition each : others) {
      std::vector<bih_record> got = run;
      const bih_cut cut = planes(each, got);
      ASSERT_EQ(cut.left_count, wanted.left_count) << round;
      ASSERT_EQ(cut.left_plane, wanted.left_plane) << round;
      ASSERT_EQ(cut.right_plane, wanted.right_plane) << round;
      ASSERT_EQ(std::memcmp(got.data(), expected.data(), count * sizeof(bih_record)), 0) << round;
    }
  }
}

}  // namespace
}  // namespace morlu::tests
