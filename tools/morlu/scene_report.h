#pragma once

#include <span>
#include <string>

#include <nlohmann/json.hpp>

#include "cli.h"
#include "scene_stats.h"

namespace morlu::program {

/// A file and what is in it, the reader's warnings first.
struct FileReport {
  std::string file;
  SceneStats stats;
};

FileReport report_on(const std::string& file, const LoadedScene& scene);
/// Reads the file and counts. Throws as `load_scene`.
FileReport report_on(const std::string& file);

/// One of the plain counts.
struct Figure {
  const char* key;
  const char* label;
  std::uint64_t SceneStats::*value;
};
/// In the order in which they are shown.
std::span<const Figure> figures();

nlohmann::ordered_json to_json(const FileReport& report);

/// A number as `printf` writes it.
std::string decimal(const char* format, double value);

}  // namespace morlu::program
