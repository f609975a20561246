// Where scenes come to lie: closed forms, the plants of other tests, refusals, deep graphs.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "morlu/optimiser.h"
#include "morlu/ray.h"
#include "optimiser/plant_scene.h"
#include "osg/intersect_action.h"
#include "primitives/node_walk.h"
#include "support/failing_memory.h"
#include "support/said.h"
#include "support/scene_counts.h"
#include "support/scene_parts.h"
#include "support/scene_text.h"

namespace morlu::tests {
namespace {

using ::osg::NodePtr;
using ::osg::Pnt3f;
using support::count_scene;

::osg::GeometryPtr triangles_at(const std::vector<Pnt3f>& corners) {
  return triangles(corners);
}

NodePtr below(const ::osg::NodeCorePtr& core, const std::vector<NodePtr>& children) {
  const NodePtr node = node_with(core);
  for (const NodePtr& child : children) node->addChild(child);
  return node;
}

/// A core that spans a box, shown twice.
NodePtr box_scene(const Pnt3f& low, const Pnt3f& high) {
  const auto core = triangles_at({low, {high[0], low[1], low[2]}, {low[0], high[1], high[2]}});
  return below(::osg::Group::create(), {node_with(core), node_with(core)});
}

void expect_bounds(const NodePtr& root, const Pnt3f& low, const Pnt3f& high, double within = 0) {
  const auto counts = count_scene(root);
  ::osg::DynamicVolume volume;
  root->getWorldVolume(volume);
  for (unsigned axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(counts.low[axis], low[axis], within) << axis;
    EXPECT_NEAR(counts.high[axis], high[axis], within) << axis;
    EXPECT_NEAR(volume.getMax()[axis], high[axis], within) << "volumes follow";
  }
}

void base(const NodePtr& node) {
  osg::baseGeoPositions(node);
}

TEST(Placement, FitsIntoBoxesAndMovesEachCoreOnce) {
  const NodePtr scene = box_scene({0, 0, 0}, {2, 1, 1});
  osg::transformSceneBB(scene, 10.0f);
  expect_bounds(scene, {-5, -5, -5}, {5, 0, 0});
  osg::transformSceneBB(scene, "1::2:3:4:5:6:7");
  expect_bounds(scene, {1, 2, 3}, {4, 3.5f, 4.5f});
  osg::transformSceneBB(scene, "a:b:-1:4:2x:1");  // what is no number is 0
  expect_bounds(scene, {0, 0, -1}, {4, 2, 1});
  // one row of positions in two cores, and a geometry below a geometry
  const auto twin = ::osg::Geometry::dcast(scene->getChild(0)->getCore())->shallowCopy();
  scene->addChild(node_with(::osg::Geometry::dcast(twin)));
  osg::transformSceneBB(scene, {0, 0, 0}, {2, 2, 2});
  expect_bounds(scene, {0, 0, 0}, {2, 1, 1});
}

TEST(Placement, RefusesWithALineAndMovesNothing) {
  constexpr float inf = std::numeric_limits<float>::infinity(),
                  nan = std::numeric_limits<float>::quiet_NaN();
  const std::string no_box = "morlu::osg::transformSceneBB: No valid Bounding Box given.\n",
                    no_scene = "morlu::osg::transformSceneBB: No valid Scene Bounding Box.\n",
                    no_values =
                        "morlu::osg::transformSceneBB: String of Min/Max values not valid. Example "
                        "\"1:2:3:4:5:6\"\n",
                    no_center =
                        "morlu::osg::CenterGeoPositions: String of Center values not valid. "
                        "Example \"1:2:3\"\n";
  const auto scene = [] { return box_scene({-1000.5f, 0, 0}, {2, 1, 1}); };
  const NodePtr turned = below(::osg::Transform::create(), {scene()});
  const auto box = [](Pnt3f min, Pnt3f max) {
    return [=](const NodePtr& node) { osg::transformSceneBB(node, min, max); };
  };
  const auto size = [](float side) {
    return [=](const NodePtr& node) { osg::transformSceneBB(node, side); };
  };
  const auto center = [](const char* text) {
    return [=](const NodePtr& node) { osg::centerGeoPositions(node, text); };
  };
  const struct {
    const char* what;
    NodePtr scene;
    std::function<void(const NodePtr&)> run;
    std::string said;
  } refusals[] = {
      {"size 0", scene(), size(0), ""},
      {"size below 0", scene(), size(-1), ""},
      {"size NaN", scene(), size(nan), no_box},
      {"an axis without length", scene(), box({0, 0, 0}, {1, 0, 1}), no_box},
      {"an endless box", scene(), box({0, 0, 0}, {1, 1, inf}), no_box},
      {"a flat scene", box_scene({0, 0, 0}, {2, 0, 1}), size(1), no_scene},
      {"an endless scene", box_scene({0, 0, 0}, {2, inf, 1}), size(1), no_scene},
      {"a scene beyond floats", box_scene({-3e38f, 0, 0}, {3e38f, 1, 1}), size(1), no_scene},
      {"nothing in it", below(::osg::Group::create(), {}), size(1), no_scene},
      {"no scene", {}, size(1), no_scene},
      {"five numbers", scene(), [](const NodePtr& n) { osg::transformSceneBB(n, ":1:2:3:4::5:"); },
       no_values},
      {"two numbers", scene(), center("1:2"), no_center},
      {"no scene to centre", {}, center("1:2"), ""},
      {"no geometry to centre", below(::osg::Transform::create(), {}), center("1:2"), ""},
      {"no scene to base", {}, base, ""},
      {"a transform above", turned, base, ""},
      {"the geometry itself below one", turned->getChild(0)->getChild(0), osg::baseGeoPositions,
       ""}};
  for (const auto& [what, given, run, text] : refusals) {
    SCOPED_TRACE(what);
    const std::string before = given ? support::scene_text(given) : "";
    test::said output;
    run(given);
    output.end();
    EXPECT_EQ(output.out, text);
    EXPECT_EQ(output.err, "");
    if (given) {
      EXPECT_EQ(support::scene_text(given), before);
    }
  }
}

/// World positions of all corners, node by node, and whether normals went along.
std::vector<Pnt3f> world_positions(const NodePtr& root) {
  std::vector<Pnt3f> all;
  osg::for_each_node(root, [&](const NodePtr& node) {
    if (const auto geometry = ::osg::Geometry::dcast(node->getCore()))
      for (unsigned i = 0; i < geometry->getPositions()->size(); ++i)
        all.push_back(node->getToWorld() * geometry->getPositions()->getValue(i));
  });
  return all;
}

TEST(Placement, BakesTransformsAboutACentre) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    const plant scene(seed, 25);
    std::mt19937 random(seed);
    const auto choice = node_with(::osg::Switch::create());
    choice->addChild(node_with(::osg::ComponentTransform::create()));
    choice->getChild(0)->addChild(node_with(patch(random, scene.materials[0])));
    scene.root->addChild(choice);
    const auto before = world_positions(scene.root);
    const auto source = ::osg::Geometry::dcast(scene.parts[0]->getCore());
    const auto place = scene.parts[0]->getToWorld();
    const Pnt3f center = scene.root->getVolume(true).getCenter();
    const std::size_t nodes = count_scene(scene.root).geometry_nodes;
    test::said output;
    osg::centerGeoPositions(scene.root, "1:-2.5:1e3");
    output.end();
    EXPECT_TRUE(
        output.out.starts_with("New Model Center: [1/-2.5/1000]\nModel will be moved by: ["));
    const auto after = world_positions(scene.root);
    ASSERT_EQ(after.size(), before.size());
    const ::osg::Vec3f move = Pnt3f(1, -2.5f, 1000) - center;
    for (std::size_t i = 0; i < after.size(); ++i) ASSERT_EQ(after[i], before[i] + move) << seed;
    const auto counts = count_scene(scene.root);
    EXPECT_EQ(counts.geometry_nodes, nodes);
    EXPECT_EQ(counts.cores.size(), nodes) << "each has a core of its own";
    for (const NodePtr& part : scene.parts) EXPECT_EQ(part->getToWorld(), ::osg::Matrix());
    const Pnt3f now = scene.root->getVolume(true).getCenter();
    for (unsigned axis = 0; axis < 3; ++axis)
      EXPECT_NEAR(now[axis], Pnt3f(1, -2.5f, 1000)[axis], 1e-3);
    // normals turn with their part, which is stretched too
    if (const auto normals = source->getNormals()) {
      const auto turn = place.polarDecompose().properRotation();
      const auto baked = ::osg::Geometry::dcast(scene.parts[0]->getCore())->getNormals();
      ASSERT_NE(baked, normals);
      for (unsigned i = 0; i < normals->size(); ++i)
        EXPECT_NEAR(baked->getValue(i).dot(turn * normals->getValue(i)), 1, 1e-5);
    }
  }
}

// Memory fails at each request in turn, until there are no more.
TEST(Placement, ChangesAllOrNothing) {
  const std::pair<const char*, void (*)(const NodePtr&)> moves[] = {
      {"centerGeoPositions", [](const NodePtr& node) { osg::centerGeoPositions(node, "1:2:3"); }},
      {"transformSceneBB", [](const NodePtr& node) { osg::transformSceneBB(node, 3); }},
      {"baseGeoPositions", base}};
  for (const auto& [name, move] : moves) {
    bool is_met = true;  // also by what does without, such as a sort
    unsigned failures = 0;
    for (int nth = 0; is_met; ++nth) {
      SCOPED_TRACE(std::string(name) + ' ' + std::to_string(nth));
      const NodePtr scene = below(move == base ? ::osg::GroupPtr(::osg::Group::create())
                                               : ::osg::GroupPtr(::osg::Transform::create()),
                                  {box_scene({5, 5, 5}, {7, 8, 9})});
      const std::string before = support::scene_text(scene);
      test::said quiet;
      {
        const test::failing_memory memory(nth);
        move(scene);
        is_met = memory.met();
      }
      quiet.end();
      const bool failed =
          quiet.err.starts_with(std::string("bad_alloc caught in morlu::osg::") + name);
      EXPECT_EQ(support::scene_text(scene) == before, failed) << quiet.err;
      failures += failed;
    }
    EXPECT_GT(failures, 0u) << name;
  }
}

TEST(Placement, BasesBelowWholeNumbers) {
  const struct {
    Pnt3f low, high, after_low, after_high;
  } cases[] = {{{1000.5f, 7, 0}, {1002, 8, 1}, {0.5f, 0, 0}, {2, 1, 1}},
               {{-0.5f, -3, 0.75f}, {1, 5, 1}, {0.5f, 0, 0.75f}, {2, 8, 1}}};
  for (const auto& [low, high, after_low, after_high] : cases) {
    const NodePtr scene = box_scene(low, high);
    const auto hidden = below(::osg::Group::create(), {box_scene({-9, -9, -9}, {-8, -8, -8})});
    hidden->setTravMask(0);
    scene->addChild(hidden);
    const auto untouched = support::scene_text(hidden);
    scene->getChild(0)->addChild(node_with(triangles_at(
        {low, {low[0], std::nanf(""), -std::numeric_limits<float>::infinity()}, high})));
    osg::baseGeoPositions(scene);
    EXPECT_EQ(support::scene_text(hidden), untouched);
    scene->subChild(hidden);
    scene->getChild(0)->subChild(scene->getChild(0)->getChild(0));
    expect_bounds(scene, after_low, after_high);
  }
  // a geometry itself; a row of positions that two cores share moves for each
  const NodePtr one = node_with(triangles_at({{5.5f, 2, 1}, {6, 2, 1}, {5.5f, 3, 1}}));
  osg::baseGeoPositions(one);
  expect_bounds(one, {0.5f, 0, 0}, {1, 1, 0});
  const auto core = triangles_at({{5.5f, 2, 1}, {6, 2, 1}, {5.5f, 3, 1}});
  const NodePtr two =
      below(::osg::Group::create(),
            {node_with(core), node_with(::osg::Geometry::dcast(core->shallowCopy()))});
  osg::baseGeoPositions(two);
  expect_bounds(two, {-4.5f, -2, -1}, {-4, -1, -1});
}

TEST(Placement, MarksTreesOfWhatMoved) {
  const NodePtr scene = box_scene({10, 10, 10}, {12, 11, 13});
  osg::precalc_BIH(scene);
  const auto pick = [&] {
    osg::register_morlu_intersect();
    ::osg::IntersectAction action(
        ::osg::Line(scene->getVolume(true).getMin() + ::osg::Vec3f(0.1f, 0.01f, 9), {0, 0, -1}));
    action.apply(scene);
    osg::unregister_morlu_intersect();
    return action.didHit();
  };
  EXPECT_TRUE(pick());
  osg::transformSceneBB(scene, 7);
  EXPECT_TRUE(pick());
  osg::transformSceneBB(scene, "5:5:5:7:7:7");
  EXPECT_TRUE(pick());
  osg::baseGeoPositions(scene);
  EXPECT_TRUE(pick());
}

TEST(Placement, TakesDeepAndWideGraphs) {
  constexpr unsigned size = 100000;
  const auto core = triangles_at({{1.5f, 1, 1}, {3, 1, 1}, {1.5f, 2, 2}});
  NodePtr deep = node_with(::osg::Group::create());
  for (unsigned i = 0; i < size; ++i)
    deep =
        below(i % 2 ? ::osg::Transform::create() : ::osg::Group::create(), {deep, node_with(core)});
  const NodePtr wide = node_with(::osg::Group::create());
  for (unsigned i = 0; i < size; ++i) wide->addChild(node_with(core));
  for (const NodePtr& scene : {deep, wide}) {
    ::osg::DynamicVolume box;
    osg::baseGeoPositions(scene);
    osg::transformSceneBB(scene, 3);
    scene->getWorldVolume(box);
    EXPECT_EQ(box.getMin(), Pnt3f(-1.5f, -1.5f, -1.5f));
    test::said quiet;
    osg::centerGeoPositions(scene, "7:7:7");
    quiet.end();
    scene->getWorldVolume(box);
    EXPECT_EQ(box.getCenter(), Pnt3f(7, 7, 7));
  }
  EXPECT_EQ(wide->getChild(size - 1)->getToWorld(), ::osg::Matrix());
}

}  // namespace
}  // namespace morlu::tests
