#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "osg/geometry.h"

namespace morlu::test {

/// What a corner shows, whatever the index layout: the values of all attributes, bit by bit, with
/// -0.0 as 0.0.
using corner = std::vector<std::uint32_t>;

/// What the iterators deliver of a geometry, corner by corner.
struct surface {
  std::vector<std::array<corner, 3>> triangles;
  std::vector<std::array<corner, 2>> lines;
  std::vector<corner> points;
};

enum class normals { compared, left_out };

surface surface_of(const ::osg::GeometryPtr& geometry, normals use = normals::compared);

/// The same triangles, lines and points with the same corners in the same order.
void expect_same_surface(const surface& before, const surface& after);

/// The same triangles and winding, in any order and from any corner on; the same lines and points.
void expect_same_triangles(const surface& before, const surface& after);

}  // namespace morlu::test
