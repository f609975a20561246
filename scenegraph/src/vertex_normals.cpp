#include <limits>
#include <stdexcept>

#include "corner_numbers.h"
#include "crease_normals.h"
#include "normal_storage.h"
#include "osg/geometry_tools.h"
#include "primitive_rewrite.h"

namespace osg {

namespace {

bool has_triangles(const GeometryPtr& geometry) {
  return geometry && !geometry->beginTriangles().isAtEnd();
}

// --- A normal a position entry -------------------------------------------------------------------

std::vector<detail::Face> sums_by_position(const Geometry& geometry) {
  std::vector<detail::Face> sums(geometry.getPositions()->size());
  detail::for_each_face(geometry, [&](const detail::Face& face, const TriangleIterator& triangle) {
    for (UInt32 corner = 0; corner < 3; ++corner)
      sums[static_cast<UInt32>(triangle.getPositionIndex(corner))] += face;
  });
  return sums;
}

void store_by_position(Geometry& geometry, const std::vector<detail::Face>& sums) {
  std::vector<Vec3f> values(sums.size());
  for (UInt32 i = 0; i < values.size(); ++i)
    values[i] = sums[i].length > 0 ? detail::direction_of(sums[i])
                                   : detail::normal_at(geometry.getNormals().get(), i);
  detail::store_entries(geometry, GeoNormals3f::dcast(geometry.getNormals()), values);
}

void store_by_vertex(Geometry& geometry, const std::vector<detail::Face>& sums) {
  const IndexLayout layout(geometry);
  detail::VertexNormals normals(layout);
  for (UInt32 vertex = 0; vertex < layout.getVertexCount(); ++vertex) {
    const detail::Face& sum =
        sums[static_cast<UInt32>(layout.getIndex(Attribute::Positions, vertex))];
    if (sum.length > 0) normals.give(vertex, detail::direction_of(sum));
  }
  detail::store_column(geometry, GeoNormals3f::dcast(geometry.getNormals()), normals.values);
}

// --- A normal a corner ---------------------------------------------------------------------------

/// The triangles with an area, in order.
struct Faces {
  std::vector<detail::Face> faces;
  std::vector<UInt32> points;  // of each corner: number of its position's value
};

Faces collect_faces(const Geometry& geometry) {
  const detail::Numbering points = detail::number_by_value(
      IndexLayout(geometry), Attribute::Positions, detail::reached_vertex_count(geometry));
  Faces result;
  detail::for_each_face(geometry, [&](const detail::Face& face, const TriangleIterator& triangle) {
    result.faces.push_back(face);
    for (UInt32 corner = 0; corner < 3; ++corner)
      result.points.push_back(points.of_vertex[triangle.getVertex(corner)]);
  });
  if (result.points.size() > std::numeric_limits<UInt32>::max())
    throw std::length_error("osg::calcVertexNormals: too many triangles");
  return result;
}

/// Corners of one point side by side, in triangle order: those of point p from `begin[p]` on.
struct CornersByPoint {
  std::vector<UInt32> begin;
  std::vector<UInt32> corners;
};

CornersByPoint corners_by_point(const std::vector<UInt32>& points) {
  UInt32 point_count = 0;
  for (const UInt32 point : points) point_count = std::max(point_count, point + 1);
  CornersByPoint result{std::vector<UInt32>(std::size_t{point_count} + 1),
                        std::vector<UInt32>(points.size())};
  for (const UInt32 point : points) ++result.begin[point + 1];
  for (UInt32 point = 0; point < point_count; ++point)
    result.begin[point + 1] += result.begin[point];
  std::vector<UInt32> next(result.begin.begin(), result.begin.end() - 1);
  for (UInt32 corner = 0; corner < points.size(); ++corner)
    result.corners[next[points[corner]]++] = corner;
  return result;
}

/// The normals of the three corners of each triangle with an area. No two corners of such a
/// triangle are at one point.
std::vector<Vec3f> smooth_corners(const Geometry& geometry, double crease_angle) {
  const Faces from = collect_faces(geometry);
  const CornersByPoint by_point = corners_by_point(from.points);
  std::vector<Vec3f> result(from.points.size());
  std::vector<detail::Face> meeting;
  std::vector<Vec3f> smoothed;
  for (std::size_t point = 0; point + 1 < by_point.begin.size(); ++point) {
    const std::span corners(by_point.corners.begin() + by_point.begin[point],
                            by_point.corners.begin() + by_point.begin[point + 1]);
    meeting.clear();
    for (const UInt32 corner : corners) meeting.push_back(from.faces[corner / 3]);
    smoothed.resize(corners.size());
    detail::smooth_faces(meeting, crease_angle, smoothed);
    for (std::size_t i = 0; i < corners.size(); ++i) result[corners[i]] = smoothed[i];
  }
  return result;
}

detail::VertexNormals normals_of_vertices(const Geometry& geometry,
                                          const std::vector<Vec3f>& corner_normals) {
  detail::VertexNormals normals{IndexLayout(geometry)};
  std::size_t next = 0;
  detail::for_each_face(geometry, [&](const detail::Face&, const TriangleIterator& triangle) {
    for (UInt32 corner = 0; corner < 3; ++corner)
      normals.give(triangle.getVertex(corner), corner_normals[next++]);
  });
  return normals;
}

/// Makes single triangles of the primitives in which a vertex has several normals.
void take_apart(Geometry& geometry, const std::vector<bool>& differs) {
  detail::PrimitiveList list;
  TriangleIterator triangle = geometry.beginTriangles();
  for (PrimitiveIterator it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    const std::size_t first = list.vertices.size();
    const auto begin = differs.begin() + it.getFirstVertex();
    const auto end = begin + it.getLength();
    const bool apart = std::find(begin, end, true) != end;
    for (; !triangle.isAtEnd() && triangle.getPrimitive() == it.getPrimitive(); ++triangle)
      for (UInt32 corner = 0; apart && corner < 3; ++corner)
        list.vertices.push_back(triangle.getVertex(corner));
    for (UInt32 corner = 0; !apart && corner < it.getLength(); ++corner)
      list.vertices.push_back(it.getVertex(corner));
    list.add(apart ? kTriangles : it.getType(), static_cast<UInt32>(list.vertices.size() - first));
  }
  detail::rewrite_primitives(geometry, list);
}

}  // namespace

void calcVertexNormals(const GeometryPtr& geometry) {
  if (!has_triangles(geometry)) return;
  const std::vector<detail::Face> sums = sums_by_position(*geometry);
  const IndexLayout layout(*geometry);
  const UInt32 column = layout.getColumn(Attribute::Positions);
  if (layout.getColumn(Attribute::Normals) == column) {
    store_by_position(*geometry, sums);
    MField<UInt16>& mapping = geometry->getIndexMapping();
    if (layout.isIndexed() && !mapping.empty())
      mapping[column] = static_cast<UInt16>(mapping[column] | Geometry::MapNormal);
  } else {
    store_by_vertex(*geometry, sums);
  }
  endEditCP(geometry);
}

void calcVertexNormals(const GeometryPtr& geometry, Real32 creaseAngle) {
  if (!has_triangles(geometry)) return;
  const GeoNormals3fPtr object = GeoNormals3f::dcast(geometry->getNormals());
  const std::vector<Vec3f> corner_normals = smooth_corners(*geometry, creaseAngle);
  detail::VertexNormals normals = normals_of_vertices(*geometry, corner_normals);
  if (std::find(normals.differs.begin(), normals.differs.end(), true) != normals.differs.end()) {
    take_apart(*geometry, normals.differs);
    normals = normals_of_vertices(*geometry, corner_normals);
  }
  if (!geometry->getIndices())
    detail::store_entries(*geometry, object, normals.values);
  else if (geometry->getIndexMapping().empty())
    detail::store_split_vertices(*geometry, object, normals);
  else
    detail::store_column(*geometry, object, normals.values);
  endEditCP(geometry);
}

}  // namespace osg
