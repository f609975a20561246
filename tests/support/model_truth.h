#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "support/scene_counts.h"

namespace support {

/// Real models that may stand beside the tree, with ground truth that no 3D library had a part in.
inline const std::filesystem::path& models_folder() {
  static const std::filesystem::path folder = MORLU_MODELS_DIR;
  return folder;
}

/// By model; null where there are no models.
inline const nlohmann::json& model_truth() {
  static const nlohmann::json all = [] {
    std::ifstream in(models_folder() / "truth.json");
    return in ? nlohmann::json::parse(in) : nlohmann::json();
  }();
  return all;
}

/// The models with one of these suffixes, whatever their case.
inline std::vector<std::string> models_with(const std::vector<std::string_view>& suffixes) {
  std::vector<std::string> names;
  for (const auto& [name, entry] : model_truth().items()) {
    std::string lower = name;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const std::string_view suffix : suffixes)
      if (lower.ends_with(suffix)) names.push_back(name);
  }
  return names;
}

/// A name that a test may have.
inline std::string test_name(std::string model) {
  for (char& c : model)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return model;
}

inline void expect_truth(const SceneCounts& counts, const nlohmann::json& expected) {
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

}  // namespace support
