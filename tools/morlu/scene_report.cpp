#include "scene_report.h"

#include <array>
#include <cstdio>

#include "result_json.h"

namespace morlu::program {

using nlohmann::ordered_json;

std::span<const Figure> figures() {
  static constexpr Figure all[] = {
      {"nodes", "nodes", &SceneStats::nodes},
      {"geometry_nodes", "geometry nodes", &SceneStats::geometry_nodes},
      {"cores", "geometry cores", &SceneStats::cores},
      {"triangles", "triangles", &SceneStats::triangles},
      {"lines", "lines", &SceneStats::lines},
      {"points", "points", &SceneStats::points},
      {"unusable_triangles", "unusable triangles", &SceneStats::unusable_triangles},
      {"vertices", "vertices of cores", &SceneStats::vertices},
      {"index_entries", "index entries of cores", &SceneStats::index_entries},
      {"materials", "materials", &SceneStats::materials},
      {"images", "images", &SceneStats::images},
  };
  return all;
}

ordered_json to_json(const FileReport& report) {
  const SceneStats& stats = report.stats;
  ordered_json json{{"schema", json_schema}, {"file", report.file}};
  for (const Figure& figure : figures()) json[figure.key] = stats.*figure.value;
  json["bounds"] = nullptr;
  if (stats.bounds)
    json["bounds"] = {{"min", short_numbers(stats.bounds->min)},
                      {"max", short_numbers(stats.bounds->max)}};
  json["acmr"] = nullptr;
  if (const auto acmr = stats.acmr()) json["acmr"] = *acmr;
  json["warnings"] = stats.warnings;
  return json;
}

FileReport report_on(const std::string& file, const LoadedScene& scene) {
  FileReport report{file, count_scene(scene.root)};
  auto& warnings = report.stats.warnings;
  warnings.insert(warnings.begin(), scene.warnings.begin(), scene.warnings.end());
  return report;
}
FileReport report_on(const std::string& file) {
  return report_on(file, load_scene(file));
}

std::string decimal(const char* format, double value) {
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), format, value);
  return text.data();
}

}  // namespace morlu::program
