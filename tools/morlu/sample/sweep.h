#pragma once

#include <vector>

#include <osg/matrix.h>
#include <osg/vector.h>

namespace morlu::sample {

/// A surface of triangles; one normal and one texture coordinate a position.
struct Mesh {
  std::vector<::osg::Pnt3f> positions;
  std::vector<::osg::Vec3f> normals;
  std::vector<::osg::Vec2f> coords;  // metres along the path, metres along the outline
  std::vector<::osg::UInt32> indices;

  /// Adds `other`, moved by a matrix that neither scales nor mirrors.
  void append(const Mesh& other, const ::osg::Matrix& matrix = {});
};

/// A corner of an outline. At a smooth corner the surface rounds over, else it has an edge there.
struct Corner {
  double u, v;
  bool smooth = false;
};

/// A curve in the (u, v) plane. A closed one runs counter-clockwise around the inside; an open one
/// starts and ends on the axis u = 0 and has the inside to its left.
struct Outline {
  std::vector<Corner> corners;
  bool closed = true;
};

/// `segments` unit vectors around the circle, counter-clockwise from (1, 0), by halving the arcs of
/// a triangle or a square: only sums, divisions and square roots, the same bits on every machine.
/// `segments` is 3 or 4 times a power of two.
std::vector<::osg::Vector<double, 2>> circle(unsigned segments);

/// How the turned outline's segments look.
enum class Facets { Round, Flat };

// Closed solids that an outline sweeps, with u along x and v along z at the start.

/// All around the z axis.
Mesh revolve(const Outline& outline, unsigned segments, Facets facets = Facets::Round);
/// A quarter turn around the z axis, from x to y; a closed outline with u > 0.
Mesh bend(const Outline& outline, unsigned segments);
/// Along y, from 0 to `length`; a closed outline.
Mesh extrude(const Outline& outline, double length);

}  // namespace morlu::sample
