#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>

#include "osg/geometry.h"
#include "osg/material.h"

namespace morlu::test {

/// What stays of a surface however it is cut, moved between cores or put in another order: area by
/// material and by id, and the box, in double precision.
struct surface_measure {
  using filter = std::function<bool(const ::osg::Pnt3f&, const ::osg::Pnt3f&, const ::osg::Pnt3f&)>;

  std::map<::osg::MaterialPtr, double> area_of_material;
  std::map<float, double> area_of_id;  // first component of TexCoords7, which all corners share
  std::array<double, 3> low{1e300, 1e300, 1e300}, high{-1e300, -1e300, -1e300};
  std::size_t triangles = 0;
  std::size_t left_out = 0;   // by the filter
  std::size_t mixed_ids = 0;  // triangles whose corners have different ids

  /// The triangles of a geometry as they stand under `world`; `is_left_out` is asked of them there.
  void add(const ::osg::GeometryPtr& geometry, const ::osg::MaterialPtr& material,
           const ::osg::Matrix& world, const filter& is_left_out);
};

/// Areas and extents may differ by `tolerance` of themselves; numbers of triangles may be others.
void expect_same_measure(const surface_measure& before, const surface_measure& after,
                         double tolerance);

}  // namespace morlu::test
