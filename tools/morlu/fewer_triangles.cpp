#include "fewer_triangles.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <utility>

#include <osg/geometry_tools.h>
#include <osg/node.h>

#include "morlu/finishing.h"
#include "morlu/primitives.h"
#include "output_to_error.h"

namespace morlu::program {
namespace {

using ::osg::GeometryPtr;

std::int64_t triangles_of(const GeometryPtr& geometry) {
  return osg::count_triangles(geometry);
}

/// The power of two that makes edges about as long on average as their vertices have uses: what is
/// far shorter would be chosen by uses alone, so that wide surfaces of few triangles go first.
int exponent_for(const GeometryPtr& geometry) {
  constexpr int exponent_wanted = 3;
  double sum = 0;
  std::int64_t edges = 0;
  for (auto at = geometry->beginTriangles(); !at.isAtEnd(); ++at)
    for (const auto& [from, to] : {std::pair{0, 1}, {1, 2}, {2, 0}}) {
      const auto way = at.getPosition(to) - at.getPosition(from);
      const double length = std::hypot<double>(way[0], way[1], way[2]);
      if (!std::isfinite(length)) continue;
      sum += length;
      ++edges;
    }
  return sum > 0 ? exponent_wanted - std::ilogb(sum / static_cast<double>(edges)) : 0;
}

/// By new positions: the old ones may be another geometry's too.
void scale_positions(const GeometryPtr& geometry, int exponent) {
  const auto& from = geometry->getPositions();
  const auto to = ::osg::GeoPositions3f::create();
  to->resize(from->size());
  for (::osg::UInt32 i = 0; i < from->size(); ++i) {
    auto position = from->getValue(i);
    for (::osg::UInt32 k = 0; k < 3; ++k) position[k] = std::ldexp(position[k], exponent);
    to->setValue(position, i);
  }
  geometry->setPositions(to);
}

/// One call for one wish.
class Passes {
 public:
  Passes(const std::string& name, unsigned wanted) : name_(name), wanted_(wanted) {}

  /// Each place has one normal meanwhile: triangles would come apart where normals differ, and they
  /// get new ones in the end.
  GeometryPtr simplified(const GeometryPtr& from, std::int64_t target) const {
    const auto copy = ::osg::Geometry::dcast(from->shallowCopy());
    copy->setNormals(::osg::NullFC);
    ::osg::calcVertexNormals(copy, std::numbers::pi_v<float>);
    const auto node = ::osg::Node::create();
    ::osg::setName(node, name_);
    node->setCore(copy);
    const int exponent = exponent_for(from);
    scale_positions(copy, exponent);
    const OutputToError messages_aside;
    GeometryPtr made = osg::simplifyGeometry(node, static_cast<unsigned>(target));
    std::cout << std::endl;
    if (made) scale_positions(made, -exponent);
    return made;
  }

  std::int64_t next_target(const GeometryPtr& from) const {
    return std::max(wanted_, triangles_of(from) * percent_kept / 100);
  }

  /// By halving the range of targets above `low`, which gives `made`.
  GeometryPtr nearest(const GeometryPtr& from, std::int64_t low, GeometryPtr made) const {
    std::int64_t high = triangles_of(from);
    GeometryPtr best = distance(made) < distance(from) ? made : from;
    for (int step = 0; step < 8 && distance(best) > wanted_ / 50; ++step) {
      const std::int64_t target = low + (high - low) / 2;
      if (target == low) break;
      made = simplified(from, target);
      if (distance(made) < distance(best)) best = made;
      (triangles_of(made) < wanted_ ? low : high) = target;
    }
    return best;
  }

 private:
  /// From nothing there is no way back.
  std::int64_t distance(const GeometryPtr& geometry) const {
    const std::int64_t count = triangles_of(geometry);
    return count == 0 ? std::numeric_limits<std::int64_t>::max() : std::abs(count - wanted_);
  }

  static constexpr int percent_kept =
      95;  // of the edges, whose collapse takes a fifth of triangles

  const std::string name_;
  const std::int64_t wanted_;
};

}  // namespace

GeometryPtr fewer_triangles(const GeometryPtr& source, const std::string& name, unsigned wanted) {
  const Passes passes(name, wanted);
  GeometryPtr best = source;
  while (triangles_of(best) > wanted) {
    const std::int64_t target = passes.next_target(best);
    const GeometryPtr made = passes.simplified(best, target);
    if (triangles_of(made) < wanted) {
      best = passes.nearest(best, target, made);
      break;
    }
    const bool is_worth_it = 100 * triangles_of(made) <= 99 * triangles_of(best);
    best = made;
    if (!is_worth_it) break;
  }
  return best == source ? GeometryPtr() : best;
}

}  // namespace morlu::program
