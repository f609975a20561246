// The whole optimisation: stages by option, what is said, and who has the input afterwards.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <list>
#include <nlohmann/json.hpp>

#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "optimiser/id_map_handler.h"
#include "optimiser/plant_scene.h"
#include "osg/attachment.h"
#include "primitives/primitive_count.h"
#include "support/failing_memory.h"
#include "support/said.h"
#include "support/scene_text.h"
#include "support/temp_folder.h"

namespace morlu::tests {
namespace {

using ::osg::NodePtr;
using test::said;

std::vector<NodePtr> geometry_nodes(const NodePtr& root) {
  std::list<NodePtr> found;
  osg::collect_geo_nodes(root, found);
  return {found.begin(), found.end()};
}

/// Works in a folder of its own, since id maps go to the working directory.
class OptTree : public testing::Test {
 protected:
  ~OptTree() override { std::filesystem::current_path(former_); }

  NodePtr run(const NodePtr& node, const std::string& params) {
    said text;
    const NodePtr result = osg::optTree(node, params);
    text.end();
    out = text.out;
    err = text.err;
    return result;
  }

  std::string out, err;

 private:
  const std::filesystem::path former_ = std::filesystem::current_path();
  const support::TempFolder folder_;

 protected:
  OptTree() { std::filesystem::current_path(folder_); }
};

std::string block(const std::string& idmap, int cacheopt, int flat) {
  return "Cacheopt:       " + std::to_string(cacheopt) +
         "\nCalcNormals:    0\nFlat:           " + std::to_string(flat) + "\nIDMAP:          \"" +
         idmap +
         "\"\nOPT:            1\nOptimizeTC:     2\nTexCoords:      2\nToWorld:        1\n"
         "VertexColor:    -1\nAddColorsTex:   0\ndeleteUnusedTC: 1\nmergeSameName:  0\n"
         "alphaGeometry:  0\nignoreMaterial: 0\nkeepRenderFalse:0\n";
}

TEST_F(OptTree, SaysItsStagesInOrder) {
  const plant scene(1, 20);
  run(scene.root, "maxtris(5000),cacheopt(1),flat(0),idmap(car)");
  EXPECT_EQ(out, "Optimizing Tree...\n" + block("car", 0, 0) +
                     "Merge Geometry. Cacheopt: 0\nFound 3 different Materials.\n"
                     "\rDone merging.        \n"
                     "Building Scene Hierarchy for final scenegraph...\ndone.\n"
                     "Write IDmap with 20 names.\n");
  EXPECT_EQ(err, "");

  run(plant(1, 5).root, "help(),maxtris(10),cacheopt(1)");
  EXPECT_TRUE(out.starts_with("Optimizing Tree...\nAvailable parameters are: \n" +
                              osg::optTreeDoc() + block("", 1, 1) +
                              "Merge Geometry. Cacheopt: 1\nMerging Geometry with "))
      << out;
}

TEST_F(OptTree, RunsWithoutAMergeUnlessAskedToMerge) {
  for (const char* params : {"opt(2)", "help", "maxtris(0)", "maxtris(x)"}) {
    const plant scene(2, 8);
    EXPECT_EQ(run(scene.root, params), scene.root) << params;
    EXPECT_EQ(out.find("Merge Geometry"), std::string::npos);
  }
  EXPECT_FALSE(run({}, "maxtris(10)"));
}

TEST_F(OptTree, GivesTheInputBackToItsParent) {
  const NodePtr parent = node_with(::osg::Group::create());
  const plant scene(3, 10);
  parent->addChild(scene.root);
  const NodePtr result = run(scene.root, "maxtris(5000)");
  EXPECT_NE(result, scene.root);
  EXPECT_FALSE(result->getParent());
  EXPECT_EQ(scene.root->getParent(), parent);
  EXPECT_NE(run(scene.root, ""), scene.root);
  EXPECT_EQ(parent->getNChildren(), 0u) << "the automated way keeps it";
}

// Memory fails at each request in turn, until there are no more.
TEST_F(OptTree, GivesTheInputBackWhateverStageFails) {
  for (const std::string params : {"flat(0)", "maxtris(50),flat(0),idmap(car),idmapinroot(1)"}) {
    unsigned thrown = 0;
    bool is_reached = true;
    for (int nth = 0; is_reached; ++nth) {
      SCOPED_TRACE(params + ' ' + std::to_string(nth));
      const NodePtr parent = node_with(::osg::Group::create());
      const plant scene(3, 4);
      parent->addChild(scene.root);
      const std::size_t geometries = geometry_nodes(scene.root).size();
      const auto done = test::with_failing_memory(nth, [&] { osg::optTree(scene.root, params); });
      is_reached = done.met;
      thrown += done.thrown;
      ASSERT_EQ(scene.root->getParent(), parent);
      ASSERT_EQ(parent->getNChildren(), 1u);
      if (done.thrown && params == "flat(0)") {
        ASSERT_EQ(geometry_nodes(scene.root).size(), geometries);
      }
    }
    EXPECT_GT(thrown, 0u);
  }
}

TEST_F(OptTree, RemovesAlternativesAndPlacesTheResult) {
  const plant scene(3, 3);
  for (const ::osg::NodeCorePtr& core :
       std::vector<::osg::NodeCorePtr>{::osg::DistanceLOD::create(), ::osg::Switch::create()}) {
    const NodePtr alternatives = node_with(core);
    for (const NodePtr& part : {scene.parts[0], scene.parts[1]})
      alternatives->addChild(node_with(part->getCore(), "alternative"));
    scene.root->addChild(alternatives);
  }
  const std::string params = "removelod(1),removeswitch(1),centerBB(3)";
  EXPECT_TRUE(osg::takesGeometryAway("removelod(1)") && osg::takesGeometryAway("removeswitch(1)"));
  EXPECT_FALSE(osg::takesGeometryAway("centerBB(3)"));
  const std::size_t geometries = geometry_nodes(scene.root).size();
  for (const char* further : {"", ",maxtris(50),alphageometry(1)"}) {
    const NodePtr result = run(scene.root, params + further);
    EXPECT_NE(out.find("keepRenderFalse:0\nRemoving LOD parts.\nRemoving Switch parts.\n"),
              out.npos);
    EXPECT_EQ(err, "");
    EXPECT_EQ(geometry_nodes(scene.root).size(), geometries - 3) << "one of two, none of two";
    if (result == scene.root) continue;  // whose transforms stay
    ::osg::DynamicVolume box;
    result->getWorldVolume(box);
    float widest = 0;
    for (unsigned axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(box.getMin()[axis], -1.5f, 1e-5f);
      widest = std::max(widest, box.getMax()[axis]);
    }
    EXPECT_NEAR(widest, 1.5f, 1e-5f);
  }
}

TEST_F(OptTree, SamplesPacksAndReducesBeforeItMerges) {
  const NodePtr parent = node_with(::osg::Group::create());
  const plant scene(5, 12);
  parent->addChild(scene.root);
  const NodePtr result = run(scene.root,
                             "maxtris(40),maxtexturesize(64),buildhullwithcolors(1),buildhull(1),"
                             "ambientocclusion(2),ambientgutout(1)");
  const std::string stages[] = {"keepRenderFalse:0\nGut out model with ambient occlusion\n",
                                "\rdone. Removed 0 geometries with 0 primitives.\n",
                                "Adding ambient occlusion\nPrepare Geoset: \n",
                                "Calc Ambient Occlusion: \n",
                                "\rdone.\n",
                                "Found 1 different Materials.\n",
                                "GeoNodes: ",
                                "0 solid images collected for texture atlas.\n",
                                "0 transparent images processed.\n",
                                "Merge Geometry. Cacheopt: 1\n"};
  std::size_t at = 0;
  for (const std::string& stage : stages) {
    const std::size_t next = out.find(stage, at);
    ASSERT_NE(next, out.npos) << stage << "--- not in\n" << out.substr(at);
    at = next + stage.size();
  }
  EXPECT_EQ(err, "");

  // The hull stands where the input did.
  ASSERT_EQ(parent->getNChildren(), 1u);
  EXPECT_NE(parent->getChild(0), scene.root);
  EXPECT_FALSE(scene.root->getParent());
  unsigned elements = 0;
  for (const NodePtr& node : geometry_nodes(result))
    elements += ::morlu::count_primitives(*::osg::Geometry::dcast(node->getCore()));
  EXPECT_GT(elements, 0u);
  EXPECT_LT(elements, 40u);
}

TEST_F(OptTree, MakesOneGeometryOfOneMaterial) {
  const plant scene(4, 40);
  const NodePtr result = run(scene.root, "onegeometry(1)");
  unsigned with_triangles = 0;
  for (const NodePtr& node : geometry_nodes(result))
    with_triangles +=
        ::osg::Geometry::dcast(node->getCore())->getTypes()->getValue(0) == ::osg::kTriangles;
  EXPECT_EQ(with_triangles, 1u);
  EXPECT_NE(out.find("alphaGeometry:  1\n"), std::string::npos);
}

/// What hangs where in the world, whatever is above it.
std::multiset<std::string> placed(const NodePtr& root) {
  std::multiset<std::string> all;
  for (const NodePtr& node : geometry_nodes(root)) {
    std::string text = std::to_string(node->getCore()->getSerial());
    for (::osg::UInt32 i = 0; i < 16; ++i) text += ' ' + std::to_string(node->getToWorld()[i]);
    all.insert(text);
  }
  return all;
}

TEST_F(OptTree, BuildsAHierarchyOfGroups) {
  const plant scene(5, 30);
  for (const NodePtr& node : scene.hidden) node->getParent()->subChild(node);
  const auto before = placed(scene.root);
  const NodePtr result = run(scene.root, "flat(false)");
  EXPECT_EQ(placed(result), before);
  EXPECT_TRUE(geometry_nodes(scene.root).empty());
  for (const NodePtr& node : result->getChildren()) EXPECT_GT(node->getNChildren(), 0u);
  EXPECT_LE(result->getNChildren(), 2u);

  // what is hidden in a merged scene goes along
  const plant other(6, 30);
  const NodePtr merged = run(other.root, "maxtris(50),flat(0),keeprenderfalse(1)");
  unsigned hidden = 0;
  for (const NodePtr& node : geometry_nodes(merged)) hidden += node->getTravMask() == 0;
  EXPECT_EQ(hidden, 2u);
}

TEST_F(OptTree, WritesTheIdMapAndHangsItOnTheRoot) {
  const plant scene(7, 12);
  const NodePtr result = run(scene.root, "maxtris(500),idmap(car),idmapinroot(1),prefix(p)");
  std::ifstream file("car.json");
  const auto json = nlohmann::json::parse(file);
  EXPECT_EQ(json["numberOfIDs"], 12);
  EXPECT_EQ(json["mapping"].size(), 12u);
  EXPECT_EQ(json["tree"]["name"], "plant");
  for (unsigned binding = 1; binding <= 6; ++binding)
    EXPECT_TRUE(result->findAttachment(::osg::StringAttributeMap::getClassType(),
                                       static_cast<::osg::UInt16>(binding)))
        << binding;

  const NodePtr again = run(plant(7, 12).root, "maxtris(500),idmapinroot(1)");
  EXPECT_NE(out.find("IDMAP:          \"metaOnly\"\n"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists("metaOnly.json"));
  EXPECT_EQ(osg::getIdMapHandler().names().size(), 12u);
  EXPECT_TRUE(osg::getIdMapHandler().merged);
}

}  // namespace
}  // namespace morlu::tests
