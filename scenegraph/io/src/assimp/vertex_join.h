#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "osg/base_types.h"

namespace osg::io {

/// A row of values of equal size, one a vertex.
struct VertexStream {
  const std::byte* data;
  std::size_t size;  // bytes of a value, from one to the next
};

/// Which vertices are one, because they agree in every bit of every stream.
struct VertexJoin {
  std::vector<UInt32> new_from_old;
  std::vector<UInt32> old_from_new;  // the first of each, ascending
};

/// O(count) time, about 16 bytes a vertex.
VertexJoin join_equal_vertices(std::span<const VertexStream> streams, UInt32 count);

}  // namespace osg::io
