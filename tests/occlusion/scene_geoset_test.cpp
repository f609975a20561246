// What a scene's set holds, says and refuses.

#include <gtest/gtest.h>

#include <osg/material.h>

#include "kd/build.h"
#include "kd/strategies.h"
#include "occlusion/occlusion_scenes.h"
#include "support/failing_memory.h"

namespace morlu::tests {
namespace {

using osg::Morlu_osg_scene_geoset;
using bih_scene = Morlu_osg_scene_geoset<bih_tree<float>>;
using kd_scene = Morlu_osg_scene_geoset<kd_tree>;

/// A ball, a node without triangles, and a mirrored floor that is flat on z.
::osg::NodePtr three_nodes() {
  return group({mesh_node(ball(4, {5, 0, 0})), node_with(::osg::Geometry::create()),
                placed(mesh_node(quad({0, 0, 2}, {4, 0, 2}, {4, 4, 2}, {0, 4, 2})),
                       scaled({-1, 1, 1}, {0, 0, 5}))});
}

TEST(SceneGeoset, MakesAnObjectOfEachNodeWithTriangles) {
  std::unique_ptr<bih_scene> scene;
  EXPECT_EQ(said_on_out([&] {
              scene = std::make_unique<bih_scene>(three_nodes(), build_setup{5, 100}, true);
            }),
            "\rDone 1 of 3\rDone 3 of 3");
  EXPECT_EQ(scene->node_count, 3u);
  ASSERT_EQ(scene->object_count, 2u);
  EXPECT_EQ(scene->object_nodes, (std::vector<std::uint32_t>{0, 2}));
  EXPECT_EQ(scene->object_node(1), scene->nodes[2]);
  EXPECT_TRUE(scene->has_objects());
  EXPECT_EQ(scene->geosets.size(), 2u);

  const auto floor = scene->simple_object(1);
  EXPECT_EQ(floor.set.num_objects, 2u);
  EXPECT_TRUE(floor.tree.is_usable());
  EXPECT_EQ(floor.set.triangles[0][1][0], -4);  // in the world, corners in their order
  float low = 0, high = 0;
  scene->axis_min_max(1, 2, low, high);  // no thickness
  EXPECT_EQ(low, 7);
  EXPECT_EQ(high, 7);
  EXPECT_EQ(scene->box.min[0], -4);
  EXPECT_EQ(scene->box.max[0], 6);
  EXPECT_EQ(scene->box.size[2], 8);
}

TEST(SceneGeoset, TellsOfNumbersBeyondTheLast) {
  std::unique_ptr<bih_scene> scene;
  said_on_out([&] { scene = std::make_unique<bih_scene>(three_nodes(), build_setup{}, true); });
  EXPECT_EQ(said_on_out([&] { EXPECT_EQ(&scene->simple_object(2).set, &scene->geosets[1]); }),
            "Morlu_osg_scene_geoset.simple_object(), no element with 2\n");
  float low = 7, high = 8;
  EXPECT_EQ(said_on_out([&] { scene->axis_min_max(2, 0, low, high); }),
            "Morlu_osg_scene_Geost::axis_min_max: Index out of bounce. \n");
  EXPECT_EQ(low, 7);
  EXPECT_EQ(high, 8);
  EXPECT_EQ(said_on_out([&] { EXPECT_FALSE(scene->object_node(3)); }),
            "Morlu_osg_scene_geoset: No Node with index 3\n");

  bih_scene empty(::osg::NullFC, {}, true);
  EXPECT_FALSE(empty.has_objects());
  EXPECT_EQ(said_on_out([&] {
              const auto nothing = empty.simple_object(0);
              EXPECT_EQ(nothing.set.num_objects, 0u);
              EXPECT_FALSE(nothing.tree.is_usable());
            }),
            "Morlu_osg_scene_geoset.simple_object(), no element with 0\n");
}

// Groups of nodes are handed in one after the other by their lists.
TEST(SceneGeoset, TakesNodesByTheirBoundsAlone) {
  bih_scene scene(::osg::NullFC, {}, false);
  const auto root = three_nodes();
  scene.nodes = {::osg::NullFC, root->getChild(0), ::osg::NullFC, root->getChild(2)->getChild(0)};
  scene.node_count = 4;
  EXPECT_EQ(said_on_out([&] { scene.setup(::osg::NullFC, {}); }), "NULLFC\nNULLFC\n");
  EXPECT_EQ(scene.size(), 4u);
  EXPECT_FALSE(scene.has_objects());
  const float lows[] = {0, 4, 4, -4}, highs[] = {0, 6, 6, 0};
  for (unsigned i = 0; i < 4; ++i) {
    float low = 7, high = 7;
    scene.axis_min_max(i, 0, low, high);
    EXPECT_NEAR(low, lows[i], 1e-6f) << i;
    EXPECT_NEAR(high, highs[i], 1e-6f) << i;
  }
  bih_tree<float> tree;
  osg::build_top_tree(scene, tree);
  EXPECT_TRUE(tree.is_usable());
  EXPECT_EQ(tree.index_count, 4u);

  bih_scene none(::osg::NullFC, {}, false);
  none.node_count = 4;  // of an empty list
  none.setup(::osg::NullFC, {});
  EXPECT_EQ(none.size(), 0u);
}

TEST(SceneGeoset, StartsAnewWhenFilledAgain) {
  std::unique_ptr<bih_scene> scene;
  said_on_out([&] {
    scene = std::make_unique<bih_scene>(three_nodes(), build_setup{}, true);
    scene->setup(mesh_node(ball(4)), {});
  });
  EXPECT_EQ(scene->node_count, 1u);
  EXPECT_EQ(scene->object_count, 1u);
  EXPECT_EQ(scene->object_nodes.size(), 1u);
  EXPECT_EQ(scene->box.max[0], 1);
  EXPECT_EQ(said_on_out([&] { scene->setup(::osg::NullFC, {}); }), "");
  EXPECT_EQ(scene->size(), 0u);
  EXPECT_EQ(scene->box.max[0], 0);
}

// A geometry whose triangles are all points leaves its material and room behind in an entry that
// the next node takes over.
TEST(SceneGeoset, KeepsNothingOfANodeWithoutTriangles) {
  const auto points =
      make_geometry(std::vector<triangle>(50, {{vector3{1, 1, 1}, {1, 1, 1}, {1, 1, 1}}}));
  points->setMaterial(::osg::SimpleMaterial::create());
  std::unique_ptr<bih_scene> scene;
  said_on_out([&] {
    scene = std::make_unique<bih_scene>(
        group({node_with(points), mesh_node(quad({0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}))}),
        build_setup{}, true);
  });
  ASSERT_EQ(scene->object_count, 1u);
  EXPECT_FALSE(scene->geosets[0].geometry->getMaterial());
  EXPECT_EQ(scene->geosets[0].num_objects, 2u);
  EXPECT_EQ(scene->object_nodes[0], 1u);
}

/// Whichever request for memory fails, the set says so and can be filled again.
TEST(SceneGeoset, SurvivesLackOfMemory) {
  const auto root = three_nodes();
  int failures = 0;
  for (int nth = 0; nth < 4000; ++nth) {
    bih_scene scene(::osg::NullFC, {}, true);
    const auto lines = test::with_failing_memory(nth, [&] { scene.setup(root, {5, 100}); });
    EXPECT_FALSE(lines.thrown);
    if (!lines.met) break;
    if (lines.err.empty()) continue;
    ++failures;
    EXPECT_EQ(lines.err.back(), '\n') << nth;
    EXPECT_LE(scene.object_count, 2u) << nth;
    said_on_out([&] { scene.setup(root, {5, 100}); });
    EXPECT_EQ(scene.object_count, 2u) << nth;
  }
  EXPECT_GT(failures, 10);
}

TEST(CountNodeTriangles, SharesOutTheWhole) {
  std::vector<::osg::NodePtr> parts;
  for (int i = 0; i < 30; ++i)
    parts.push_back(mesh_node(ball(3 + i % 3, {3.0f * static_cast<float>(i), 0, 0})));
  const auto check = [](auto& scene, std::uint32_t expected) {
    kd_tree tree;
    compile_tree(scene, tree, kd_build_setup{.leaf_size = 2, .strategy = 0},
                 kd_strategy_ObjMedian{});
    ASSERT_GT(tree.stats.nodes, 4u);
    EXPECT_EQ(osg::count_node_triangles(tree, scene, 0), expected);
    const auto right = static_cast<std::uint64_t>(tree.nodes[0].right_child);
    const std::uint32_t left_share = osg::count_node_triangles(tree, scene, 1);
    EXPECT_GT(left_share, 0u);
    EXPECT_EQ(left_share + osg::count_node_triangles(tree, scene, right), expected);
  };
  std::uint32_t promised = 0;
  for (int i = 0; i < 30; ++i) promised += static_cast<std::uint32_t>(ball(3 + i % 3).size());

  bih_scene by_bounds(group(parts), {}, false);
  check(by_bounds, promised);
  std::unique_ptr<bih_scene> rays;
  std::unique_ptr<kd_scene> pieces;
  said_on_out([&] {
    rays = std::make_unique<bih_scene>(group(parts), build_setup{5, 100}, true);
    pieces = std::make_unique<kd_scene>(group(parts), kd_build_setup{}, true);
  });
  check(*rays, promised);
  std::uint32_t cut = 0;
  for (const kd_tree& tree : pieces->trees) cut += static_cast<std::uint32_t>(tree.index_count);
  EXPECT_GE(cut, promised);
  check(*pieces, cut);

  kd_tree single;
  EXPECT_EQ(osg::count_node_triangles(single, *rays, 0), 0u);
}

}  // namespace
}  // namespace morlu::tests
