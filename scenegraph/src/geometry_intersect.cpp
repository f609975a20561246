// The triangle test compares signs of triple products, one an edge, as in S. Woop, C. Benthin and
// I. Wald, "Watertight ray/triangle intersection" (2013), but without its shear and in double. Two
// triangles that share an edge compute the same product for it, with opposite signs, so no ray
// slips between them.

#include <cmath>

#include "osg/geometry.h"
#include "osg/intersect_action.h"

namespace osg {
namespace {

Vec3d widened(const Vec3f& v) {
  return {v[0], v[1], v[2]};
}

Vec3d from_to(const Pnt3f& from, const Pnt3f& to) {
  return {Real64{to[0]} - from[0], Real64{to[1]} - from[1], Real64{to[2]} - from[2]};
}

struct NearestTriangle {
  const Line& line;
  const Vec3d direction = widened(line.getDirection());
  const Real64 direction_square = direction.dot(direction);
  Real64 t = INFINITY;
  Int32 index = -1;
  Vec3d normal = {};

  /// Takes the triangle if it is met nearer than what was met before. A plane that holds the line,
  /// and what isn't finite, end as a NaN and so as no hit.
  void test(const Pnt3f& p0, const Pnt3f& p1, const Pnt3f& p2, Int32 number) {
    const Vec3d a = from_to(line.getPosition(), p0);
    const Vec3d b = from_to(line.getPosition(), p1);
    const Vec3d c = from_to(line.getPosition(), p2);
    const Real64 u = direction.dot(c.cross(b));  // times 6: volume over the edge that faces p0
    const Real64 v = direction.dot(a.cross(c));
    const Real64 w = direction.dot(b.cross(a));
    const bool inside = (u >= 0 && v >= 0 && w >= 0) || (u <= 0 && v <= 0 && w <= 0);
    const Real64 sum = u + v + w;
    if (!inside) return;
    const Vec3d point = a * (u / sum) + b * (v / sum) + c * (w / sum);
    const Real64 distance = point.dot(direction) / direction_square;
    if (!(distance >= 0 && distance < t)) return;
    t = distance;
    index = number;
    normal = (b - a).cross(c - a);
  }
};

}  // namespace

Action::ResultE Geometry::intersect(Action* action) const {
  auto* ray = dynamic_cast<IntersectAction*>(action);
  const NodePtr node = ray ? ray->getActNode() : NodePtr();
  if (!node) return Action::Continue;
  const Line& line = ray->getLine();
  const DynamicVolume volume = node->getVolume();
  if (volume.isValid() && !volume.intersect(line)) return Action::Skip;

  NearestTriangle nearest{line};
  const TriangleIterator end = endTriangles();
  for (TriangleIterator it = beginTriangles(); it != end; ++it)
    nearest.test(it.getPosition(0), it.getPosition(1), it.getPosition(2),
                 static_cast<Int32>(it.getIndex()));
  if (nearest.index < 0 || nearest.t > std::numeric_limits<Real32>::max()) return Action::Continue;
  const Vec3d unit = nearest.normal / nearest.normal.length();
  ray->setHit(static_cast<Real32>(nearest.t), node, nearest.index,
              Vec3f(unit[0], unit[1], unit[2]));
  return Action::Continue;
}

}  // namespace osg
