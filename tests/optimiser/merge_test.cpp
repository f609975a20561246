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
#include "support/scene_parts.h"
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

test::surface_measure measure_of(const std::vector<NodePtr>& nodes) {
  test::surface_measure all;
  for (const NodePtr& node : nodes)
    all.add(geometry_of(node), osg::getEffectiveMaterial(node), node->getToWorld(), osg::is_rogue);
  return all;
}
test::surface_measure measure(const NodePtr& root) {
  return measure_of(geometry_nodes(root));
}

kd_build_setup leaves_of(unsigned size) {
  kd_build_setup kd;
  kd.leaf_size = size;
  kd.max_depth = 100;
  return kd;
}

mergeGeo_setup silent_setup(const char* idmap = "") {
  mergeGeo_setup setup;
  setup.silent = true;
  setup.idmap = idmap;
  return setup;
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
      mergeGeo_setup setup = silent_setup("ids");
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
    mergeGeo_setup setup = silent_setup("ids");
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
      mergeGeo_setup setup = silent_setup("ids");
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
  mergeGeo_setup loud, silent = silent_setup();
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
  mergeGeo_setup setup = silent_setup();
  setup.keeprenderfalse = true;
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

TEST(MergeGeo, KeepsTheNamesOfTransparentNodesAboveTheirNewOnes) {
  for (const bool cacheopt : {false, true}) {
    const plant scene(5, 3);
    mergeGeo_setup setup = silent_setup();
    setup.cacheopt = cacheopt;
    const NodePtr result = merged(scene.root, setup);
    for (const NodePtr& node : scene.clear) {
      const NodePtr named = cacheopt ? node->getParent() : node;
      EXPECT_STREQ(::osg::getName(named), "clear");
      EXPECT_EQ(cacheopt, std::string(::osg::getName(node)).find("_G_") != std::string::npos);
    }
  }
}

/// All that is hidden moves, from below a hidden root too, and stays where it was.
TEST(MergeGeo, MovesAHiddenRootAndWhatIsBelow) {
  std::mt19937 random(5);
  const MaterialPtr material = plain_material(1);
  const auto matrix = ::osg::Matrix::translation(1, 2, 3);
  const NodePtr root = node_with(patch(random, material), "root");
  const NodePtr inner = node_with(patch(random, material));
  root->addChild(::node_with(transform(matrix), {inner}));
  root->setTravMask(0);
  mergeGeo_setup setup = silent_setup();
  setup.keeprenderfalse = true;
  const NodePtr result = merged(root, setup);
  EXPECT_EQ(root->getParent()->getParent(), result);
  EXPECT_EQ(inner->getParent()->getParent(), result);
  EXPECT_EQ(inner->getToWorld(), matrix);
}

/// The core that two groups show gets one group's material only where that is seen.
TEST(MergeGeo, GivesEffectiveMaterialsToOwnCores) {
  std::mt19937 random(2);
  const NodePtr root = node_with(::osg::Group::create());
  const GeometryPtr shared = patch(random, {});
  const MaterialPtr clear[] = {clear_material(0.25f), clear_material(0.75f)};
  const NodePtr nodes[] = {node_with(shared), node_with(shared)};
  for (std::size_t i = 0; i < 2; ++i) root->addChild(below_material(clear[i], {nodes[i]}));
  merged(root, silent_setup());
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
  for (int i = 0; i < 3; ++i) root->addChild(node_with(patch(random, large)));
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

// --- Failures ------------------------------------------------------------------------------------

struct outcome {
  NodePtr result;
  std::string out, err;
  bool met = false;

  bool has_reached(const char* line) const { return out.find(line) != std::string::npos; }
};

/// With a request for memory failing: number `nth` of this thread, or of all others.
outcome merged_with_failure(const NodePtr& root, const mergeGeo_setup& setup, int nth,
                            bool in_worker, test::failure kind) {
  outcome done;
  const auto merge_while = [&](const auto& fails) {
    done.result = osg::mergeGeo(root, leaves_of(20), setup);
    done.met = fails.met();
  };
  said text;
  if (in_worker)
    merge_while(test::failing_workers(nth, kind));
  else
    merge_while(test::failing_memory(nth));
  text.end();
  done.out = text.out;
  done.err = text.err;
  return done;
}

/// What a plant has, and where that which moves stands.
struct failure_checks {
  explicit failure_checks(const plant& of) : scene(of), whole(measure_of(of.parts)) {
    moving = scene.clear;
    moving.insert(moving.end(), scene.hidden.begin(), scene.hidden.end());
    for (const NodePtr& node : moving) places.push_back(node->getToWorld());
  }

  void expect_source_kept() const { EXPECT_EQ(missing(measure_of(scene.parts)), 0u); }

  /// Nodes that move are in one of the graphs, where they were.
  void expect_moved_or_not(const NodePtr& result, bool all) const {
    for (std::size_t i = 0; i < moving.size(); ++i) {
      NodePtr top = moving[i];
      while (top->getParent()) top = top->getParent();
      EXPECT_TRUE(top == result || (!all && top == scene.root));
      EXPECT_EQ(moving[i]->getToWorld(), places[i]);
    }
  }

  /// Materials with less area in the result than in the scene. None has more.
  std::size_t missing_in(const NodePtr& result) const {
    std::vector<NodePtr> merged;
    for (const NodePtr& node : geometry_nodes(result))
      if (std::find(moving.begin(), moving.end(), node) == moving.end()) merged.push_back(node);
    return missing(measure_of(merged));
  }

  const plant& scene;
  const test::surface_measure whole;
  std::vector<NodePtr> moving;
  std::vector<::osg::Matrix> places;

 private:
  std::size_t missing(const test::surface_measure& part) const {
    std::size_t fewer = 0;
    for (const auto& [material, area] : whole.area_of_material) {
      const auto found = part.area_of_material.find(material);
      const double left = found == part.area_of_material.end() ? 0 : found->second;
      EXPECT_LE(left, area * (1 + 1e-4));
      fewer += left < area * (1 - 1e-4);
    }
    return fewer;
  }
};

constexpr const char* cache_line = "Error occured in morlu_osg_cacheopt.\n";

/// Told in the words for what was thrown, whoever told it; or so little was missing that nobody had
/// to. Of a block that can't grow, it is memory in any case.
void expect_told_rightly(const std::string& err, test::failure kind) {
  constexpr const char* words[] = {"std::bad_alloc", "xception in ", "Error occured in "};
  const auto says = [&](const char* word) { return err.find(word) != std::string::npos; };
  EXPECT_TRUE(err.empty() || says(words[0]) || says(words[static_cast<int>(kind)]) ||
              err == cache_line)
      << err;
}

/// Of a request that fails in a worker, one group may be missing; once all are merged, or where
/// nobody tells of it, none.
void expect_end(const failure_checks& checks, const outcome& done, bool in_worker) {
  EXPECT_TRUE(done.out.ends_with("done.\n"));
  checks.expect_source_kept();
  checks.expect_moved_or_not(done.result, done.err.empty());
  if (!done.result) return;
  const std::size_t missing = checks.missing_in(done.result);
  const bool from_merge = done.err.find(" in geomerge") != std::string::npos;
  if (done.err.empty() || done.err == cache_line ||
      (from_merge && done.has_reached("Done merging"))) {
    EXPECT_EQ(missing, 0u) << done.err;
  } else if (in_worker || !from_merge) {
    EXPECT_LE(missing, 1u) << done.err;
  }
}

/// Makes one request for memory fail, in one merge after the other: each of the first `in_full`,
/// then fewer. Counts what is told.
template <class Make>
void fail_one_by_one(int numthreads, bool in_worker, int in_full, const Make& make,
                     std::map<std::string, unsigned>& told) {
  unsigned round = 0;
  for (int nth = 0;; nth += 1 + nth / in_full, ++round) {
    SCOPED_TRACE(std::to_string(nth) + (in_worker ? " of workers" : "") + ", threads " +
                 std::to_string(numthreads));
    mergeGeo_setup setup;
    const plant scene = make(setup, round);
    const failure_checks checks(scene);
    setup.keeprenderfalse = true;
    setup.idmap = "ids";
    setup.numthreads = numthreads;
    const auto kind = in_worker ? static_cast<test::failure>(round % 3) : test::failure{};
    const outcome done = merged_with_failure(scene.root, setup, nth, in_worker, kind);
    expect_told_rightly(done.err, kind);
    expect_end(checks, done, in_worker);
    EXPECT_EQ(checks.missing_in(merged(scene.root, setup)), 0u) << "in the next merge";
    ++told[done.err];
    if (!done.met) return;
  }
}

TEST(MergeGeo, EndsWhateverFails) {
  std::map<std::string, unsigned> told;
  const auto make = [](mergeGeo_setup& setup, unsigned round) {
    setup.cacheopt = round % 2;
    setup.mergehierarchy = round % 5 == 0;
    return plant(6, 8);
  };
  for (const int numthreads : {1, 2, 4, 64}) {
    fail_one_by_one(numthreads, false, 30, make, told);
    if (numthreads > 1) fail_one_by_one(numthreads, true, 30, make, told);
  }
  for (const char* line :
       {"bad_alloc caught in geomerge: std::bad_alloc\n",
        "Standard exception in geomerge: no good\n", "Error occured in geomerge.\n"})
    EXPECT_GT(told[line], 20u) << line;
}

/// Geometry that cache order has to split comes out whole or as it went in.
TEST(MergeGeo, LosesNothingToCacheOrder) {
  std::map<std::string, unsigned> told;
  const auto make = [](mergeGeo_setup& setup, unsigned) {
    setup.cacheopt = true;
    plant scene(1, 1);
    const GeometryPtr core = geometry_of(scene.parts[0]);
    const auto indices = core->getIndices();
    for (unsigned i = 0; indices->size() % 3 != 0 || indices->size() < 66000; ++i)
      indices->push_back(indices->getValue(i));
    core->getLengths()->setValue(indices->size(), 0);
    return scene;
  };
  fail_one_by_one(1, false, 3, make, told);
  fail_one_by_one(2, true, 3, make, told);
  EXPECT_GT(told[cache_line], 5u);
}

}  // namespace
}  // namespace morlu::tests
