#pragma once

#include <cmath>

#include "osg/cores.h"
#include "osg/geometry.h"

namespace morlu::bench {

using osg::UInt32;

/// A hilly sheet of `side` x `side` squares of two triangles, with one index a corner: a vertex is
/// used six times.
struct indexed_sheet {
  UInt32 side;

  UInt32 row() const { return side + 1; }
  UInt32 triangles() const { return 2 * side * side; }
  UInt32 vertex_of(UInt32 corner) const {
    const UInt32 offsets[] = {0, 1, row() + 1, 0, row() + 1, row()};
    const UInt32 square = corner / 6;
    return square / side * row() + square % side + offsets[corner % 6];
  }
  osg::Pnt3f point_of(UInt32 vertex) const {
    const UInt32 x = vertex % row(), y = vertex / row();
    return {x, y, 2 * std::sin(0.05f * x) * std::cos(0.07f * y)};
  }

  osg::GeometryPtr positions_only() const {
    const auto types = osg::GeoPTypesUI8::create();
    types->push_back(osg::kTriangles);
    const auto lengths = osg::GeoPLengthsUI32::create();
    lengths->push_back(3 * triangles());
    const auto positions = osg::GeoPositions3f::create();
    for (UInt32 i = 0; i < row() * row(); ++i) positions->push_back(point_of(i));
    const auto indices = osg::GeoIndicesUI32::create();
    for (UInt32 i = 0; i < 3 * triangles(); ++i) indices->push_back(vertex_of(i));

    const auto geometry = osg::Geometry::create();
    geometry->setTypes(types);
    geometry->setLengths(lengths);
    geometry->setPositions(positions);
    geometry->setIndices(indices);
    return geometry;
  }
  static void add_normals(const osg::GeometryPtr& geometry) {
    const auto normals = osg::GeoNormals3f::create();
    for (UInt32 i = 0; i < geometry->getPositions()->size(); ++i) {
      const osg::Pnt3f p = geometry->getPositions()->getValue(i);
      osg::Vec3f normal(-std::cos(0.05f * p[0]), std::sin(0.07f * p[1]), 10);
      normal.normalize();
      normals->push_back(normal);
    }
    geometry->setNormals(normals);
  }
  static void add_colors(const osg::GeometryPtr& geometry) {
    const auto colors = osg::GeoColors3f::create();
    for (UInt32 i = 0; i < geometry->getPositions()->size(); ++i)
      colors->push_back({0.5f, static_cast<float>(i % 256) / 255, 0.25f});
    geometry->setColors(colors);
  }
  static void add_coords(const osg::GeometryPtr& geometry) {
    const auto coords = osg::GeoTexCoords2f::create();
    for (UInt32 i = 0; i < geometry->getPositions()->size(); ++i) {
      const osg::Pnt3f p = geometry->getPositions()->getValue(i);
      coords->push_back({0.01f * p[0], 0.01f * p[1]});
    }
    geometry->setTexCoords(coords);
  }

  // Sides with about so many triangles.
  static constexpr UInt32 million = 707;
  static constexpr UInt32 ten_millions = 2236;
};

}  // namespace morlu::bench
