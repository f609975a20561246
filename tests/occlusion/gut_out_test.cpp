// What a gut-out removes and what it keeps, beside a plain walk.

#include <gtest/gtest.h>

#include <limits>

#include "occlusion/plain_walk.h"

namespace morlu::tests {
namespace {

std::string gut_out(const ::osg::NodePtr& root, float threshold = 0, int samples = 3) {
  osg::forget_directions();
  return said_on_out([&] { osg::gutOutModelPerAmbientOcclusion(root, samples, threshold, 1); });
}

std::string last_line(const std::string& said) {
  return said.substr(said.rfind('\r'));
}

/// Far apart, so that a shell of a few units is near.
std::vector<::osg::NodePtr> landmarks() {
  return {mesh_node(ball(3, {90, 90, 90})), mesh_node(ball(3, {-90, -90, -90}))};
}

// A ball of 4 triangles a ring in a shell that faces in or out; a shell that faces in has itself in
// sight.
TEST(GutOut, RemovesWhatFrontsShutIn) {
  const auto core_ball = ball(4), shell = ball(6, {0, 0, 0}, 3);
  for (const int samples : {3, 5}) {  // with an even number, d may undo a normal: a free ray
    for (const bool facing_in : {true, false}) {
      const auto hidden = mesh_node(core_ball);
      const auto around = mesh_node(facing_in ? turned(shell) : shell);
      const auto marks = landmarks();
      const auto root = group({marks[0], hidden, around, marks[1]});
      EXPECT_EQ(last_line(gut_out(root, 0, samples)),
                facing_in ? "\rdone. Removed 2 geometries with " +
                                std::to_string(core_ball.size() + shell.size()) + " primitives.\n"
                          : "\rdone. Removed 0 geometries with 0 primitives.\n");
      EXPECT_EQ(root->getNChildren(), facing_in ? 2u : 4u);
      EXPECT_EQ(marks[1]->getParent(), root);
      EXPECT_EQ(hidden->getParent().isNull(), facing_in);
    }
  }
}

TEST(GutOut, RemovesWhatAPlainWalkRemoves) {
  const unsigned seed = 5;
  std::mt19937 random(seed);
  std::size_t removed_of_some = 0;
  for (const float threshold :
       {-1.0f, 0.0f, 0.3f, 0.6f, 1.0f, std::numeric_limits<float>::quiet_NaN()}) {
    SCOPED_TRACE(threshold);
    std::vector<::osg::NodePtr> parts = landmarks();
    for (int i = 0; i < 30; ++i)
      parts.push_back(placed(mesh_node(i % 3 ? random_soup(random, 6) : turned(ball(4))),
                             scaled({1, 1.5f, 2}, random_point(random, 5))));
    const auto root = group(parts);
    gut_out(root, -2);  // makes indices and normals, removes nothing
    const auto nodes = geometry_nodes(root);
    ASSERT_EQ(nodes.size(), parts.size());
    const test_scene scene(root);
    const float diagonal = diagonal_of(root);
    const plain_walk plain{scene, static_cast<float>(diagonal * 0.05), false,
                           static_cast<float>(diagonal * 1e-5)};
    std::vector<bool> hidden;
    for (const auto& node : nodes) {
      hidden.push_back(true);
      for (std::uint32_t i = 0; i < core(node)->getPositions()->size(); ++i)
        if (!(plain.value_at(node, i) <= threshold)) hidden.back() = false;
    }
    gut_out(root, threshold);
    for (std::size_t i = 0; i < nodes.size(); ++i)
      EXPECT_EQ(nodes[i]->getParent().isNull(), hidden[i]) << i;
    const auto removed = static_cast<std::size_t>(std::count(hidden.begin(), hidden.end(), true));
    EXPECT_TRUE(threshold == 1 ? removed == nodes.size() : threshold >= 0 || removed == 0);
    if (threshold > 0 && threshold < 1) removed_of_some += removed;
  }
  EXPECT_GT(removed_of_some, 5u);
  EXPECT_LT(removed_of_some, 50u);
}

// Points in a shell; where one of them stands outside, in whatever batch, all stay.
TEST(GutOut, LooksAtEveryVertex) {
  for (const int count : {1, 2, 5, 6, 21, 22, 400})
    for (const int outside : {-1, 0, count - 1, count / 2}) {
      const auto points = make_geometry({});
      points->getTypes()->setValue(::osg::kPoints, 0);
      points->getLengths()->setValue(static_cast<unsigned>(count), 0);
      for (int i = 0; i < count; ++i)
        points->getPositions()->push_back(
            i == outside ? ::osg::Pnt3f(50, 0, 0)
                         : ::osg::Pnt3f(static_cast<float>(i) * 1e-3f, 0.1f, 0.2f));
      const auto node = node_with(points);
      auto all = landmarks();
      all.push_back(node);
      all.push_back(mesh_node(turned(ball(6, {0, 0, 0}, 3))));
      const auto root = group(all);
      gut_out(root);
      EXPECT_EQ(node->getParent().isNull(), outside < 0) << count << ' ' << outside;
    }
}

TEST(GutOut, KeepsWhatStandsBelow) {
  const auto hidden = mesh_node(ball(4)), seen = mesh_node(ball(4, {40, 0, 0}));
  const auto other = node_with(::osg::Group::create());
  hidden->setTravMask(2);
  hidden->addChild(seen);
  hidden->addChild(other);
  auto all = landmarks();
  all.push_back(hidden);
  all.push_back(mesh_node(turned(ball(6, {0, 0, 0}, 3))));
  const auto root = group(all);
  gut_out(root);
  EXPECT_FALSE(hidden->getParent());
  const auto in_place = seen->getParent();
  ASSERT_TRUE(in_place);
  EXPECT_EQ(other->getParent(), in_place);
  EXPECT_EQ(in_place->getTravMask(), 2u);
  EXPECT_EQ(root->getChild(2), in_place);
}

TEST(GutOut, LeavesANodeWithoutParent) {
  const auto node = mesh_node(turned(ball(6)));
  EXPECT_EQ(gut_out(node, 1),
            "Prepare Geoset: \n\rDone 1 of 1\nCalc Ambient Occlusion: \n\r0%"
            "\rdone. Removed 0 geometries with 0 primitives.\n");
  EXPECT_TRUE(core(node));
  EXPECT_EQ(gut_out(group({node_with(::osg::Geometry::create())})),
            "Prepare Geoset: \n\nCalc Ambient Occlusion: \nPositions are NullFC. Skipping this "
            "Geometry.\n\rdone. Removed 0 geometries with 0 primitives.\n");
  EXPECT_EQ(gut_out(::osg::NullFC), "");
}

}  // namespace
}  // namespace morlu::tests
