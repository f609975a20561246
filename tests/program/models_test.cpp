// What `morlu info` says of real models, beside figures that were counted without any 3D library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <map>

#include "run_program.h"

namespace {

using nlohmann::json;

const std::filesystem::path models = MORLU_MODELS_DIR;

json truth() {
  const std::string text = content_of(models / "truth.json");
  return text.empty() ? json::object() : json::parse(text);
}

/// One empty name where there are no models, so that their absence shows as a skipped test.
std::vector<std::string> model_names() {
  std::vector<std::string> names;
  const json all = truth();
  for (const auto& [name, figures] : all.items()) names.push_back(name);
  if (names.empty()) names.push_back("");
  return names;
}

std::string test_name(const testing::TestParamInfo<std::string>& info) {
  if (info.param.empty()) return "none";
  std::string name = info.param;
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
  return name;
}

// Where the truth counts otherwise than info does, and why.
constexpr const char* unreadable_model = "four_formats/Wuson.wrl";  // no reader for VRML
// The image of a material that no geometry uses isn't in the scene.
const std::map<std::string, int> images_in_use = {{"spider/spider.obj", 4}};

class Models : public ProgramTest, public testing::WithParamInterface<std::string> {};

bool same_box(const json& box, const json& expected) {
  double extent = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    extent =
        std::max(extent, expected["max"][axis].get<double>() - expected["min"][axis].get<double>());
  }
  for (const char* side : {"min", "max"}) {
    for (int axis = 0; axis < 3; ++axis) {
      const double a = box[side][axis], b = expected[side][axis];
      if (!(std::fabs(a - b) <= 1e-6 * std::max(extent, std::fabs(b)))) return false;
    }
  }
  return true;
}

// Some formats tell which way is up, and a reader may turn the scene: one of the boxes it is.
void expect_a_box_of(const json& figures, const json& box) {
  bool found = false;
  for (const auto& [key, expected] : figures.items()) {
    found |= key.rfind("bbox_world", 0) == 0 && same_box(box, expected);
  }
  EXPECT_TRUE(found) << box << " is none of the boxes, such as " << figures["bbox_world"];
}

TEST_P(Models, InfoTellsTheTruth) {
  if (GetParam().empty()) GTEST_SKIP() << "no models in '" << models.string() << "'";
  const json figures = truth()[GetParam()];
  const Outcome outcome =
      run("info --json '" + std::filesystem::absolute(models / GetParam()).string() + "'");
  if (GetParam() == unreadable_model) {
    EXPECT_EQ(outcome.exit_code, 3);
    GTEST_SKIP() << outcome.err;
  }
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  const json info = json::parse(outcome.out);

  EXPECT_EQ(info["triangles"], figures["triangles"]);
  EXPECT_EQ(info["lines"], figures["lines"]);
  EXPECT_EQ(info["points"], figures["points"]);
  EXPECT_EQ(info["unusable_triangles"], figures["rogue_object"]);
  EXPECT_EQ(info["geometry_nodes"], figures["primitive_instances"]);
  EXPECT_EQ(info["materials"], figures["materials_used"]);
  // Entries for one and the same file are one image; files with the same pixels are several.
  if (const auto known = images_in_use.find(GetParam()); known != images_in_use.end()) {
    EXPECT_EQ(info["images"], known->second);
  } else {
    EXPECT_GE(info["images"], figures["images_distinct"]);
    EXPECT_LE(info["images"], figures["images"].size());
  }
  EXPECT_EQ(info["acmr"].is_null(), figures["triangles"] == 0);
  expect_a_box_of(figures, info["bounds"]);
}

INSTANTIATE_TEST_SUITE_P(All, Models, testing::ValuesIn(model_names()), test_name);

}  // namespace
