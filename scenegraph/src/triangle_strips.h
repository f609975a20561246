#pragma once

#include <span>
#include <vector>

#include "osg/base_types.h"

namespace osg::detail {

/// Triangle strips over corners, which count from 0 in steps of three a triangle.
struct TriangleStrips {
  std::vector<UInt32> corners;  // of all strips in turn: any corner that is at the strip's vertex
  std::vector<UInt32> lengths;  // vertices of each strip
  std::vector<UInt32> rest;     // triangles in no strip, ascending
};

/// Joins triangles into strips. `vertices` has the vertex of each corner, three a triangle. Every
/// triangle is in one strip or in the rest, with its winding; those with two corners at one vertex
/// are in the rest. O(triangles) time and about 60 bytes a triangle.
TriangleStrips build_strips(std::span<const UInt32> vertices);

}  // namespace osg::detail
