// Kd trees beside those that ordered maps and recursion give, and what holds for any tree.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <sstream>
#include <string>

#include "geoset/random_sets.h"
#include "kd/build.h"
#include "kd/plain_kd.h"
#include "kd_sets.h"
#include "support/failing_memory.h"

namespace {

using namespace morlu;
using namespace morlu::test;
using morlu::tests::osg_geoset;
using morlu::tests::osg_line_geoset;
using morlu::tests::osg_point_geoset;

/// Takes what is written to standard output while it lives.
class captured_output {
 public:
  captured_output() : before_(std::cout.rdbuf(text_.rdbuf())) {}
  ~captured_output() { std::cout.rdbuf(before_); }
  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* before_;
};

bool are_same(float a, float b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

void expect_same_tree(const kd_tree& tree, const plain_kd_tree& plain) {
  ASSERT_EQ(tree.stats.nodes, plain.stats.nodes);
  ASSERT_EQ(tree.stats.leaves, plain.stats.leaves);
  ASSERT_EQ(tree.stats.max_depth, plain.stats.max_depth);
  ASSERT_EQ(tree.stats.max_leaf_size, plain.stats.max_leaf_size);
  ASSERT_EQ(tree.index_count, plain.indices.size());
  ASSERT_EQ(tree.index_capacity, plain.index_capacity);
  ASSERT_EQ(tree.node_capacity, plain.node_capacity);
  for (std::uint64_t i = 0; i <= tree.stats.nodes; ++i) {
    const kd_node& node = tree.nodes[i];
    const plain_kd_node& other = plain.nodes[i];
    ASSERT_EQ(node.axis, other.axis) << "node " << i;
    if (node.is_leaf()) {
      ASSERT_EQ(node.leaf_start, static_cast<std::int64_t>(other.leaf_start)) << "node " << i;
      ASSERT_EQ(node.leaf_count, other.leaf_count) << "node " << i;
    } else {
      ASSERT_EQ(node.right_child, static_cast<std::int64_t>(other.right_child)) << "node " << i;
      ASSERT_PRED2(are_same, node.split, other.split) << "node " << i;
    }
  }
  for (std::uint64_t i = 0; i < tree.index_count; ++i)
    ASSERT_EQ(tree.indices[i], plain.indices[i]) << "index " << i;
}

/// What holds for every tree; gives the number of entries.
std::uint64_t expect_leaves_cover(const kd_tree& tree) {
  std::uint64_t covered = 0, leaves = 0, largest = 0;
  for (std::uint64_t i = 0; i <= tree.stats.nodes; ++i) {
    const kd_node& node = tree.nodes[i];
    if (!node.is_leaf()) continue;
    EXPECT_EQ(node.leaf_start, static_cast<std::int64_t>(covered)) << "node " << i;
    covered += node.leaf_count;
    largest = std::max<std::uint64_t>(largest, node.leaf_count);
    ++leaves;
  }
  EXPECT_EQ(covered, tree.index_count);
  EXPECT_EQ(covered, tree.count_elements(0));
  EXPECT_EQ(leaves, tree.stats.leaves);
  EXPECT_EQ(largest, tree.stats.max_leaf_size);
  return covered;
}

void expect_permutation(const kd_tree& tree) {
  std::vector<std::uint64_t> sorted(tree.indices.get(), tree.indices.get() + tree.index_count);
  std::sort(sorted.begin(), sorted.end());
  for (std::uint64_t i = 0; i < sorted.size(); ++i) ASSERT_EQ(sorted[i], i);
}

/// Builds over two sets that are the same, in both ways.
template <class Plain, class Strategy, class Set>
void expect_as_plain(Set& set, Set& same, kd_build_setup setup) {
  std::string fast_text, plain_text;
  kd_tree tree;
  {
    captured_output output;
    compile_tree(set, tree, setup, Strategy{});
    fast_text = output.text();
  }
  setup.leaf_size = std::max(setup.leaf_size, 1u);
  plain_kd_tree plain;
  {
    captured_output output;
    if constexpr (bounded_objects<Set>)
      compute_box(same);
    else
      same.calcBoundingBox();
    plain = plain_kd_builder(same, setup, Plain{}).build();
    plain_text = output.text();
  }
  expect_same_tree(tree, plain);
  EXPECT_EQ(fast_text, plain_text);
  expect_leaves_cover(tree);
  if (setup.strategy != 1 && setup.strategy != 2) expect_permutation(tree);
}

kd_build_setup random_setup(std::mt19937& random) {
  kd_build_setup setup;
  constexpr std::uint32_t leaf_sizes[] = {0, 1, 5, 30}, depths[] = {0, 1, 6, 30, 150};
  setup.leaf_size = leaf_sizes[random() % 4];
  setup.max_depth = depths[random() % 5];
  setup.strategy = 2 + random() % 2;
  if (setup.strategy == 2) setup.max_depth = std::min(setup.max_depth, 6u);
  setup.no_straddle = random() % 4 == 0;
  setup.traversal_cost = random() % 2 ? 2.0f : 0.25f;
  return setup;
}

TEST(kd_compile, is_that_of_ordered_maps) {
  for (unsigned seed = 1; seed <= 600; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::size_t counts[] = {1, 7, 60, 70, 300, 1500};
    const std::size_t count = seed % 100 ? 1 + random() % counts[random() % 6] : 9000;
    std::array<spread, 3> kinds;
    for (spread& kind : kinds)
      kind = static_cast<spread>(random() % static_cast<int>(spread::count));
    if (random() % 2) kinds[1] = kinds[2] = kinds[0];
    box_set set = random_boxes(count, kinds, random() % 2 == 0, random);
    const kd_build_setup setup = random_setup(random);
    expect_as_plain<plain_object_median, kd_strategy_ObjMedian>(set, set, setup);
    expect_as_plain<plain_surface_area, kd_strategy_SurfaceArea>(set, set, setup);
    if (HasFatalFailure()) return;
  }
}

// --- Sets of geometry ----------------------------------------------------------------------------

template <class Set>
void make_set(Set& set, std::size_t elements, float share, unsigned seed) {
  std::mt19937 random(seed);
  tests::fill(set, elements, random);
  // Elements shrink to a share of the whole, so that planes cut some and not all.
  auto& positions = *set.geometry->getPositions();
  const unsigned corners = tests::corners<Set>;
  for (std::size_t i = 0; i < elements; ++i) {
    const auto centre = positions.getValue(static_cast<unsigned>(i * corners));
    for (unsigned k = 1; k < corners; ++k) {
      auto p = positions.getValue(static_cast<unsigned>(i * corners + k));
      for (unsigned axis = 0; axis < 3; ++axis)
        p[axis] = centre[axis] + (p[axis] - centre[axis]) * share;
      positions.setValue(p, static_cast<unsigned>(i * corners + k));
    }
  }
  set.setup();
}

template <class Set>
class geometry_sets : public testing::Test {};
using set_kinds = testing::Types<osg_geoset, osg_line_geoset, osg_point_geoset>;
TYPED_TEST_SUITE(geometry_sets, set_kinds);

TYPED_TEST(geometry_sets, are_parted_as_by_ordered_maps) {
  for (unsigned seed = 1; seed <= 24; ++seed) {
    SCOPED_TRACE(seed);
    kd_build_setup setup;
    setup.strategy = seed % 4;
    setup.leaf_size = seed % 3 ? 5 : 40;
    setup.max_depth = setup.strategy == 2 ? 7 : 12;
    TypeParam set, same;
    make_set(set, 400, seed % 2 ? 0.1f : 0.5f, seed);
    make_set(same, 400, seed % 2 ? 0.1f : 0.5f, seed);
    expect_as_plain<plain_object_median, kd_strategy_ObjMedian>(set, same, setup);
    EXPECT_EQ(set.size(), same.size());
    EXPECT_EQ(tests::content(set), tests::content(same));
    if constexpr (std::is_same_v<TypeParam, osg_geoset>) {
      setup.traversal_cost = 0.5f;
      expect_as_plain<plain_surface_area, kd_strategy_SurfaceArea>(set, same, setup);
      EXPECT_EQ(tests::content(set), tests::content(same));
    }
  }
}

/// Cut elements keep to one side of every plane above their leaf, as long as none was left whole.
TEST(kd_compile, cut_elements_keep_to_their_sides) {
  osg_geoset set;
  make_set(set, 300, 0.4f, 5);
  const std::uint64_t whole = set.size();
  kd_build_setup setup;
  setup.max_depth = 6;
  kd_tree tree;
  captured_output output;
  compile_tree(set, tree, setup, kd_strategy_ObjMedian{});
  ASSERT_EQ(output.text(), "") << "a cut failed, so that an element may reach over a plane";
  EXPECT_GT(set.size(), whole + 300);
  expect_permutation(tree);

  struct step {
    std::uint64_t node;
    bounding_box cell;
  };
  std::vector<step> steps{{0, set.box}};
  while (!steps.empty()) {
    const auto [number, cell] = steps.back();
    steps.pop_back();
    const kd_node& node = tree.nodes[number];
    if (!node.is_leaf()) {
      bounding_box left = cell, right = cell;
      left.max[node.axis] = right.min[node.axis] = node.split;
      steps.push_back({number + 1, left});
      steps.push_back({static_cast<std::uint64_t>(node.right_child), right});
      continue;
    }
    for (std::uint32_t i = 0; i < node.leaf_count; ++i)
      for (int axis = 0; axis < 3; ++axis) {
        const std::uint64_t e = tree.indices[node.leaf_start + i];
        EXPECT_GE(set.low(e, axis), cell.min[axis]);
        EXPECT_LE(set.high(e, axis), cell.max[axis]);
      }
  }
}

// --- Places where trees end ----------------------------------------------------------------------

TEST(kd_compile, of_nothing_is_one_empty_leaf) {
  box_set set;
  kd_tree tree;
  compile_tree(set, tree, {}, kd_strategy_ObjMedian{});
  EXPECT_TRUE(tree.nodes[0].is_leaf());
  EXPECT_EQ(tree.count_elements(0), 0u);
  EXPECT_EQ(tree.indices[0], 0u);
  EXPECT_EQ(tree.index_capacity, 2u);
  EXPECT_EQ(tree.stats.leaves, 1u);
  EXPECT_EQ(tree.stats.nodes + tree.stats.max_depth + tree.stats.max_leaf_size, 0u);
}

TEST(kd_compile, is_a_leaf_where_no_plane_parts) {
  kd_build_setup setup;
  setup.strategy = 3;
  kd_tree tree;
  box_set points;
  for (int i = 0; i < 100; ++i) points.add({{{1, 1}, {2, 2}, {3, 3}}});
  compile_tree(points, tree, setup, kd_strategy_ObjMedian{});
  EXPECT_EQ(tree.stats.max_leaf_size, 100u);
  EXPECT_EQ(tree.stats.nodes, 0u);

  // Testing one is cheaper than a step, and no plane is free where all lie over one another.
  box_set boxes;
  for (int i = 0; i < 20; ++i) boxes.add({{{0, 1 + 0.01f * i}, {0, 1}, {0, 1}}});
  setup.no_straddle = true;
  compile_tree(boxes, tree, setup, kd_strategy_SurfaceArea{});
  EXPECT_EQ(tree.stats.max_leaf_size, 20u);
}

/// Planes that are no numbers part nothing, on and on; and a chain that parts one at a time is as
/// deep as there are elements.
TEST(kd_compile, ends_at_any_depth_limit) {
  kd_build_setup setup;
  setup.strategy = 3;
  setup.leaf_size = 1;
  setup.max_depth = std::numeric_limits<std::uint32_t>::max();
  const float inf = std::numeric_limits<float>::infinity();
  kd_tree tree;
  captured_output output;
  for (const std::pair<float, float>& ends : {std::pair{NAN, NAN}, std::pair{-inf, inf},
                                              std::pair{-3e38f, 3e38f}, std::pair{1.0f, NAN}}) {
    box_set set;
    for (int i = 0; i < 4; ++i) set.add({ends, ends, ends});
    compile_tree(set, tree, setup, kd_strategy_ObjMedian{});
    expect_permutation(tree);
    compile_tree(set, tree, setup, kd_strategy_SurfaceArea{});
    expect_permutation(tree);
  }
}

TEST(kd_objects, are_parted_as_elements_are) {
  std::mt19937 random(7);
  const box_set boxes =
      random_boxes(500, {spread::even, spread::crowded, spread::grid}, false, random);
  box_set same = boxes;
  object_set objects(boxes);
  kd_build_setup setup;
  setup.leaf_size = 1;
  setup.strategy = 1;  // there is no cutting objects
  kd_tree of_objects, of_boxes;
  compile_tree(objects, of_objects, setup, kd_strategy_ObjMedian{});
  compile_tree(same, of_boxes, setup, kd_strategy_ObjMedian{});
  ASSERT_EQ(of_objects.index_count, 500u);
  EXPECT_TRUE(
      std::equal(of_boxes.indices.get(), of_boxes.indices.get() + 500, of_objects.indices.get()));
  expect_permutation(of_objects);
}

TEST(kd_objects, on_a_plane_have_a_box_around_it) {
  box_set flat;
  flat.add({{{0, 10}, {7, 7}, {0, 4}}});
  flat.add({{{-10, 0}, {7, 7}, {0, 4}}});
  object_set objects(flat);
  kd_tree tree;
  compile_tree(objects, tree, {}, kd_strategy_ObjMedian{});
  EXPECT_FLOAT_EQ(objects.box.min[1], 6);
  EXPECT_FLOAT_EQ(objects.box.max[1], 8);
  EXPECT_FLOAT_EQ(objects.box.min[0], -10);
  EXPECT_FLOAT_EQ(objects.box.max[2], 4);
}

TEST(kd_objects, without_bounds_have_those_of_the_one_before) {
  box_set boxes;
  for (float x : {0.0f, 4.0f, 8.0f}) boxes.add({{{x, x + 1}, {0, 1}, {0, 1}}});
  box_set repeated = boxes;
  repeated.lows[0][2] = 4;
  repeated.highs[0][2] = 5;
  object_set objects(boxes, 1);
  kd_build_setup setup;
  setup.leaf_size = 1;
  kd_tree tree, expected;
  captured_output output;
  compile_tree(objects, tree, setup, kd_strategy_ObjMedian{});
  EXPECT_EQ(output.text().find("Morlu_osg_scene_Geost::axis_min_max: Index out of bounce. \n"), 0u);
  compile_tree(repeated, expected, setup, kd_strategy_ObjMedian{});
  EXPECT_EQ(objects.box.max[0], 5);
  EXPECT_EQ(tree.nodes[0].split, expected.nodes[0].split);
  expect_permutation(tree);
}

TEST(kd_compile, leaves_an_empty_tree_when_memory_runs_out) {
  for (const std::uint32_t strategy : {1u, 2u, 3u}) {
    kd_build_setup setup;
    setup.strategy = strategy;
    setup.max_depth = 5;
    setup.leaf_size = 2;
    bool met = true;
    for (int nth = 0; met; ++nth) {
      box_set boxes;
      std::mt19937 random(3);
      boxes = random_boxes(200, {spread::crowded, spread::even, spread::even}, false, random);
      osg_geoset set;
      make_set(set, 30, 0.5f, 3);
      kd_tree tree;
      tree.reset_indices(5);
      const auto done = with_failing_memory(nth, [&] {
        if (strategy == 1)
          compile_tree(set, tree, setup, kd_strategy_ObjMedian{});
        else
          compile_tree(boxes, tree, setup, kd_strategy_ObjMedian{});
      });
      met = done.met;
      if (done.thrown) {
        EXPECT_FALSE(tree.nodes);
        EXPECT_FALSE(tree.indices);
        EXPECT_EQ(tree.index_count, 0u);
      } else {
        expect_leaves_cover(tree);
      }
      EXPECT_TRUE(met || !done.thrown);
      ASSERT_LT(nth, 100000);
    }
  }
}

}  // namespace
