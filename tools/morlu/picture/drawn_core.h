#pragma once

#include <array>
#include <vector>

#include <osg/geometry.h>

#include "boxes.h"

namespace morlu::program {

/// The triangles of a geometry core that rays can meet.
struct DrawnCore {
  ::osg::GeometryPtr source;
  ::osg::IndexLayout layout;                            // of `source`
  std::vector<std::array<::osg::UInt32, 3>> triangles;  // running vertices of its usable triangles
  Box box;
  /// What rays are shot at: nodes with these triangles, by the same numbers, and, as rays meet
  /// front faces only, with their backs. Both carry their trees; null if there is no triangle. They
  /// hold some small ones more, with higher numbers, at which a ray should see nothing.
  ::osg::NodePtr fronts, backs;

  /// How far before the box a ray has to start, as a share of the box's diagonal, so that rounding
  /// its origin to floats doesn't take it past a surface in the box's side.
  double run_up() const;
};

/// Collects the triangles and builds the trees: O(n log n) time.
DrawnCore make_drawn_core(const ::osg::GeometryPtr& source);

}  // namespace morlu::program
