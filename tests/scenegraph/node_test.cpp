// The graph: who is whose child, what survives whom, and when stored volumes go stale.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "osg/cores.h"
#include "osg/geometry.h"
#include "support/failing_memory.h"
#include "support/run_threads.h"
#include "support/scene_parts.h"

namespace {

using osg::Node;
using osg::NodePtr;

NodePtr make_node(const osg::NodeCorePtr& core = osg::Group::create()) {
  return node_with(core);
}

std::vector<NodePtr> children_of(const NodePtr& node) {
  return {node->getChildren().begin(), node->getChildren().end()};
}

osg::GeometryPtr make_triangle() {
  return one_primitive(osg::kTriangles, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
}

osg::TransformPtr make_shift(float x, float y, float z) {
  return transform(osg::Matrix::translation(x, y, z));
}

TEST(Node, StaysAsItIsWhenMemoryRunsOut) {
  const auto node = make_node(make_triangle());
  const auto old = node->getCore();
  const auto other = osg::Group::create();
  const auto fresh = Node::create();
  const auto parent = make_node(), child = make_node();
  parent->addChild(child);
  {
    const morlu::test::failing_memory memory(0, true);
    EXPECT_THROW(fresh->addChild(child), std::bad_alloc);
    EXPECT_THROW(node->setCore(other), std::bad_alloc);
    EXPECT_THROW(fresh->setCore(other), std::bad_alloc);
  }
  EXPECT_EQ(child->getParent(), parent);
  EXPECT_EQ(node->getCore(), old);
  node->setCore(other);
  EXPECT_EQ(node->getCore(), other);
}

TEST(Node, AddingMoves) {
  const auto a = make_node(), b = make_node(), child = make_node(), other = make_node();
  a->addChild(child);
  a->addChild(other);
  a->addChild(osg::NullFC);
  EXPECT_EQ(children_of(a), (std::vector{child, other}));
  a->addChild(child);  // own child: to the end
  EXPECT_EQ(children_of(a), (std::vector{other, child}));
  b->addChild(a->getChild(0));  // the handle of the very list that loses it
  EXPECT_EQ(children_of(a), (std::vector{child}));
  EXPECT_EQ(children_of(b), (std::vector{other}));
  EXPECT_EQ(other->getParent(), b);

  child->addChild(a);  // would close a circle
  a->addChild(a);
  EXPECT_EQ(a->getNChildren(), 1u);
  EXPECT_TRUE(a->getParent().isNull());
}

TEST(Node, RemovalAndReplacementKeepOrder) {
  const auto root = make_node(), a = make_node(), b = make_node(), c = make_node(), d = make_node();
  for (const auto& child : {a, b, c}) root->addChild(child);
  root->subChild(d);
  root->subChild(osg::NullFC);
  EXPECT_TRUE(root->replaceChildBy(b, d));
  EXPECT_EQ(children_of(root), (std::vector{a, d, c}));
  EXPECT_TRUE(b->getParent().isNull());
  EXPECT_FALSE(root->replaceChildBy(b, a));
  EXPECT_TRUE(root->replaceChildBy(c, a));  // a child of the same list
  EXPECT_EQ(children_of(root), (std::vector{d, a}));
  EXPECT_FALSE(a->replaceChildBy(osg::NullFC, d));
  EXPECT_FALSE(root->replaceChildBy(a, root));
  EXPECT_TRUE(root->replaceChildBy(d, osg::NullFC));
  EXPECT_EQ(children_of(root), (std::vector{a}));
}

TEST(Node, ChildrenOutliveTheirParentAndHandlesTheirPlace) {
  const auto child = make_node();
  {
    const auto parent = make_node();
    parent->addChild(child);
    EXPECT_EQ(child->getParent(), parent);
  }
  EXPECT_TRUE(child->getParent().isNull());

  auto root = make_node();
  root->addChild(child);
  const NodePtr held = root->getChild(0);
  root->subChild(held);
  EXPECT_EQ(held->getReferenceCount(), 2u);
  const osg::NodeCorePtr core = held->getCore();
  EXPECT_EQ(core->getNumParents(), 1u);
  held->setCore(osg::NullFC);
  EXPECT_EQ(core->getNumParents(), 0u);
  EXPECT_TRUE(held->getCore().isNull());
}

// The list remembers roughly where a child stands; random edits against a plain vector show that it
// always finds it, and that nothing is lost when the front is cut off.
TEST(Node, RandomEditsMatchAPlainList) {
  const unsigned seed = 20221122;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto root = make_node();
  std::vector<NodePtr> expected, pool;
  for (int i = 0; i < 300; ++i) pool.push_back(Node::create());
  for (int step = 0; step < 6000; ++step) {
    const NodePtr node = pool[random() % pool.size()];
    const auto at = std::ranges::find(expected, node);
    switch (random() % 4) {
      case 0:
      case 1:
        if (at != expected.end()) expected.erase(at);
        expected.push_back(node);
        root->addChild(node);
        break;
      case 2:
        if (at != expected.end()) expected.erase(at);
        root->subChild(node);
        break;
      default:
        if (expected.empty()) break;
        const std::size_t gone = random() % 3 ? 0 : random() % expected.size();
        root->subChild(expected[gone]);
        expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(gone));
    }
    ASSERT_EQ(root->getNChildren(), expected.size());
    if (step % 50 == 0) {
      ASSERT_EQ(children_of(root), expected);
    }
  }
  EXPECT_EQ(children_of(root), expected);
}

TEST(Node, LongListsEmptyFromEitherEnd) {
  for (const bool from_front : {true, false}) {
    const auto root = make_node();
    for (int i = 0; i < 100000; ++i) root->addChild(Node::create());
    while (root->getNChildren() > 0)
      root->subChild(root->getChild(from_front ? 0 : root->getNChildren() - 1));
    EXPECT_TRUE(root->getChildren().empty());
  }
}

TEST(Node, WorldMatrixIsTheProductDownFromTheRoot) {
  const auto root = make_node(make_shift(1, 2, 3));
  const auto middle = make_node(osg::NullFC);
  const auto leaf = make_node(transform(osg::Matrix::scale(2)));
  root->addChild(middle);
  middle->addChild(leaf);
  const auto p = leaf->getToWorld().transformPoint(osg::Pnt3f(1, 1, 1));
  EXPECT_EQ(p, osg::Pnt3f(3, 4, 5));
  EXPECT_EQ(make_node()->getToWorld(), osg::Matrix());
}

TEST(Volume, IsStoredInTheParentsSpaceAndComputedOnlyWhenAsked) {
  const auto root = make_node(), moved = make_node(make_shift(10, 0, 0));
  const auto leaf = make_node(make_triangle());
  root->addChild(moved);
  moved->addChild(leaf);
  EXPECT_FALSE(root->getVolume().isValid());
  expect_box(moved->getVolume(true), {10, 0, 0}, {11, 1, 0});
  expect_box(leaf->getVolume(), {0, 0, 0}, {1, 1, 0});
  EXPECT_FALSE(root->getVolume().isValid());
  osg::DynamicVolume world;
  leaf->getWorldVolume(world);
  expect_box(world, {10, 0, 0}, {11, 1, 0});

  const auto empty = make_node();
  EXPECT_TRUE(empty->getVolume(true).isValid());
  EXPECT_TRUE(empty->getVolume().isEmpty());
}

TEST(Volume, GoesStaleUpToTheRootWithEachEditOfTheGraph) {
  const auto root = make_node(), moved = make_node(make_shift(10, 0, 0)), leaf = make_node();
  const auto extra = make_node(make_triangle());
  root->addChild(moved);
  moved->addChild(leaf);
  const auto expect_stale_after = [&](const char* edit, auto&& run) {
    SCOPED_TRACE(edit);
    root->updateVolume();
    EXPECT_TRUE(root->getVolume().isValid());
    run();
    EXPECT_FALSE(root->getVolume().isValid());
  };
  expect_stale_after("setCore", [&] { leaf->setCore(make_triangle()); });
  expect_stale_after("addChild", [&] { leaf->addChild(extra); });
  expect_stale_after("subChild", [&] { leaf->subChild(extra); });
  expect_stale_after("replaceChildBy", [&] { moved->replaceChildBy(leaf, extra); });
  expect_stale_after("setMatrix", [&] {
    osg::Transform::dcast(moved->getCore())->setMatrix(osg::Matrix::translation(0, 0, 5));
  });
  EXPECT_FALSE(moved->getVolume().isValid());
  EXPECT_TRUE(extra->getVolume().isValid());  // only what lies above
  expect_box(root->getVolume(true), {0, 0, 5}, {1, 1, 5});
  EXPECT_TRUE(leaf->getVolume().isValid());  // taken out as it was, still right for itself
  root->setTravMask(0);
  EXPECT_TRUE(root->getVolume().isValid());
}

// Workers swap cores of siblings while others ask for volumes of the shared ancestor. In the end
// the volume has to be right, whatever the interleaving was.
TEST(Volume, SurvivesEditsOnManyThreads) {
  const auto root = make_node();
  std::vector<NodePtr> leaves;
  for (int i = 0; i < 4; ++i) {
    leaves.push_back(make_node(make_triangle()));
    root->addChild(leaves.back());
  }
  support::run_threads(4, [&](int thread) {
    const NodePtr leaf = leaves[static_cast<std::size_t>(thread)];
    for (int i = 0; i < 500; ++i) {
      const auto core = make_triangle();
      core->getPositions()->setValue({1, 1, static_cast<float>(i)}, 2);
      leaf->setCore(core);
      leaf->getVolume(true);
    }
  });
  expect_box(root->getVolume(true), {0, 0, 0}, {1, 1, 499});
}

}  // namespace
