#pragma once

#include <osg/primitive_type.h>

#include "geoset/attribute_table.h"

/// What triangle, line and point sets differ in.
namespace morlu::osg {

using point = ::osg::Point<float, 3>;

template <class Set>
struct element_of;

template <>
struct element_of<osg_geoset> {
  static constexpr unsigned corners = 3;
  static constexpr set_kind kind = in_triangles;
  static constexpr auto primitive = ::osg::kTriangles;
  static constexpr bool makes_normals = true;
  static constexpr const char* index_error =
      "Morlu::osg::osg_geoset: Index Error in PrepareTriangle.";
  static constexpr const char* write_error = "Bad Alloc in Geoset while creating new Tris.";
};

template <>
struct element_of<osg_line_geoset> {
  static constexpr unsigned corners = 2;
  static constexpr set_kind kind = in_lines;
  static constexpr auto primitive = ::osg::kLines;
  static constexpr bool makes_normals = false;
  static constexpr const char* index_error = "Morlu::osg::osg_line_geoset: Index Error in setLine.";
  static constexpr const char* write_error = "Bad Alloc in Geoset while creating new Line.";
};

template <>
struct element_of<osg_point_geoset> {
  static constexpr unsigned corners = 1;
  static constexpr set_kind kind = in_points;
  static constexpr auto primitive = ::osg::kPoints;
  static constexpr bool makes_normals = false;
  static constexpr const char* index_error =
      "Morlu::osg::osg_point_geoset: Index Error in PrepareTriangle.";
};

template <class Set>
inline constexpr unsigned corners_of = element_of<Set>::corners;
template <class Set>
inline constexpr const auto& rows_of = attributes_of<element_of<Set>::kind>;

template <class Set>
inline constexpr bool has_bounds = requires(Set& set) {
  set.min_bounds;
};
template <class Set>
inline constexpr bool has_triangles = requires(Set& set) {
  set.triangles;
};
template <class Set>
inline constexpr bool has_split_cache = requires(Set& set) {
  set.split_cache;
};

template <class Set>
using corner_points = std::array<point, corners_of<Set>>;

/// The number of the element's first vertex. Properties never have 2^32 entries.
template <class Set>
std::uint32_t first_vertex(const Set&, std::uint64_t element) {
  return static_cast<std::uint32_t>(element * corners_of<Set>);
}

template <class Set>
corner_points<Set> positions_of(const Set& set, std::uint64_t element) {
  const ::osg::GeoPositions& positions = *set.geometry->getPositions();
  corner_points<Set> result;
  for (unsigned k = 0; k < corners_of<Set>; ++k)
    result[k] = positions.getValue(first_vertex(set, element) + k);
  return result;
}

}  // namespace morlu::osg
