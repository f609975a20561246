#include <limits>
#include <stdexcept>

#include "corner_numbers.h"
#include "osg/geometry_tools.h"
#include "primitive_rewrite.h"
#include "triangle_strips.h"

namespace osg {

namespace {

/// Running vertex of each corner of all triangles.
std::vector<UInt32> corner_vertices(const Geometry& geometry) {
  std::vector<UInt32> vertices;
  for (TriangleIterator it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    for (UInt32 corner = 0; corner < 3; ++corner) vertices.push_back(it.getVertex(corner));
  if (vertices.size() > std::numeric_limits<UInt32>::max())
    throw std::length_error("osg::createOptimizedPrimitives: too many triangles");
  return vertices;
}

bool bears_triangles(UInt32 type) {
  return triangleCount(type, 4) > 0;
}

void add_other_primitives(const Geometry& geometry, detail::PrimitiveList& list) {
  for (PrimitiveIterator it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    if (bears_triangles(it.getType())) continue;
    list.add(it.getType(), it.getLength());
    for (UInt32 corner = 0; corner < it.getLength(); ++corner)
      list.vertices.push_back(it.getVertex(corner));
  }
}

void add_strips(const std::vector<UInt32>& vertices, const detail::TriangleStrips& strips,
                detail::PrimitiveList& list) {
  for (const UInt32 length : strips.lengths) list.add(kTriangleStrip, length);
  for (const UInt32 corner : strips.corners) list.vertices.push_back(vertices[corner]);
  if (strips.rest.empty()) return;
  list.add(kTriangles, static_cast<UInt32>(3 * strips.rest.size()));
  for (const UInt32 triangle : strips.rest)
    for (UInt32 corner = 0; corner < 3; ++corner)
      list.vertices.push_back(vertices[3 * triangle + corner]);
}

}  // namespace

Int32 createOptimizedPrimitives(const GeometryPtr& geometry, UInt32, bool strips, bool, UInt32,
                                bool, bool, bool) {
  if (!geometry) return 0;
  const UInt32 vertex_count = detail::reached_vertex_count(*geometry);
  const std::vector<UInt32> vertices = corner_vertices(*geometry);
  if (!strips || vertices.empty()) return static_cast<Int32>(vertex_count);

  const detail::Numbering same = detail::number_by_indices(IndexLayout(*geometry), vertex_count);
  std::vector<UInt32> numbers(vertices.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) numbers[i] = same.of_vertex[vertices[i]];
  detail::PrimitiveList list;
  add_other_primitives(*geometry, list);
  add_strips(vertices, detail::build_strips(numbers), list);
  if (list.vertices.size() >= vertex_count) return static_cast<Int32>(vertex_count);
  detail::rewrite_primitives(*geometry, list);
  endEditCP(geometry);
  return static_cast<Int32>(list.vertices.size());
}

}  // namespace osg
