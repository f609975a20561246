#include "ray/triangle_set.h"

#include "primitives/rogue.h"

namespace morlu {

bounding_box compute_bounding_box(const osg::triangle_set& set) {
  bounding_box box = bounding_box::empty();
  for (const triangle& each : set.all())
    for (const math::vector3& corner : each.corners) box.widen(corner);
  widen_flat_axes(box);
  return box;
}

namespace osg {

std::uint32_t collect_triangles(const ::osg::NodePtr& node, triangle_set& set) {
  if (!node || !node->getCore()) return 0;
  if (!(node->getCore()->getType() == ::osg::Geometry::getClassType())) return 0;
  const auto geometry = ::osg::Geometry::dcast(node->getCore());
  const int usable = count_triangles(geometry);
  if (usable < 1) return 0;
  set.resize(static_cast<std::uint64_t>(usable));
  if (set.count == 0) return 0;

  std::uint32_t rogue = 0;
  std::uint64_t place = 0;
  for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
    const ::osg::Pnt3f p[3] = {it.getPosition(0), it.getPosition(1), it.getPosition(2)};
    if (rogue_filter::is_rogue(p[0], p[1], p[2])) {
      ++rogue;
      continue;
    }
    if (place == set.count) break;  // more than an int counts
    triangle& to = set.triangles[place++];
    for (int corner = 0; corner < 3; ++corner) osg::set(to.corners[corner], p[corner]);
  }
  return rogue;
}

}  // namespace osg
}  // namespace morlu
