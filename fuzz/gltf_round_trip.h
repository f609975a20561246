#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>

#include <unistd.h>

#include "osg/geometry.h"
#include "osg/io/model_files.h"

/// What the glTF fuzz targets check: any bytes give either an error or a scene, and what was read
/// can be written and read again with the same counts.
namespace fuzzing {

struct Counts {
  std::uint64_t triangles = 0;
  std::uint64_t lines = 0;
  std::uint64_t geometry_nodes = 0;
  bool operator==(const Counts&) const = default;
};

inline void count(const osg::NodePtr& node, Counts& counts) {
  if (const auto geometry = osg::Geometry::dcast(node->getCore())) {
    for (auto at = geometry->beginTriangles(); !at.isAtEnd(); ++at) ++counts.triangles;
    for (auto at = geometry->beginLines(); !at.isAtEnd(); ++at) ++counts.lines;
    if (!geometry->beginPrimitives().isAtEnd()) ++counts.geometry_nodes;
  }
  for (const osg::NodePtr& child : node->getChildren()) count(child, counts);
}

inline void require(bool right, const std::string& what) {
  if (right) return;
  std::fprintf(stderr, "property broken: %s\n", what.c_str());
  std::abort();
}

inline void check_gltf(const std::uint8_t* data, std::size_t size, const char* suffix) {
  const auto read = osg::io::readGltfMemory(std::as_bytes(std::span(data, size)), "", "input");
  require(!read != read.error.empty(), "a root or an error, not both");
  if (!read) return;
  static const std::string file =
      (std::filesystem::temp_directory_path() / ("fuzz_" + std::to_string(getpid()) + suffix))
          .string();
  const auto written = osg::io::writeGltf(read.root, file);
  require(bool(written), "what was read can be written: " + written.error);
  const auto again = osg::io::readGltf(file);
  require(bool(again), "what was written can be read: " + again.error);
  Counts before;
  Counts after;
  count(read.root, before);
  count(again.root, after);
  require(before == after, "the counts stay");
}

}  // namespace fuzzing
