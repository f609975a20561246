// Every glTF model that stands beside the tree: read against its ground truth, which no 3D library
// had a part in, and written and read again without a difference.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "osg/io/model_files.h"
#include "support/scene_counts.h"
#include "support/scene_text.h"

namespace {

using support::count_scene;
using support::SceneCounts;

const std::filesystem::path models = MORLU_MODELS_DIR;

nlohmann::json truth() {
  std::ifstream in(models / "truth.json");
  return in ? nlohmann::json::parse(in) : nlohmann::json();
}

std::vector<std::string> gltf_models() {
  std::vector<std::string> names;
  const nlohmann::json all = truth();
  for (const auto& [name, entry] : all.items())
    if (name.ends_with(".gltf") || name.ends_with(".glb")) names.push_back(name);
  return names;
}

class GltfModel : public testing::TestWithParam<std::string> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(GltfModel);

void expect_truth(const SceneCounts& counts, const nlohmann::json& expected) {
  EXPECT_EQ(counts.triangles, expected["triangles"]);
  EXPECT_EQ(counts.lines, expected["lines"]);
  EXPECT_EQ(counts.points, expected["points"]);
  EXPECT_EQ(counts.geometry_nodes, expected["primitive_instances"]);
  EXPECT_EQ(counts.cores.size(), expected["primitives"]);
  EXPECT_EQ(counts.materials.size(), expected["materials_used"]);
  EXPECT_EQ(counts.has_null_material,
            expected["uses_default_material"].get<bool>() || counts.materials.empty());
  for (std::size_t k = 0; k < 3; ++k) {
    const double low = expected["bbox_world"]["min"][k];
    const double high = expected["bbox_world"]["max"][k];
    const double tolerance = 1e-6 * std::max({std::abs(low), std::abs(high), high - low});
    EXPECT_NEAR(counts.low[k], low, tolerance);
    EXPECT_NEAR(counts.high[k], high, tolerance);
  }
}

TEST_P(GltfModel, IsReadAsItIs) {
  const nlohmann::json expected = truth()[GetParam()];
  const auto read = osg::io::readGltf((models / GetParam()).string());
  ASSERT_TRUE(read) << read.error;
  const SceneCounts counts = count_scene(read.root);
  expect_truth(counts, expected);
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
  const auto read = osg::io::readGltf((models / GetParam()).string());
  ASSERT_TRUE(read) << read.error;
  const std::string before = support::scene_text(read.root);
  for (const char* suffix : {".glb", ".gltf"}) {
    std::string name = GetParam();
    std::replace(name.begin(), name.end(), '/', '_');
    const auto folder = std::filesystem::path(testing::TempDir()) / ("models " + name + suffix);
    std::filesystem::create_directories(folder);
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
    } else {
      std::filesystem::remove_all(folder);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, GltfModel, testing::ValuesIn(gltf_models()), [](const auto& model) {
  std::string name = model.param;
  for (char& c : name)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
});

TEST(GltfModels, StandBesideTheTree) {
  if (truth().is_null()) GTEST_SKIP() << "no models in '" << models.string() << "'";
  EXPECT_GE(gltf_models().size(), 17u);
}

}  // namespace
