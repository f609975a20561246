#pragma once

#include <vector>

#include "osg/geometry.h"

namespace osg::detail {

/// Primitives over the running vertices of a geometry that they are to replace.
struct PrimitiveList {
  std::vector<UInt32> types;
  std::vector<UInt32> lengths;
  std::vector<UInt32> vertices;  // running vertices before, `lengths` of them in turn

  void add(UInt32 type, UInt32 length) {
    types.push_back(type);
    lengths.push_back(length);
  }
};

/// Gives the geometry these primitives. The index layout stays: rows of indices are copied or,
/// without indices, the entries of all attributes. Properties are replaced, not edited.
void rewrite_primitives(Geometry& geometry, const PrimitiveList& primitives);

}  // namespace osg::detail
