// The merge over small plants: what is drawn, who it came from, and what is said.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <list>
#include <map>
#include <set>
#include <sstream>

#include "geoset/extract.h"
#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "optimiser/id_map_handler.h"
#include "optimiser/material_groups.h"
#include "optimiser/plant_scene.h"
#include "optimiser/scene_queries.h"
#include "support/failing_memory.h"
#include "support/said.h"
#include "support/scene_text.h"
#include "support/surface_measure.h"

namespace morlu::tests {
namespace {

using ::osg::GeometryPtr;
using ::osg::MaterialPtr;
using osg::mergeGeo_setup;
using ::osg::NodePtr;
using test::said;

std::vector<NodePtr> geometry_nodes(const NodePtr& root) {
  std::list<NodePtr> found;
  osg::collect_geo_nodes(root, found);
  return {found.begin(), found.end()};
}
GeometryPtr geometry_of(const NodePtr& node) {
  return ::osg::Geometry::dcast(node->getCore());
}

test::surface_measure measure(const NodePtr& root) {
  test::surface_measure all;
  for (const NodePtr& node : geometry_nodes(root))
    all.add(geometry_of(node), osg::getEffectiveMaterial(node), node->getToWorld(), osg::is_rogue);
  return all;
}

kd_build_setup leaves_of(unsigned size) {
  kd_build_setup kd;
  kd.leaf_size = size;
  kd.max_depth = 100;
  return kd;
}

NodePtr merged(const NodePtr& root, const mergeGeo_setup& setup, unsigned leaf_size = 60) {
  osg::getIdMapHandler().reset();
  said text;
  const NodePtr result = osg::mergeGeo(root, leaves_of(leaf_size), setup);
  text.end();
  EXPECT_EQ(text.err, "");
  return result;
}

/// Without names, whose running numbers differ.
std::string text_without_names(const NodePtr& root) {
  std::istringstream lines(support::scene_text(root));
  std::string text;
  for (std::string line; std::getline(lines, line);)
    if (!line.starts_with("name ")) text += line + '\n';
  return text;
}

struct variant {
  const char* name;
  void (*set)(mergeGeo_setup&);
};
const variant variants[] = {
    {"plain", [](mergeGeo_setup&) {}},
    {"level 0", [](mergeGeo_setup& s) { s.opt = 0; }},
    {"level 2", [](mergeGeo_setup& s) { s.opt = 2; }},
    {"level 3", [](mergeGeo_setup& s) { s.opt = 3; }},
    {"with transparent and hidden",
     [](mergeGeo_setup& s) {
       s.alphageometry = true;
       s.keeprenderfalse = true;
     }},
    {"cache", [](mergeGeo_setup& s) { s.cacheopt = true; }},
    {"cache, new normals", [](mergeGeo_setup& s) { s.cacheopt = s.calcnormals = true; }},
    {"by name", [](mergeGeo_setup& s) { s.mergesamename = true; }},
    {"spatial", [](mergeGeo_setup& s) { s.mergehierarchy = true; }},
};

TEST(MergeGeo, KeepsTheSurface) {
  for (const variant& each : variants)
    for (unsigned seed = 0; seed < 4; ++seed) {
      SCOPED_TRACE(std::string(each.name) + ", seed " + std::to_string(seed));
      const plant scene(seed, 60);
      mergeGeo_setup setup;
      setup.silent = true;
      setup.idmap = "ids";
      each.set(setup);
      if (!setup.keeprenderfalse)
        for (const NodePtr& node : scene.hidden) node->getParent()->subChild(node);
      const auto before = measure(scene.root);
      const bool in_few = seed % 2;
      const NodePtr result = merged(scene.root, setup, in_few ? 5000 : 60);
      const auto after = measure(result);
      EXPECT_EQ(after.triangles, before.triangles);
      EXPECT_EQ(after.mixed_ids, 0u);
      test::surface_measure unmarked = before;  // sources have no ids
      unmarked.area_of_id = after.area_of_id;
      test::expect_same_measure(unmarked, after, 1e-4);
      EXPECT_TRUE(setup.mergesamename || !in_few || geometry_nodes(result).size() < 17);
    }
}

using world_triangle = std::array<float, 9>;

/// From any corner on; -0 as 0.
world_triangle in_world(const ::osg::TriangleIterator& at, const ::osg::Matrix& world) {
  std::array<::osg::Pnt3f, 3> p;
  for (unsigned k = 0; k < 3; ++k) p[k] = world * at.getPosition(k);
  std::rotate(p.begin(), std::min_element(p.begin(), p.end()), p.end());
  world_triangle all;
  for (unsigned i = 0; i < 9; ++i) all[i] = p[i / 3][i % 3] + 0.0f;
  return all;
}

/// Each id's triangles are those of the node whose name it has, all of them and no others.
TEST(MergeGeo, TellsWhereTrianglesCameFrom) {
  for (const int numthreads : {1, 3}) {
    const plant scene(7, 80);
    std::map<std::string, std::multiset<world_triangle>> expected;
    for (const NodePtr& node : scene.parts) {
      auto& own = expected[::osg::getName(node)];
      for (auto it = geometry_of(node)->beginTriangles(); !it.isAtEnd(); ++it)
        own.insert(in_world(it, node->getToWorld()));
    }
    mergeGeo_setup setup;
    setup.silent = true;
    setup.idmap = "ids";
    setup.numthreads = numthreads;
    const NodePtr result = merged(scene.root, setup);
    const auto& names = osg::getIdMapHandler().names();
    ASSERT_EQ(names.size(), scene.parts.size());
    for (const NodePtr& node : geometry_nodes(result)) {
      if (!geometry_of(node)->getTexCoords7()) continue;  // transparent ones have no ids
      for (auto it = geometry_of(node)->beginTriangles(); !it.isAtEnd(); ++it) {
        auto& left = expected[names.at(static_cast<std::size_t>(it.getTexCoords7(0)[0]))];
        const auto found = left.find(in_world(it, {}));
        ASSERT_TRUE(found != left.end());
        left.erase(found);
      }
    }
    for (const auto& [name, left] : expected) EXPECT_TRUE(left.empty()) << name;
  }
}

TEST(MergeGeo, IsTheSameOnAnyNumberOfThreads) {
  for (const variant& each : variants) {
    SCOPED_TRACE(each.name);
    std::string first, names;
    for (const int numthreads : {1, 1, 2, 8}) {
      plant scene(3, 70);
      mergeGeo_setup setup;
      setup.silent = true;
      setup.idmap = "ids";
      setup.vertexcolor = 200;
      setup.numthreads = numthreads;
      each.set(setup);
      const std::string text = text_without_names(merged(scene.root, setup));
      std::string ids;
      for (const std::string& name : osg::getIdMapHandler().names()) ids += name + " ";
      if (first.empty()) {
        first = text;
        names = ids;
      }
      EXPECT_EQ(text == first, true) << "with " << numthreads << " threads";
      EXPECT_EQ(ids, names);
    }
  }
}

TEST(MergeGeo, SaysWhatItDoes) {
  const NodePtr empty = node_with(::osg::Group::create());
  const auto text_of = [&](const NodePtr& root, const mergeGeo_setup& setup) {
    said text;
    EXPECT_TRUE(osg::mergeGeo(root, leaves_of(100), setup));
    text.end();
    return text.out;
  };
  mergeGeo_setup loud, silent;
  silent.silent = true;
  EXPECT_EQ(text_of(empty, loud),
            "Merging Geometry with 0 GeometryCore(s)...\nFound 0 different Materials.\n"
            "\rDone merging.        \ndone.\n");
  EXPECT_EQ(text_of({}, silent), "Found 0 different Materials.\n\rDone merging.        \n");
  silent.cacheopt = true;
  std::mt19937 random(1);
  const auto material = plain_material(1);
  empty->addChild(node_with(patch(random, material)));
  empty->addChild(node_with(patch(random, material)));
  EXPECT_EQ(text_of(empty, silent),
            "Merging Geometry with 2 GeometryCore(s)...\nFound 1 different Materials.\n"
            "\rDone merging.        \nRun Cacheopt...(1) Nodes.\n\r0% ");
  silent.numthreads = 2;
  EXPECT_EQ(text_of(empty, silent),
            "Merging Geometry with 2 GeometryCore(s)...\nFound 1 different Materials.\n"
            "\rDone merging.        \nRun Cacheopt...(1) Nodes.\n");
  geometry_of(empty->getChild(0))->setTypes(::osg::GeoPTypesPtr());
  empty->subChild(empty->getChild(1));
  EXPECT_NE(text_of(empty, loud).find("Empty Geometry, no primitives found. \n"),
            std::string::npos);
}

TEST(MergeGeo, MovesTransparentAndHiddenNodesWithoutTheirChildren) {
  const plant scene(5, 10);
  std::mt19937 random(5);
  const NodePtr child = node_with(patch(random, scene.materials[0]), "child");
  const NodePtr parent = scene.clear[0]->getParent();
  scene.clear[0]->addChild(child);
  const ::osg::Matrix place = scene.clear[0]->getToWorld();
  mergeGeo_setup setup;
  setup.silent = setup.keeprenderfalse = true;
  const NodePtr result = merged(scene.root, setup);
  EXPECT_EQ(parent->getNChildren(), 1u);
  EXPECT_EQ(child->getParent()->getParent(), parent);
  EXPECT_EQ(scene.clear[0]->getNChildren(), 0u);
  EXPECT_EQ(scene.clear[0]->getParent()->getParent(), result);
  EXPECT_EQ(scene.clear[0]->getToWorld(), place);
  for (const NodePtr& node : scene.hidden) {
    EXPECT_EQ(node->getTravMask(), 0u);
    EXPECT_EQ(node->getParent()->getParent(), result);
  }
}

/// The core that two groups show gets one group's material only where that is seen.
TEST(MergeGeo, GivesEffectiveMaterialsToOwnCores) {
  std::mt19937 random(2);
  const NodePtr root = node_with(::osg::Group::create());
  const GeometryPtr shared = patch(random, {});
  std::vector<MaterialPtr> clear;
  std::vector<NodePtr> nodes;
  for (const float alpha : {0.25f, 0.75f}) {
    const auto group = ::osg::MaterialGroup::create();
    clear.push_back(clear_material(alpha));
    group->setMaterial(clear.back());
    const NodePtr above = node_with(group);
    root->addChild(above);
    nodes.push_back(node_with(shared));
    above->addChild(nodes.back());
  }
  mergeGeo_setup setup;
  setup.silent = true;
  merged(root, setup);
  for (std::size_t i = 0; i < 2; ++i)
    EXPECT_EQ(geometry_of(nodes[i])->getMaterial(), clear[i]) << i;
}

TEST(MaterialGroups, MoveColorsOfFewTrianglesIntoVertices) {
  std::mt19937 random(4);
  const NodePtr root = node_with(::osg::Group::create());
  const MaterialPtr small = plain_material(0.1f), large = plain_material(0.9f);
  const GeometryPtr shared = patch(random, small);
  const int triangles = osg::count_triangles(shared);
  for (int i = 0; i < 2; ++i) root->addChild(node_with(shared));
  root->addChild(node_with(patch(random, large)));
  root->addChild(node_with(patch(random, large)));
  root->addChild(node_with(patch(random, large)));
  osg::material_groups groups;
  for (const NodePtr& node : root->getChildren()) addToMaterialGroups(groups, node, false);
  moveColorsOfSmallGroups(groups, 2 * triangles);  // not fewer
  EXPECT_EQ(groups.groups.size(), 2u);
  const NodePtr elsewhere = node_with(shared);
  moveColorsOfSmallGroups(groups, 2 * triangles + 1);
  ASSERT_EQ(groups.groups.size(), 3u);
  EXPECT_EQ(groups.groups.begin()->second.size(), 2u);
  EXPECT_TRUE(groups.groups.find(small)->second.empty());
  const NodePtr first = root->getChild(0);
  EXPECT_EQ(first->getCore(), root->getChild(1)->getCore());
  EXPECT_EQ(geometry_of(first)->getMaterial(), MaterialPtr());
  EXPECT_EQ(geometry_of(first)->getColors()->getValue(0), ::osg::Color3f(0.1f, 0.5f, 0.25f));
  EXPECT_EQ(geometry_of(elsewhere)->getMaterial(), small);  // it is seen elsewhere
}

TEST(MaterialGroups, GoByNameWhereAskedTo) {
  std::mt19937 random(4);
  osg::material_groups groups;
  groups.same_name = true;
  const MaterialPtr material = plain_material(0.1f);
  for (const char* name : {"a", "b", "", "a", ""})
    addToMaterialGroups(groups, node_with(patch(random, material), name), false);
  const GeometryPtr named = patch(random, material);
  ::osg::setName(named, "b");
  addToMaterialGroups(groups, node_with(named), false);
  std::string text;
  for (const auto& [key, group] : groups.groups)
    for (const NodePtr& node : group) text += std::string(::osg::getName(node)) + ' ';
  EXPECT_EQ(text, "a a b b NoName NoName ");
  EXPECT_EQ(groups.groups.size(), 3u);
}

TEST(MergeGeo, EndsWhateverMemoryIsMissing) {
  unsigned told = 0;
  for (int nth = 0; nth < 100000; nth += 1 + nth / 30) {
    const plant scene(6, 6);
    mergeGeo_setup setup;
    setup.cacheopt = nth % 2;
    setup.keeprenderfalse = true;
    bool met = false;
    NodePtr result;
    said text;
    {
      const test::failing_memory memory(nth);
      result = osg::mergeGeo(scene.root, leaves_of(20), setup);
      met = memory.met();
    }
    text.end();
    EXPECT_TRUE(text.out.ends_with("done.\n"));
    EXPECT_TRUE(result || text.err.starts_with("bad_alloc caught in geomerge: "));
    told += !text.err.empty();
    if (!met) break;
  }
  EXPECT_GT(told, 20u);
}

}  // namespace
}  // namespace morlu::tests
