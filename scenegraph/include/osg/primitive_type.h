#pragma once

#include "osg/base_types.h"

namespace osg {

/// Kinds of primitive, with the values that graphics interfaces use for them.
enum PrimitiveType : UInt32 {
  kPoints = 0,
  kLines = 1,
  kLineLoop = 2,
  kLineStrip = 3,
  kTriangles = 4,
  kTriangleStrip = 5,
  kTriangleFan = 6,
  kQuads = 7,
  kQuadStrip = 8,
  kPolygon = 9,
};

/// Triangles that `vertices` vertices make; left-over ones make none. Unknown types: 0.
constexpr UInt32 triangleCount(UInt32 type, UInt32 vertices) {
  switch (type) {
    case kTriangles:
      return vertices / 3;
    case kTriangleStrip:
    case kTriangleFan:
    case kPolygon:
      return vertices < 3 ? 0 : vertices - 2;
    case kQuads:
      return vertices / 4 * 2;
    case kQuadStrip:
      return vertices < 4 ? 0 : vertices / 2 * 2 - 2;
    default:
      return 0;
  }
}

/// Lines that `vertices` vertices make; a loop has as many as vertices. Unknown types: 0.
constexpr UInt32 lineCount(UInt32 type, UInt32 vertices) {
  switch (type) {
    case kLines:
      return vertices / 2;
    case kLineLoop:
      return vertices;
    case kLineStrip:
      return vertices < 2 ? 0 : vertices - 1;
    default:
      return 0;
  }
}

/// How many of the vertices, from the first on, belong to a triangle, a line or a point.
constexpr UInt32 usedVertexCount(UInt32 type, UInt32 vertices) {
  switch (type) {
    case kPoints:
    case kLineLoop:
      return vertices;
    case kLines:
      return vertices / 2 * 2;
    case kLineStrip:
      return vertices < 2 ? 0 : vertices;
    case kTriangles:
      return vertices / 3 * 3;
    case kTriangleStrip:
    case kTriangleFan:
    case kPolygon:
      return vertices < 3 ? 0 : vertices;
    case kQuads:
      return vertices / 4 * 4;
    case kQuadStrip:
      return vertices < 4 ? 0 : vertices / 2 * 2;
    default:
      return 0;
  }
}

}  // namespace osg
