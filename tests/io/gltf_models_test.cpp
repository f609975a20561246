// Every glTF model that stands beside the tree: read against its ground truth, which no 3D library
// had a part in, and written and read again without a difference.
#include <gtest/gtest.h>

#include <fstream>

#include "osg/io/model_files.h"
#include "support/model_truth.h"
#include "support/scene_text.h"
#include "support/temp_folder.h"

namespace {

using support::count_scene;
using support::SceneCounts;

std::vector<std::string> gltf_models() {
  return support::models_with({".gltf", ".glb"});
}

class GltfModel : public testing::TestWithParam<std::string> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(GltfModel);

TEST_P(GltfModel, IsReadAsItIs) {
  const nlohmann::json expected = support::model_truth()[GetParam()];
  const auto read = osg::io::readGltf((support::models_folder() / GetParam()).string());
  ASSERT_TRUE(read) << read.error;
  const SceneCounts counts = count_scene(read.root);
  support::expect_truth(counts, expected);
  // Several entries for one file are one image.
  std::set<std::string> files;
  std::size_t embedded = 0;
  for (const auto& image : expected["images"])
    if (image["name"] == "(embedded)")
      ++embedded;
    else
      files.insert(image["name"]);
  EXPECT_EQ(counts.images.size(), embedded + files.size());
  std::multiset<std::pair<int, int>> sizes;
  for (const osg::ImagePtr& image : counts.images)
    sizes.insert({image->getWidth(), image->getHeight()});
  for (const auto& image : expected["images"])
    EXPECT_TRUE(sizes.count({image["width"], image["height"]}) > 0) << image;
}

TEST_P(GltfModel, ComesBackFromEitherForm) {
  const auto read = osg::io::readGltf((support::models_folder() / GetParam()).string());
  ASSERT_TRUE(read) << read.error;
  const std::string before = support::scene_text(read.root);
  for (const char* suffix : {".glb", ".gltf"}) {
    const support::TempFolder folder;
    const std::string file = (folder / (std::string("a scene%41") + suffix)).string();
    const auto written = osg::io::writeGltf(read.root, file);
    ASSERT_TRUE(written) << written.error;
    EXPECT_TRUE(written.warnings.empty()) << written.warnings[0];
    const auto again = osg::io::readGltf(file);
    ASSERT_TRUE(again) << again.error;
    EXPECT_TRUE(again.warnings.empty()) << again.warnings[0];
    const std::string after = support::scene_text(again.root);
    if (before != after) {
      std::ofstream(folder / "before.txt") << before;
      std::ofstream(folder / "after.txt") << after;
      ADD_FAILURE() << "see before.txt and after.txt in " << folder;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, GltfModel, testing::ValuesIn(gltf_models()),
                         [](const auto& model) { return support::test_name(model.param); });

TEST(GltfModels, StandBesideTheTree) {
  if (support::model_truth().is_null())
    GTEST_SKIP() << "no models in '" << support::models_folder().string() << "'";
  EXPECT_GE(gltf_models().size(), 17u);
}

}  // namespace
