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
  std::uint64_t points = 0;
  std::uint64_t geometry_nodes = 0;  // that hold any of these
  bool operator==(const Counts&) const = default;
};

inline void count(const osg::NodePtr& node, Counts& counts) {
  if (const auto geometry = osg::Geometry::dcast(node->getCore())) {
    const Counts before = counts;
    for (auto at = geometry->beginTriangles(); !at.isAtEnd(); ++at) ++counts.triangles;
    for (auto at = geometry->beginLines(); !at.isAtEnd(); ++at) ++counts.lines;
    for (auto at = geometry->beginPrimitives(); !at.isAtEnd(); ++at)
      if (at.getType() == osg::kPoints) counts.points += at.getLength();
    if (!(before == counts)) ++counts.geometry_nodes;
  }
  for (const osg::NodePtr& child : node->getChildren()) count(child, counts);
}

/// A folder of this process for what the round trip writes; gone when it ends.
class Folder {
 public:
  Folder() : path_(std::filesystem::temp_directory_path() / ("fuzz_" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path_);
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string file(const char* name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline void require(bool right, const std::string& what) {
  if (right) return;
  std::fprintf(stderr, "property broken: %s\n", what.c_str());
  std::abort();
}

inline void check_gltf(const std::uint8_t* data, std::size_t size, const char* suffix) {
  const auto read = osg::io::readGltfMemory(std::as_bytes(std::span(data, size)), "", "input");
  require(!read != read.error.empty(), "a root or an error, not both");
  if (!read) return;
  static const Folder folder;
  const std::string file = folder.file((std::string("scene") + suffix).c_str());
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
