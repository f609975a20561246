// Every model of another format than glTF that stands beside the tree: read against its ground
// truth, and through either format that can be written without a difference.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "osg/io/model_files.h"
#include "osg/osb.h"
#include "support/model_truth.h"
#include "support/scene_look.h"
#include "support/scene_parts.h"
#include "support/scene_text.h"
#include "support/temp_folder.h"

namespace {

using support::count_scene;
using support::SceneCounts;

/// VRML (.wrl) is missing: no importer at hand reads it, its suffix is no known format.
std::vector<std::string> other_models() {
  return support::models_with({".obj", ".ply", ".stl", ".dae", ".3ds"});
}

osg::SceneReadResult read_model(const std::string& name) {
  return osg::SceneFileHandler::the().read((support::models_folder() / name).string());
}

class OtherModel : public testing::TestWithParam<std::string> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(OtherModel);

TEST_P(OtherModel, IsReadAsItIs) {
  const nlohmann::json expected = support::model_truth()[GetParam()];
  const auto read = read_model(GetParam());
  ASSERT_TRUE(read) << read.error;
  const SceneCounts counts = count_scene(read.root);
  support::expect_truth(counts, expected);
  // Files that the model names but that don't stand beside it are all that is told.
  const auto missing = expected.value("missing_files", nlohmann::json::array());
  ASSERT_EQ(read.warnings.size(), missing.size());
  for (std::size_t i = 0; i < missing.size(); ++i)
    EXPECT_NE(read.warnings[i].find(missing[i].get<std::string>()), std::string::npos)
        << read.warnings[i];
}

TEST_P(OtherModel, ShowsTheColorsOfItsMaterials) {
  const nlohmann::json expected = support::model_truth()[GetParam()];
  const auto read = read_model(GetParam());
  ASSERT_TRUE(read) << read.error;
  std::multiset<std::string> found;  // in hundredths: the truth is rounded
  for (const osg::MaterialPtr& material : count_scene(read.root).materials) {
    const auto chunks = osg::ChunkMaterial::dcast(material);
    const auto colors = chunks->findFirstChunk<osg::MaterialChunk>();
    ASSERT_TRUE(colors);
    std::string text;
    for (osg::UInt32 i = 0; i < 3; ++i)
      text += std::to_string(std::lround(100.0f * colors->getDiffuse()[i])) + " ";
    text += std::to_string(std::lround(100.0f - 100.0f * colors->getDiffuse()[3]));
    if (const auto texture = chunks->findFirstChunk<osg::TextureChunk>())
      text += " ./" + texture->getImage()->getName();
    EXPECT_EQ(!chunks->findFirstChunk<osg::BlendChunk>(), colors->getDiffuse()[3] == 1.0f);
    found.insert(text);
  }
  std::multiset<std::string> wanted;
  for (const auto& material : expected["materials"]) {
    if (material["primitive_instances"] == 0 || material["name"] == "(none)") continue;
    std::string text;
    for (std::size_t i = 0; i < 3; ++i)
      text += std::to_string(std::lround(100.0 * material["diffuse"][i].get<double>())) + " ";
    text += std::to_string(material.value("transparency_percent", 0));
    if (material.contains("diffuse_image"))
      text += " " + material["diffuse_image"].get<std::string>();
    wanted.insert(text);
  }
  EXPECT_EQ(found, wanted);
}

TEST_P(OtherModel, ComesBackFromWhatIsWritten) {
  const auto read = read_model(GetParam());
  ASSERT_TRUE(read) << read.error;
  const support::TempFolder folder;
  for (const char* suffix : {".glb", ".osb"}) {
    const std::string file = (folder / (std::string("scene") + suffix)).string();
    const auto written = osg::SceneFileHandler::the().writeScene(read.root, file);
    ASSERT_TRUE(written) << written.error;
    EXPECT_TRUE(written.warnings.empty()) << written.warnings[0];
    const auto again = osg::SceneFileHandler::the().read(file);
    ASSERT_TRUE(again) << again.error;
    EXPECT_TRUE(again.warnings.empty()) << again.warnings[0];
    support::expect_truth(count_scene(again.root), support::model_truth()[GetParam()]);
    EXPECT_EQ(support::SceneLook::of(read.root), support::SceneLook::of(again.root)) << suffix;
    if (file.ends_with(".osb")) {
      EXPECT_EQ(support::scene_text(read.root), support::scene_text(again.root));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, OtherModel, testing::ValuesIn(other_models()),
                         [](const auto& model) { return support::test_name(model.param); });

/// Sorted corner positions of all triangles.
std::vector<std::array<float, 9>> triangles_of(const std::string& name) {
  const auto read = read_model(name);
  EXPECT_TRUE(read) << read.error;
  std::vector<std::array<float, 9>> triangles;
  for_each_geometry(read.root, [&](const osg::NodePtr&, const osg::GeometryPtr& geometry) {
    for (auto at = geometry->beginTriangles(); !at.isAtEnd(); ++at) {
      std::array<std::array<float, 3>, 3> corners;
      for (osg::UInt32 i = 0; i < 3; ++i)
        for (osg::UInt32 k = 0; k < 3; ++k)
          corners[i][k] = std::round(at.getPosition(i)[k] * 1e5f) / 1e5f + 0.0f;
      std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()), corners.end());
      std::array<float, 9>& triangle = triangles.emplace_back();
      std::memcpy(triangle.data(), corners.data(), sizeof triangle);
    }
  });
  std::sort(triangles.begin(), triangles.end());
  return triangles;
}

TEST(OtherModels, AgreeOnOneMeshInSeveralFormats) {
  if (support::model_truth().is_null())
    GTEST_SKIP() << "no models in '" << support::models_folder().string() << "'";
  EXPECT_GE(other_models().size(), 12u);
  const auto stl = triangles_of("four_formats/Wuson.stl");
  ASSERT_EQ(stl.size(), 3732u);
  for (const char* name : {"four_formats/WusonOBJ.obj", "four_formats/Wuson.ply"}) {
    const auto other = triangles_of(name);
    ASSERT_EQ(other.size(), stl.size());
    std::size_t different = 0;
    for (std::size_t i = 0; i < stl.size(); ++i)
      for (std::size_t k = 0; k < 9; ++k)
        if (std::abs(stl[i][k] - other[i][k]) > 2e-5f) {
          ++different;
          break;
        }
    EXPECT_EQ(different, 0u) << name;
  }
}

}  // namespace
