#pragma once

#include <vector>

#include "osg/geometry.h"

/// Puts new normals into a geometry without changing its kind of index layout.
///
/// `object` is the normals object to fill, null for a new one. What these read of the geometry they
/// read before they write.
namespace osg::detail {

/// A normal for each running vertex that there is data for.
struct VertexNormals {
  std::vector<Vec3f> values;  // the normal before, where no triangle gave one
  std::vector<bool> is_new;   // a triangle gave the normal
  std::vector<bool> differs;  // triangles gave several

  /// Takes the normals that the vertices have now.
  explicit VertexNormals(const IndexLayout& layout);
  void give(UInt32 vertex, const Vec3f& normal);
};

/// The normal that entry `index` of `normals` gives; zeros without normals.
Vec3f normal_at(const GeoNormals* normals, UInt32 index);

/// For layouts in which the normals' entries are found as they are in `values`.
void store_entries(Geometry& geometry, GeoNormals3fPtr object, const std::vector<Vec3f>& values);

/// For an index mapping: each distinct normal once, under a column of the normals' own.
void store_column(Geometry& geometry, const GeoNormals3fPtr& object,
                  const std::vector<Vec3f>& values);

/// For one index column: a vertex with several normals is split in all attributes. The first normal
/// keeps the index, the others are appended in first-use order.
void store_split_vertices(Geometry& geometry, const GeoNormals3fPtr& object,
                          const VertexNormals& normals);

}  // namespace osg::detail
