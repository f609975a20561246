// Any bytes go into the reader of .osb files. What it accepts has to be a scene that can be used,
// written, and read again to the same bytes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/osb.h"

namespace {

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

/// Walks the triangles that the file's indices and lengths lead to. One geometry may hang on any
/// number of nodes, so the number of steps is limited.
void use(const osg::NodePtr& node, int& steps) {
  if (const auto geometry = osg::Geometry::dcast(node->getCore())) {
    volatile float sum = 0;
    for (auto it = geometry->beginTriangles(); !it.isAtEnd() && steps > 0; ++it, --steps)
      sum = sum + it.getPosition(0)[0] + it.getNormal(1)[1] + it.getColor(2)[2] +
            it.getTexCoords7(0)[0];
  }
  for (const osg::NodePtr& child : node->getChildren()) use(child, steps);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto first = osg::readOsb(std::as_bytes(std::span(data, size)), "input");
  require(first.root.isNull() == !first.error.empty(), "a result is a scene or an error");
  if (!first) return 0;
  first.root->updateVolume();
  int steps = 100000;
  use(first.root, steps);

  std::vector<std::byte> written;
  const auto write = osg::writeOsb(first.root, written);
  require(write.written && write.warnings.empty(), "what was read can be written whole");
  const auto second = osg::readOsb(written, "written");
  require(bool(second) && second.warnings.empty(), "what was written can be read");
  std::vector<std::byte> again;
  require(bool(osg::writeOsb(second.root, again)), "it can be written again");
  require(again == written, "the same scene has the same bytes");
  return 0;
}
