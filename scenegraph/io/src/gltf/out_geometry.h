#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "osg/geometry.h"
#include "report.h"

namespace osg::io {

/// One primitive of a mesh to write: running vertices of a prepared geometry.
struct OutPrimitive {
  UInt32 mode = 0;
  UInt32 first = 0;  // a range of running vertices, ...
  UInt32 length = 0;
  std::vector<UInt32> vertices;  // ... or, if not empty, these

  UInt32 count() const { return vertices.empty() ? length : static_cast<UInt32>(vertices.size()); }
};

/// A geometry as it is written: one index a vertex, primitives of glTF's kinds.
struct PreparedGeometry {
  GeometryPtr core;    // the geometry itself, or a copy with one index a vertex
  IndexLayout layout;  // of `core`
  std::vector<OutPrimitive> primitives;
  UInt32 vertices = 0;       // entries of each attribute to write
  UInt32 largest_index = 0;  // as stored; may lie past `vertices`, which means the last then
  std::optional<Attribute> feature_ids;  // the texture coordinates that are none
};

/// Quads, polygons, and strips, fans and loops beyond 16 of them become lists; lists that follow
/// one another become one. Elements of a kind keep their order.
PreparedGeometry prepare_geometry(const GeometryPtr& geometry);

/// The index of a running vertex, below `prepared.vertices`.
inline UInt32 index_of_vertex(const PreparedGeometry& prepared, UInt32 vertex) {
  return std::min(prepared.layout.getStoredIndex(0, vertex), prepared.vertices - 1);
}

}  // namespace osg::io
