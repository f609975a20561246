// The geometry tools on a hilly grid of ten million corners, as a soup and indexed. Every result is
// checked corner by corner against the grid it was made from.

#include <cmath>
#include <memory>

#include "bench/figure.h"
#include "osg/geometry_tools.h"

namespace {

using morlu::bench::contest;
using osg::UInt32;

constexpr UInt32 side = 1291;  // squares
constexpr UInt32 row = side + 1;
constexpr UInt32 vertices = row * row;
constexpr UInt32 corners = 6 * side * side;
constexpr float crease = 0.5235988f;  // steeper than any edge of the grid

enum class layout { none, single, multi };

osg::Pnt3f point_of(UInt32 vertex) {
  const UInt32 x = vertex % row, y = vertex / row;
  return {x, y, 2 * std::sin(0.05f * x) * std::cos(0.07f * y)};
}
osg::Vec3f normal_of(UInt32 vertex) {
  return {vertex % 3, vertex % 5, 1};
}
osg::Vec2f coords_of(UInt32 vertex) {
  return {vertex % row, vertex / row};
}

/// Vertex of a corner: two triangles a square.
UInt32 vertex_of(UInt32 corner) {
  static constexpr UInt32 offsets[] = {0, 1, row + 1, 0, row + 1, row};
  const UInt32 square = corner / 6;
  return square / side * row + square % side + offsets[corner % 6];
}

osg::Vec3d face_of(UInt32 triangle) {
  osg::Vec3d points[3];
  for (UInt32 k = 0; k < 3; ++k) {
    const osg::Pnt3f p = point_of(vertex_of(3 * triangle + k));
    points[k] = {p[0], p[1], p[2]};
  }
  return (points[1] - points[0]).cross(points[2] - points[0]);
}

struct scene {
  osg::GeoPTypesUI8Ptr types = osg::GeoPTypesUI8::create();
  osg::GeoPLengthsUI32Ptr lengths = osg::GeoPLengthsUI32::create();
  osg::GeoPositions3fPtr positions = osg::GeoPositions3f::create();
  osg::GeoNormals3fPtr normals = osg::GeoNormals3f::create();
  osg::GeoTexCoords2fPtr coords = osg::GeoTexCoords2f::create();
  osg::GeoIndicesUI32Ptr indices = osg::GeoIndicesUI32::create();
  layout kind;

  explicit scene(layout of) : kind(of) {
    types->push_back(osg::kTriangles);
    lengths->push_back(corners);
    const UInt32 entries = kind == layout::none ? corners : vertices;
    for (UInt32 i = 0; i < entries; ++i) {
      const UInt32 vertex = kind == layout::none ? vertex_of(i) : i;
      positions->push_back(point_of(vertex));
      normals->push_back(normal_of(vertex));
      coords->push_back(coords_of(vertex));
    }
    const int columns = kind == layout::none ? 0 : kind == layout::single ? 1 : 3;
    for (UInt32 i = 0; i < corners; ++i)
      for (int k = 0; k < columns; ++k) indices->push_back(vertex_of(i));
  }
  /// The tools replace properties, so that all runs can start from the same ones.
  osg::GeometryPtr geometry(bool with_normals) const {
    osg::GeometryPtr made = osg::Geometry::create();
    made->setTypes(types);
    made->setLengths(lengths);
    made->setPositions(positions);
    if (with_normals) made->setNormals(normals);
    made->setTexCoords(coords);
    if (kind != layout::none) made->setIndices(indices);
    if (kind == layout::multi)
      for (const auto flag :
           {osg::Geometry::MapPosition, osg::Geometry::MapNormal, osg::Geometry::MapTexCoords})
        made->getIndexMapping().push_back(flag);
    return made;
  }
};

// --- Checks --------------------------------------------------------------------------------------

std::string surface_fault(const osg::Geometry& geometry, bool with_normals) {
  UInt32 corner = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    for (UInt32 k = 0; k < 3; ++k, ++corner) {
      const UInt32 vertex = vertex_of(corner);
      if (it.getPosition(k) != point_of(vertex) || it.getTexCoords(k) != coords_of(vertex) ||
          (with_normals && it.getNormal(k) != normal_of(vertex)))
        return "corner " + std::to_string(corner) + " is wrong";
    }
  return corner == corners ? "" : "triangles are missing";
}

std::string index_fault(const osg::Geometry& geometry, UInt32 columns, UInt32 entries) {
  if (geometry.getIndices()->size() != corners * columns) return "indices are missing";
  if (geometry.getPositions()->size() != entries || geometry.getTexCoords()->size() != entries)
    return "values are there twice, or missing";
  return surface_fault(geometry, true);
}

/// `smooth`: all faces at a vertex count, else only the corner's own.
std::string normals_fault(const osg::Geometry& geometry, bool smooth) {
  std::vector<osg::Vec3d> sums(vertices);
  for (UInt32 corner = 0; corner < corners; ++corner)
    sums[vertex_of(corner)] += face_of(corner / 3);
  UInt32 corner = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    for (UInt32 k = 0; k < 3; ++k, ++corner) {
      osg::Vec3d expected = smooth ? sums[vertex_of(corner)] : face_of(corner / 3);
      expected.normalize();
      const osg::Vec3f normal = it.getNormal(k);
      const osg::Vec3d off(normal[0] - expected[0], normal[1] - expected[1],
                           normal[2] - expected[2]);
      if (!(off.length() < 1e-6)) return "normal of corner " + std::to_string(corner) + " is wrong";
    }
  return surface_fault(geometry, false);
}

/// Triangles come in another order: their sums tell them apart well enough.
std::string strips_fault(const osg::Geometry& geometry) {
  if (geometry.getIndices()->size() > corners * 36ull / 100) return "strips are short";
  double areas = 0, weighted = 0, expected_areas = 0, expected_weighted = 0;
  UInt32 triangles = 0;
  const auto weight = [](const osg::Pnt3f& a, const osg::Pnt3f& b, const osg::Pnt3f& c) {
    return double{a[0] + b[0] + c[0]} * double{a[1] + b[1] + c[1]};
  };
  const auto area = [](const osg::Pnt3f& a, const osg::Pnt3f& b, const osg::Pnt3f& c) {
    return double{(b - a).cross(c - a)[2]};  // signed: winding counts
  };
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it, ++triangles) {
    areas += area(it.getPosition(0), it.getPosition(1), it.getPosition(2));
    weighted += weight(it.getPosition(0), it.getPosition(1), it.getPosition(2));
  }
  for (UInt32 corner = 0; corner < corners; corner += 3) {
    const osg::Pnt3f p[] = {point_of(vertex_of(corner)), point_of(vertex_of(corner + 1)),
                            point_of(vertex_of(corner + 2))};
    expected_areas += area(p[0], p[1], p[2]);
    expected_weighted += weight(p[0], p[1], p[2]);
  }
  const bool same = triangles == corners / 3 && areas == expected_areas &&
                    weighted == expected_weighted;  // whole numbers below 2^53: exact
  return same ? "" : "the triangles are others";
}

// --- Figures -------------------------------------------------------------------------------------

contest contest_of(layout kind, bool with_normals,
                   const std::function<void(const osg::GeometryPtr&)>& run,
                   const std::function<std::string(const osg::Geometry&)>& fault) {
  const auto from = std::make_shared<scene>(kind);
  const auto geometry = std::make_shared<osg::GeometryPtr>();
  return {.ours = {.prepare = [=] { *geometry = from->geometry(with_normals); },
                   .run = [=] { run(*geometry); },
                   .fault = [=] { return fault(**geometry); }},
          .work = corners * 1e-6};
}

contest open_normals(layout kind) {
  return contest_of(
      kind, false, [](const osg::GeometryPtr& g) { osg::calcVertexNormals(g); },
      [=](const osg::Geometry& g) { return normals_fault(g, kind != layout::none); });
}
contest open_crease(layout kind) {
  return contest_of(
      kind, false, [](const osg::GeometryPtr& g) { osg::calcVertexNormals(g, crease); },
      [](const osg::Geometry& g) { return normals_fault(g, true); });
}
contest open_shared(layout kind) {
  return contest_of(
      kind, true, [](const osg::GeometryPtr& g) { osg::createSharedIndex(g); },
      [](const osg::Geometry& g) {
        if (g.getNormals()->size() != 15) return std::string("normals are there twice, or missing");
        return index_fault(g, 3, vertices);
      });
}
contest open_single(layout kind) {
  return contest_of(
      kind, true, [](const osg::GeometryPtr& g) { osg::createSingleIndex(g); },
      [=](const osg::Geometry& g) {
        return index_fault(g, 1, kind == layout::none ? corners : vertices);
      });
}
contest open_strips() {
  return contest_of(
      layout::single, false, [](const osg::GeometryPtr& g) { osg::createOptimizedPrimitives(g); },
      strips_fault);
}

const morlu::bench::registration figures({
    {"geometry tools", "soup 10M", "normals", "Mcorner/s",
     [] { return open_normals(layout::none); }},
    {"geometry tools", "single 10M", "normals", "Mcorner/s",
     [] { return open_normals(layout::single); }},
    {"geometry tools", "multi 10M", "normals", "Mcorner/s",
     [] { return open_normals(layout::multi); }},
    {"geometry tools", "soup 10M", "crease normals", "Mcorner/s",
     [] { return open_crease(layout::none); }},
    {"geometry tools", "single 10M", "crease normals", "Mcorner/s",
     [] { return open_crease(layout::single); }},
    {"geometry tools", "multi 10M", "crease normals", "Mcorner/s",
     [] { return open_crease(layout::multi); }},
    {"geometry tools", "soup 10M", "shared index", "Mcorner/s",
     [] { return open_shared(layout::none); }},
    {"geometry tools", "single 10M", "shared index", "Mcorner/s",
     [] { return open_shared(layout::single); }},
    {"geometry tools", "soup 10M", "single index", "Mcorner/s",
     [] { return open_single(layout::none); }},
    {"geometry tools", "single 10M", "single index", "Mcorner/s",
     [] { return open_single(layout::single); }},
    {"geometry tools", "multi 10M", "single index", "Mcorner/s",
     [] { return open_single(layout::multi); }},
    {"geometry tools", "single 10M", "strips", "Mcorner/s", [] { return open_strips(); }},
});

}  // namespace
