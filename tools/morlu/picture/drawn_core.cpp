// A ray ends where it leaves the box of a tree, so that a surface in the side of the box is met or
// missed as that point is rounded. Specks, each a triangle of nearly no area, stand apart from the
// rest and keep the sides of the box away from it.

#include "picture/drawn_core.h"

#include <algorithm>

#include "boxes.h"
#include "morlu/ray.h"

namespace morlu::program {
namespace {

using ::osg::Attribute;
using ::osg::GeometryPtr;
using ::osg::GeoPositions3fPtr;
using ::osg::NodePtr;
using ::osg::Pnt3d;
using ::osg::Pnt3f;
using ::osg::UInt32;
using ::osg::Vec3d;

using Corners = std::array<std::size_t, 3>;

Pnt3f in_single(const Pnt3d& p) {
  return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
}

/// From `start` along the diagonal of space. The corners are apart by more than what makes a
/// triangle unusable.
void add_speck(const Pnt3d& start, double size, const GeoPositions3fPtr& positions) {
  const double step = std::max(size, 4e-6);
  for (const double steps : {0.0, 1.0, 2.0})
    positions->push_back(in_single(start + Vec3d(1, 1, 1) * (steps * step)));
}

/// Those of the core, then those of the specks.
GeoPositions3fPtr positions_with_specks(const DrawnCore& core) {
  const auto& source = *core.source->getPositions();
  const auto positions = ::osg::GeoPositions3f::create();
  positions->resize(source.size());
  for (UInt32 i = 0; i < source.size(); ++i) positions->setValue(source.getValue(i), i);
  const double apart = 0.02 * diagonal_of(core.box) + 1e-5 * largest_coordinate(core.box);
  const Vec3d away = Vec3d(1, 1, 1) * apart;
  add_speck(core.box.min - away, apart / 8, positions);
  add_speck(core.box.max + away, apart / 8, positions);
  return positions;
}

/// The triangles with their corners in that order, then the specks.
GeometryPtr with_corners(const DrawnCore& core, const Corners& order,
                         const GeoPositions3fPtr& positions) {
  const auto indices = ::osg::GeoIndicesUI32::create();
  indices->resize(3 * core.triangles.size());
  auto* entry = indices->values().data();
  for (const auto& triangle : core.triangles) {
    for (const std::size_t corner : order)
      *entry++ = static_cast<UInt32>(core.layout.getIndex(Attribute::Positions, triangle[corner]));
  }
  for (UInt32 vertex = core.source->getPositions()->size(); vertex < positions->size(); ++vertex)
    indices->push_back(vertex);
  const auto types = ::osg::GeoPTypesUI8::create();
  types->push_back(::osg::kTriangles);
  const auto lengths = ::osg::GeoPLengthsUI32::create();
  lengths->push_back(indices->size());

  const auto geometry = ::osg::Geometry::create();
  ::osg::beginEditCP(geometry);
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setIndices(indices);
  geometry->setPositions(positions);
  ::osg::endEditCP(geometry);
  return geometry;
}

NodePtr make_target(const GeometryPtr& geometry) {
  const NodePtr node = ::osg::Node::create();
  ::osg::beginEditCP(node);
  node->setCore(geometry);
  ::osg::endEditCP(node);
  node->updateVolume();
  osg::attach_bih(node);
  return node;
}

}  // namespace

double DrawnCore::run_up() const {
  return 0.01 + 1e-6 * largest_coordinate(box) / diagonal_of(box);
}

DrawnCore make_drawn_core(const GeometryPtr& source) {
  DrawnCore core{source, ::osg::IndexLayout(*source), {}, {}, {}, {}};
  for (auto it = source->beginTriangles(); !it.isAtEnd(); ++it) {
    const std::array<Pnt3f, 3> corners{it.getPosition(0), it.getPosition(1), it.getPosition(2)};
    if (osg::is_rogue(corners[0], corners[1], corners[2])) continue;
    if (core.triangles.empty()) core.box = {in_double(corners[0]), in_double(corners[0])};
    for (const Pnt3f& corner : corners) widen(core.box, in_double(corner));
    core.triangles.push_back({it.getVertex(0), it.getVertex(1), it.getVertex(2)});
  }
  if (core.triangles.empty()) return core;
  const auto positions = positions_with_specks(core);
  core.fronts = make_target(with_corners(core, {0, 1, 2}, positions));
  core.backs = make_target(with_corners(core, {0, 2, 1}, positions));
  return core;
}

}  // namespace morlu::program
