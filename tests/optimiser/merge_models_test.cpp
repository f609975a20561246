// Merges of real models and of a generated assembly: the same surface in each material, in the same
// place.

#include <gtest/gtest.h>
#include <osg/scene_file_handler.h>

#include <list>

#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "optimiser/scene_queries.h"
#include "osg/io/model_files.h"
#include "sample/sample_assembly.h"
#include "support/model_truth.h"
#include "support/said.h"
#include "support/surface_measure.h"

namespace morlu::tests {
namespace {

using osg::mergeGeo_setup;
using ::osg::NodePtr;

test::surface_measure measure(const NodePtr& root) {
  test::surface_measure all;
  std::list<NodePtr> nodes;
  osg::collect_geo_nodes(root, nodes);
  for (const NodePtr& node : nodes)
    if (node->getTravMask() != 0)
      all.add(::osg::Geometry::dcast(node->getCore()), osg::getEffectiveMaterial(node),
              node->getToWorld(), osg::is_rogue);
  all.area_of_id.clear();
  return all;
}

/// Pieces of 5000, of 50 in cache order, and a group for each material on two threads.
std::vector<std::pair<unsigned, mergeGeo_setup>> settings() {
  std::vector<std::pair<unsigned, mergeGeo_setup>> all(3);
  for (auto& [leaf_size, setup] : all) {
    leaf_size = 5000;
    setup.silent = true;
    setup.optimizetc = 0;  // no cuts
  }
  all[1].first = 50;
  all[1].second.cacheopt = true;
  all[2].second.mergehierarchy = true;
  all[2].second.numthreads = 2;
  all[2].second.opt = 2;
  return all;
}

void expect_same_after_merges(const NodePtr& root) {
  const auto before = measure(root);
  for (const auto& [leaf_size, setup] : settings()) {
    kd_build_setup kd;
    kd.leaf_size = leaf_size;
    kd.max_depth = 100;
    mergeGeo_setup with_transparent = setup;
    with_transparent.alphageometry = true;  // else it moves out of the source
    test::said text;
    const NodePtr result = osg::mergeGeo(root, kd, with_transparent);
    text.end();
    EXPECT_EQ(text.err, "");
    const auto after = measure(result);
    EXPECT_EQ(after.triangles, before.triangles);
    test::expect_same_measure(before, after, 1e-3);
  }
}

class MergedModel : public testing::TestWithParam<std::string> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(MergedModel);

TEST_P(MergedModel, HasTheSameSurface) {
  ::osg::io::registerModelFormats();
  const auto read =
      ::osg::SceneFileHandler::the().read((support::models_folder() / GetParam()).string());
  ASSERT_TRUE(read) << read.error;
  expect_same_after_merges(read.root);
}

INSTANTIATE_TEST_SUITE_P(All, MergedModel,
                         testing::ValuesIn(support::models_with({".obj", ".ply", ".stl", ".dae",
                                                                 ".3ds", ".gltf", ".glb"})),
                         [](const auto& model) { return support::test_name(model.param); });

TEST(MergedAssembly, HasTheSameSurface) {
  expect_same_after_merges(sample::make_sample_assembly({.parts = 1000}));
}

}  // namespace
}  // namespace morlu::tests
