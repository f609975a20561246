// The one filter that decides which triangles geometry code works on.
#include "primitives/rogue.h"

#include <osg/geometry.h>
#include <osg/primitive_iterators.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace morlu::osg {

bool is_rogue(const ::osg::Point<float, 3>& p0, const ::osg::Point<float, 3>& p1,
              const ::osg::Point<float, 3>& p2) {
  return rogue_filter::is_rogue(p0, p1, p2);
}

int count_triangles(const ::osg::GeometryPtr& geo) {
  if (!geo) return 0;
  std::uint64_t usable = 0;
  for (auto triangle = geo->beginTriangles(); !triangle.isAtEnd(); ++triangle) {
    usable += !rogue_filter::is_rogue(triangle.getPosition(0), triangle.getPosition(1),
                                      triangle.getPosition(2));
  }
  constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<int>::max());
  return static_cast<int>(std::min(usable, most));
}

}  // namespace morlu::osg
