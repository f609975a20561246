// Geometry in pieces: all of it is still there, nothing else has changed, and pieces are within the
// limit.

#include <gtest/gtest.h>
#include <osg/geometry_tools.h>
#include <osg/scene_file_handler.h>

#include <algorithm>
#include <list>
#include <set>

#include "finishing/core_building.h"
#include "finishing/rebuild.h"
#include "morlu/finishing.h"
#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "optimiser/plant_scene.h"
#include "optimiser/scene_queries.h"
#include "osg/io/model_files.h"
#include "primitives/node_walk.h"
#include "support/failing_memory.h"
#include "support/model_truth.h"
#include "support/random_geometry.h"
#include "support/said.h"
#include "support/same_surface.h"
#include "support/scene_parts.h"
#include "support/scene_text.h"
#include "support/surface_measure.h"

namespace morlu::tests {
namespace {

using ::osg::GeometryPtr;
using ::osg::NodePtr;
using test::said;

constexpr unsigned few_triangles = 12, few_indices = 60, few_elements = 10;
constexpr float small_share = 0.01f;

GeometryPtr geometry_of(const NodePtr& node) {
  return ::osg::Geometry::dcast(node->getCore());
}
std::vector<NodePtr> geometry_nodes(const NodePtr& root) {
  std::list<NodePtr> found;
  osg::collect_geo_nodes(root, found);
  return {found.begin(), found.end()};
}
unsigned indices_of(const NodePtr& node) {
  const auto indices = geometry_of(node)->getIndices();
  return indices ? indices->size() : 0;
}
osg::element_counts usable(const NodePtr& node) {
  return osg::usable_elements(*geometry_of(node));
}

/// One way to split, what its pieces are to keep to, and whether normals stay.
struct way {
  const char* name;
  void (*split)(const NodePtr& root, int level);
  bool (*is_within)(const NodePtr& piece);
  test::normals normals = test::normals::left_out;
  bool parts_lines = false;
};
bool has_few_indices(const NodePtr& piece) {
  return indices_of(piece) <= few_indices || usable(piece).sum() < few_elements;
}
bool can_be_halved(const NodePtr& piece) {
  osg::rebuilt from;
  return osg::rebuild(piece, {1, 1, 3, 1.0f, 2.0f, 0.95f, false}, from) &&
         osg::SplitmodelParts(from.tree, from.set, 0, 2, {}, 1, true)->getNChildren() == 2;
}
const way ways[] = {
    {"triangles",
     [](const NodePtr& root, int level) {
       osg::split_Geometries(root, few_triangles, false, level);
     },
     [](const NodePtr& piece) { return usable(piece).triangles <= few_triangles; }},
    {"triangles, all",
     [](const NodePtr& root, int level) {
       osg::split_Geometries(root, few_triangles, true, level);
     },
     [](const NodePtr& piece) { return usable(piece).triangles <= few_triangles; }},
    {"indices",
     [](const NodePtr& root, int level) { osg::maxGeoIndexSize(root, few_indices, level, false); },
     has_few_indices, test::normals::compared, true},
    {"indices, all",
     [](const NodePtr& root, int level) {
       osg::split_GeometriesByIndex(root, few_indices, true, level);
     },
     has_few_indices, test::normals::left_out, true},
    {"share",
     [](const NodePtr& root, int level) { osg::check_and_split(root, small_share, ~0u, 3, level); },
     [](const NodePtr& piece) {
       NodePtr root = piece;
       while (root->getParent()) root = root->getParent();
       ::osg::DynamicVolume all, own;
       root->getWorldVolume(all);
       piece->getWorldVolume(own);
       const auto size = own.getMax() - own.getMin(), whole = all.getMax() - all.getMin();
       return size[0] / whole[0] <= small_share || !can_be_halved(piece);
     }},
};

/// Returns what was said.
said split(const NodePtr& root, const way& how, int level = 1) {
  said text;
  how.split(root, level);
  text.end();
  return text;
}

/// Where things are, and all that corners show, in an order that splits don't change.
struct content {
  test::surface_measure measure;
  test::surface corners;

  explicit content(const NodePtr& root, test::normals normals = test::normals::left_out) {
    for (const NodePtr& node : geometry_nodes(root)) {
      measure.add(geometry_of(node), osg::getEffectiveMaterial(node), node->getToWorld(),
                  [](const auto&...) { return false; });
      const auto own = test::surface_of(geometry_of(node), normals);
      const auto append = [](auto& to, const auto& from) {
        to.insert(to.end(), from.begin(), from.end());
      };
      append(corners.triangles, own.triangles);
      append(corners.lines, own.lines);
      append(corners.points, own.points);
    }
    std::sort(corners.lines.begin(), corners.lines.end());
    std::sort(corners.points.begin(), corners.points.end());
  }
};

void expect_same(const content& before, const content& after) {
  test::expect_same_measure(before.measure, after.measure, 1e-5);
  test::expect_same_triangles(before.corners, after.corners);
}

TEST(SizeSplit, KeepsAllWithinTheLimit) {
  for (const way& how : ways)
    for (int level = 0; level < 4; ++level) {
      SCOPED_TRACE(std::string(how.name) + ", level " + std::to_string(level));
      const plant scene(static_cast<unsigned>(level), 40);
      const std::size_t nodes = geometry_nodes(scene.root).size();
      for (const NodePtr& node : geometry_nodes(scene.root))  // sets would make some
        if (!geometry_of(node)->getNormals()) ::osg::calcVertexNormals(geometry_of(node));
      const content before(scene.root, how.normals);
      split(scene.root, how, level);
      expect_same(before, content(scene.root, how.normals));
      const auto pieces = geometry_nodes(scene.root);
      EXPECT_GT(pieces.size(), nodes * 3 / 2);
      for (const NodePtr& piece : pieces) {
        const auto held = usable(piece);
        const bool can_be_parted = how.parts_lines || held.lines + held.points == 0;
        EXPECT_TRUE(how.is_within(piece) || !can_be_parted) << held.sum();
      }
    }
}

/// Equal scenes give equal results.
TEST(SizeSplit, IsTheSameEachTime) {
  for (const way& how : ways) {
    std::string texts[2];
    for (std::string& text : texts) {
      const plant scene(9, 30);
      split(scene.root, how);
      osg::for_each_node(scene.root, [](const NodePtr& node) {
        ::osg::setName(node, "");  // running numbers
        ::osg::setName(node->getCore(), "");
      });
      text = support::scene_text(scene.root);
    }
    EXPECT_EQ(texts[0] == texts[1], true) << how.name;
  }
}

GeometryPtr large_patch(unsigned seed, const ::osg::MaterialPtr& material = {}) {
  std::mt19937 random(seed);
  for (;;)
    if (const auto made = patch(random, material); made->getIndices()->size() > 100) return made;
}

/// What a node has beside its geometry goes over to what stands for it, and a core that several
/// show is split once.
TEST(SizeSplit, KeepsNamesMasksNotesChildrenAndSharing) {
  for (const way& how : ways) {
    SCOPED_TRACE(how.name);
    const GeometryPtr shared = large_patch(3);
    shared->setAttachmentField("note", "core");
    const NodePtr root = node_with(::osg::Group::create());
    std::vector<NodePtr> nodes;
    for (const char* name : {"a", "b", "c"}) {
      nodes.push_back(node_with(shared, name));
      nodes.back()->setTravMask(6);
      nodes.back()->setAttachmentField("note", name);
      root->addChild(nodes.back());
    }
    const NodePtr child = node_with(large_patch(4), "child");
    nodes[1]->addChild(child);
    const std::set<::osg::NodeCorePtr> old{shared, child->getCore()};
    split(root, how);
    ASSERT_EQ(root->getNChildren(), 3u);
    std::set<::osg::NodeCorePtr> cores;
    std::size_t pieces = 0;
    for (const NodePtr& stands : root->getChildren()) {
      EXPECT_EQ(stands->getTravMask(), 6u);
      EXPECT_EQ(stands->getAttachmentField("note"), ::osg::getName(stands));
      EXPECT_EQ(stands == nodes[1], stands->getAttachmentField("note") == "b");
      for (const NodePtr& piece : geometry_nodes(stands)) {
        EXPECT_FALSE(old.contains(piece->getCore()));
        if (geometry_of(piece)->getAttachmentField("note") != "core") continue;
        ++pieces;
        cores.insert(piece->getCore());
      }
    }
    EXPECT_GT(cores.size(), 1u);
    // The first by a level of its own, and some a second time.
    EXPECT_EQ(pieces == 3 * cores.size(), std::string(how.name) != "indices, all");
    EXPECT_TRUE(nodes[1]->getNChildren() > 1);
  }
}

TEST(SizeSplit, LeavesANodeWithoutParentInItsPlace) {
  for (const way& how : ways) {
    const NodePtr node = node_with(large_patch(5), "top");
    const content before(node, how.normals);
    split(node, how);
    const bool needs_parent = std::string(how.name) == "indices, all";
    EXPECT_EQ(geometry_nodes(node).size() > 1, !needs_parent) << how.name;
    EXPECT_STREQ(::osg::getName(node), "top");
    expect_same(before, content(node, how.normals));
  }
}

TEST(SizeSplit, TakesLimitsAsTheyAreSaid) {
  const auto pieces_of = [](const auto& apply, const GeometryPtr& geometry = large_patch(6)) {
    const NodePtr root = node_with(::osg::Group::create());
    root->addChild(node_with(geometry, "patch"));
    said text;
    apply(root, root->getChild(0));
    text.end();
    return geometry_nodes(root).size();
  };
  const unsigned triangles = large_patch(6)->getIndices()->size() / 3, indices = 3 * triangles;
  using node = const NodePtr&;
  EXPECT_EQ(pieces_of([&](node r, node) { osg::split_Geometries(r, triangles, false, 1); }), 1u);
  EXPECT_EQ(pieces_of([&](node r, node) { osg::split_Geometries(r, triangles - 1, false, 1); }),
            2u);
  EXPECT_EQ(pieces_of([](node r, node) { osg::split_Geometries(r, 0, false, 1); }), triangles);
  EXPECT_EQ(pieces_of([](node r, node) { osg::check_and_split(r, 0, 0, 3, 1); }), 1u);
  EXPECT_EQ(pieces_of([](node r, node) { osg::check_and_split(r, 0, 1, 3, 1); }), 1u);
  EXPECT_EQ(pieces_of([](node r, node) { osg::check_and_split(r, 0.5f, 2, 3, 1); }), 2u);
  EXPECT_EQ(pieces_of([](node r, node) { osg::check_and_split(r, 1, 9, 3, 1); }), 1u);
  EXPECT_EQ(pieces_of([](node r, node) { osg::check_and_split(r, NAN, 9, 3, 1); }), 1u);
  const ::osg::Pnt3f side_by_side[] = {{0, 0, 0}, {20, 0, 0}, {0, 1, 0},
                                       {0, 1, 0}, {20, 1, 0}, {0, 2, 0}};
  const GeometryPtr long_ones = ::triangles(side_by_side);
  EXPECT_EQ(pieces_of([](node r, node) { osg::check_and_split(r, 0.5f, 9, 3, 1); }, long_ones), 1u);
  for (const int strategy : {1, 2, 3})
    EXPECT_GT(pieces_of([=](node r, node) { osg::check_and_split(r, 0, 9, strategy, 1); }), 4u);
  EXPECT_EQ(pieces_of([&](node r, node) { osg::split_GeometriesByIndex(r, indices, false, 1); }),
            1u);
  for (const unsigned most : {indices, indices - 1, 0u}) {
    unsigned splits = 0;
    const std::size_t pieces = pieces_of([&](node r, node child) {
      const bool by_node = most % 2;
      splits = osg::maxGeoIndexSize(by_node ? child : r, most, 1, true);
    });
    EXPECT_EQ(splits + 1, pieces) << most;
    EXPECT_EQ(splits > 0, most < indices) << most;
  }
}

TEST(SizeSplit, SaysWhatItDoes) {
  constexpr const char* corrected =
      "morlu::osg::split_GeometriesByIndex: OptLevel set to 1. Range [1-3].\n";
  for (const int level : {-1, 0, 1, 3, 4}) {
    const NodePtr root = node_with(::osg::Group::create());
    for (int i = 0; i < 2; ++i) root->addChild(node_with(::osg::Group::create()));
    said text;
    osg::split_GeometriesByIndex(root, 10, false, level);
    text.end();
    EXPECT_EQ(text.out, level < 1 || level > 3 ? corrected : "");
    EXPECT_EQ(text.err, "");
  }
  const NodePtr root = node_with(::osg::Group::create());
  root->addChild(node_with(large_patch(8), "stubborn"));
  geometry_of(root->getChild(0))->getLengths()->setValue(9, 0);  // three triangles, all indices
  said text;
  EXPECT_EQ(osg::maxGeoIndexSize(root, 5, 1, false), 1u);  // fewer indices, no two pieces
  osg::maxGeoIndexSize(root, 5, 1, false);
  text.end();
  const std::string merge = "Found 1 different Materials.\n\rDone merging.        \n";
  EXPECT_EQ(text.out, merge + merge + merge);
  EXPECT_NE(text.err.find("morlu::osg::maxGeoIndexSize: 'MG_"), std::string::npos) << text.err;
  EXPECT_EQ(std::count(text.err.begin(), text.err.end(), '\n'), 2) << text.err;
}

TEST(SizeSplit, PassesOverWhatHasNothingToSplit) {
  for (const way& how : ways) {
    SCOPED_TRACE(how.name);
    split({}, how);
    split(::osg::Node::create(), how);
    const NodePtr root = node_with(::osg::Group::create());
    root->addChild(node_with(::osg::Geometry::create()));
    const GeometryPtr unusable = large_patch(1), skipped = large_patch(2);
    unusable->getPositions()->resize(0);
    for (::osg::Pnt3f& each : ::osg::GeoPositions3f::dcast(skipped->getPositions())->values())
      each[1] = NAN;
    for (const auto& core : {unusable, skipped}) root->addChild(node_with(core));
    const std::string before = support::scene_text(root);
    split(root, how);
    EXPECT_EQ(support::scene_text(root), before);
  }
  said text;
  EXPECT_EQ(osg::optGeometry({}, 0, 1)->getNChildren(), 0u);
  EXPECT_GT(geometry_nodes(osg::optGeometry(large_patch(7), few_triangles, 1)).size(), 1u);
  text.end();
}

/// All kinds of primitive, layouts and faults: what is usable stays, in its place.
TEST(SizeSplit, KeepsWhatIsUsableOfAnyGeometry) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    const way& how = ways[seed % std::size(ways)];
    SCOPED_TRACE("seed " + std::to_string(seed) + ", " + how.name);
    std::mt19937 random(seed);
    const NodePtr root = node_with(::osg::Group::create());
    for (const auto kind : {test::layout::none, test::layout::single, test::layout::multi})
      root->addChild(node_with(test::random_geometry(random, kind), "random"));
    const auto sum = [&] {
      osg::element_counts all;
      for (const NodePtr& node : geometry_nodes(root)) {
        const auto own = usable(node);
        all = {all.triangles + own.triangles, all.lines + own.lines, all.points + own.points};
      }
      return all;
    };
    const auto before = sum();
    split(root, how);
    EXPECT_TRUE(sum().holds(before) && before.holds(sum()));
  }
}

/// Chains deeper than a thread's stack, and groups in which no step may look at all children.
TEST(SizeSplit, GoesThroughDeepAndWideScenes) {
  for (const way& how : ways) {
    NodePtr deep = node_with(large_patch(2));
    for (int i = 0; i < 100000; ++i) {
      const NodePtr above = node_with(::osg::Group::create());
      above->addChild(deep);
      deep = above;
    }
    const NodePtr wide = node_with(::osg::Group::create());
    const GeometryPtr shared = large_patch(3), small = large_patch(2);
    small->getLengths()->setValue(6, 0);
    for (int i = 0; i < 100000; ++i) wide->addChild(node_with(i % 40 ? small : shared));
    split(deep, how);
    split(wide, how);
    std::list<NodePtr> found;
    osg::collect_geo_nodes(deep, found);
    EXPECT_GT(found.size(), 1u) << how.name;
    EXPECT_EQ(wide->getNChildren(), 100000u) << how.name;
  }
}

/// Remembers whether a request has failed, however the split ends.
struct at_end {
  bool& met;
  const test::failing_memory& fails;
  ~at_end() { met = fails.met(); }
};

TEST(SizeSplit, LosesNothingWhereMemoryFails) {
  for (const way& how : ways) {
    bool met = true;
    for (int nth = 0; met; nth += 1 + nth / 12) {
      SCOPED_TRACE(std::string(how.name) + ", request " + std::to_string(nth));
      const plant scene(1, 4);
      scene.root->getChild(1)->getChild(0)->addChild(node_with(large_patch(3)));
      const content before(scene.root);
      said text;
      try {
        const test::failing_memory fails(nth);
        const at_end ends{met, fails};
        how.split(scene.root, 1);
      } catch (const std::bad_alloc&) {
      }
      text.end();
      expect_same(before, content(scene.root));
      if (HasFailure()) return;
    }
  }
}

class SplitModel : public testing::TestWithParam<std::string> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(SplitModel);

TEST_P(SplitModel, HasTheSameSurface) {
  ::osg::io::registerModelFormats();
  const auto read =
      ::osg::SceneFileHandler::the().read((support::models_folder() / GetParam()).string());
  ASSERT_TRUE(read) << read.error;
  const auto measure = [&] {
    test::surface_measure all;
    for (const NodePtr& node : geometry_nodes(read.root))
      all.add(geometry_of(node), osg::getEffectiveMaterial(node), node->getToWorld(),
              osg::is_rogue);
    all.area_of_id.clear();
    return all;
  };
  const auto before = measure();
  said text;
  osg::split_Geometries(read.root, 2000, false, 1);
  osg::check_and_split(read.root, 0.3f, 8, 3, 1);
  osg::maxGeoIndexSize(read.root, 4000, 1, false);
  text.end();
  EXPECT_EQ(measure().triangles, before.triangles);
  test::expect_same_measure(before, measure(), 1e-3);
}

INSTANTIATE_TEST_SUITE_P(All, SplitModel,
                         testing::ValuesIn(support::models_with({".obj", ".ply", ".stl", ".glb",
                                                                 ".gltf"})),
                         [](const auto& model) { return support::test_name(model.param); });

}  // namespace
}  // namespace morlu::tests
