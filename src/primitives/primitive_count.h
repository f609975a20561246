#pragma once

#include <osg/geometry.h>

#include <algorithm>
#include <cstdint>

namespace morlu {

/// What a primitive counts, in whole numbers, a quad as its two triangles. Quad strips and strips
/// and loops of lines count nothing.
constexpr std::uint64_t count_of_primitive(std::uint32_t type, std::uint32_t length) {
  switch (type) {
    case ::osg::kPoints:
      return length;
    case ::osg::kLines:
    case ::osg::kQuads:
      return length / 2;
    case ::osg::kTriangles:
      return length / 3;
    case ::osg::kTriangleStrip:
    case ::osg::kTriangleFan:
    case ::osg::kPolygon:
      return length < 2 ? 0 : length - 2;
    default:
      return 0;
  }
}

/// By types and lengths as they stand, without a look at the data; 0 without them.
inline std::uint64_t count_primitives(const ::osg::Geometry& geometry) {
  if (!geometry.getTypes() || !geometry.getLengths()) return 0;
  const ::osg::GeoPTypes& types = *geometry.getTypes();
  const ::osg::GeoPLengths& lengths = *geometry.getLengths();
  std::uint64_t sum = 0;
  for (std::uint32_t i = 0; i < std::min(types.size(), lengths.size()); ++i)
    sum += count_of_primitive(types.getValue(i), lengths.getValue(i));
  return sum;
}

}  // namespace morlu
