// New positions for whole scenes: into a box, about a centre with all transforms baked, near the
// origin.
#include <osg/cores.h>
#include <osg/geometry.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>

#include "geoset/guard.h"
#include "geoset/placement.h"
#include "morlu/ray.h"
#include "optimiser/parameters.h"
#include "primitives/node_walk.h"
#include "primitives/number_text.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::GeometryPtr;
using ::osg::GeoPositionsPtr;
using ::osg::NodePtr;
using ::osg::Pnt3f;

constexpr unsigned axes = 3;

constexpr failure_texts fit_failed{"bad_alloc caught in morlu::osg::transformSceneBB: ",
                                   "Standard exception in morlu::osg::transformSceneBB: ",
                                   "Error occured in morlu::osg::transformSceneBB."};
constexpr failure_texts center_failed{"bad_alloc caught in morlu::osg::centerGeoPositions: ",
                                      "Standard exception in morlu::osg::centerGeoPositions: ",
                                      "Error occured in morlu::osg::centerGeoPositions."};
constexpr failure_texts base_failed{"bad_alloc caught in morlu::osg::baseGeoPositions: ",
                                    "Standard exception in morlu::osg::baseGeoPositions: ",
                                    "Error occured in morlu::osg::baseGeoPositions."};

template <class Work>
void without_exception(const failure_texts& texts, const Work& work) {
  guarded(texts, work, [] {});
}

bool is_transform(const NodePtr& node) {
  return !::osg::Transform::dcast(node->getCore()).isNull();
}

template <class Move>
void move_positions(const GeoPositionsPtr& positions, const Move& move) {
  ::osg::beginEditCP(positions);
  for (::osg::UInt32 i = 0; i < positions->size(); ++i) {
    Pnt3f point = positions->getValue(i);
    for (unsigned axis = 0; axis < axes; ++axis) point[axis] = move(point[axis], axis);
    positions->setValue(point, i);
  }
  ::osg::endEditCP(positions);
}

/// The numbers between colons; what is no number is 0.
std::vector<float> numbers_of(const std::string& text) {
  std::vector<float> numbers;
  for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
    end = std::min(text.find(':', begin), text.size());
    if (end > begin) numbers.push_back(paramToFloat(text.substr(begin, end - begin)));
  }
  return numbers;
}

Pnt3f point_at(const std::vector<float>& numbers, std::size_t first) {
  return {numbers[first], numbers[first + 1], numbers[first + 2]};
}

template <class Tuple>
bool is_finite(const Tuple& tuple) {
  return std::isfinite(tuple[0]) && std::isfinite(tuple[1]) && std::isfinite(tuple[2]);
}
bool is_finite(const ::osg::Matrix& matrix) {
  for (unsigned i = 0; i < 16; ++i)
    if (!std::isfinite(matrix[i])) return false;
  return true;
}

// --- Into a box ----------------------------------------------------------------------------------

/// The same stretch on all axes, then a shift.
struct box_map {
  double scale = std::numeric_limits<double>::infinity();
  ::osg::Vec3d offset;

  /// The lower corner goes to that of the box, and the widest side fills it.
  box_map(const Pnt3f& from_min, const Pnt3f& from_max, const Pnt3f& min, const Pnt3f& max) {
    for (unsigned axis = 0; axis < axes; ++axis) {
      const float wanted = max[axis] - min[axis], extent = from_max[axis] - from_min[axis];
      scale = std::min(scale, double{wanted} / double{extent});
    }
    for (unsigned axis = 0; axis < axes; ++axis)
      offset[axis] = double{min[axis]} - double{from_min[axis]} * scale;
  }
  /// Extents beyond the floats would take all positions into one place.
  bool is_usable() const { return scale > 0 && std::isfinite(scale) && is_finite(offset); }
  float operator()(float value, unsigned axis) const {
    return static_cast<float>(value * scale + offset[axis]);
  }
};

/// Positions of geometry at and below a node, each once; below a geometry nobody is asked.
std::set<GeoPositionsPtr> positions_of(const NodePtr& top) {
  std::set<GeoPositionsPtr> found;
  walk_nodes(top, [&](const NodePtr& node) {
    if (!node->getCore()) return false;
    const auto geometry = ::osg::Geometry::dcast(node->getCore());
    if (geometry && geometry->getPositions()) found.insert(geometry->getPositions());
    return !geometry;
  });
  return found;
}

bool is_box(const Pnt3f& min, const Pnt3f& max) {
  return min[0] < max[0] && min[1] < max[1] && min[2] < max[2] && is_finite(min) && is_finite(max);
}

void fit_into(const NodePtr& node, const Pnt3f& min, const Pnt3f& max) {
  if (!is_box(min, max)) {
    say("morlu::osg::transformSceneBB: No valid Bounding Box given.\n");
    return;
  }
  ::osg::DynamicVolume bounds;
  if (node) node->getWorldVolume(bounds);
  const box_map map(bounds.getMin(), bounds.getMax(), min, max);
  if (!bounds.isValid() || bounds.getScalarVolume() == 0 || !map.is_usable()) {
    say("morlu::osg::transformSceneBB: No valid Scene Bounding Box.\n");
    return;
  }
  const std::set<GeoPositionsPtr> moved = positions_of(node);
  mark_bih(node);  // the last that may fail
  for (const GeoPositionsPtr& positions : moved) move_positions(positions, map);
}

// --- About a centre ------------------------------------------------------------------------------

/// A core that a node is to get. All is made before the first is set, so that memory may run out.
struct new_core {
  NodePtr node;
  ::osg::NodeCorePtr core;

  /// Leaves room for a node in the core's list of nodes, so that setting it can't fail.
  new_core(const NodePtr& of, const ::osg::NodeCorePtr& made) : node(of), core(made) {
    const NodePtr before = ::osg::Node::create();
    before->setCore(core);
    before->setCore(::osg::NullFC);
  }
};

struct placed_node {
  NodePtr node;
  ::osg::Matrix world;
};

using nodes_of_core = std::map<::osg::NodeCorePtr, std::vector<placed_node>>;

/// All nodes with geometry, with their places in the world, and all with a transform.
void collect_places(const NodePtr& top, nodes_of_core& geometry, std::vector<NodePtr>& transforms) {
  const NodePtr parent = top->getParent();
  const ::osg::Matrix above = parent ? parent->getToWorld() : ::osg::Matrix();
  walk_nodes(top, above, [&](const NodePtr& node, ::osg::Matrix& world) {
    if (node->getCore())
      if (const ::osg::Matrix* own = node->getCore()->getLocalMatrix()) world *= *own;
    if (is_transform(node)) transforms.push_back(node);
    if (::osg::Geometry::dcast(node->getCore())) geometry[node->getCore()].push_back({node, world});
    return true;
  });
}

GeometryPtr baked(const GeometryPtr& geometry, const ::osg::Matrix& world,
                  const ::osg::Vec3f& move) {
  const GeometryPtr result = geometry->clone();
  const auto normals = ::osg::GeoNormals3f::dcast(result->getNormals());
  if (normals) placement(world).turn(normals->values());
  if (const GeoPositionsPtr& positions = result->getPositions()) {
    ::osg::beginEditCP(positions);
    for (::osg::UInt32 i = 0; i < positions->size(); ++i)
      positions->setValue(world * positions->getValue(i) + move, i);
    ::osg::endEditCP(positions);
  }
  return result;
}

template <class Tuple>
std::string slashed(const Tuple& tuple) {
  return number_text({tuple[0]}) + '/' + number_text({tuple[1]}) + '/' + number_text({tuple[2]});
}

void center(const NodePtr& node, const std::string& values) {
  nodes_of_core geometry;
  std::vector<NodePtr> transforms;
  collect_places(node, geometry, transforms);
  if (geometry.empty()) return;
  const std::vector<float> numbers = numbers_of(values);
  if (numbers.size() < axes) {
    say("morlu::osg::CenterGeoPositions: String of Center values not valid. Example \"1:2:3\"\n");
    return;
  }
  const Pnt3f new_center = point_at(numbers, 0);
  say("New Model Center: [" + slashed(new_center) + "]\n");
  const ::osg::Vec3f move = new_center - node->getVolume(true).getCenter();
  say("Model will be moved by: [" + slashed(move) + "]\n");
  std::vector<new_core> cores;
  bool is_usable = is_finite(move);
  for (const auto& [core, nodes] : geometry)
    for (const placed_node& each : nodes) {
      is_usable = is_usable && is_finite(each.world);
      cores.emplace_back(each.node, baked(::osg::Geometry::dcast(core), each.world, move));
    }
  if (!is_usable) {
    say("morlu::osg::CenterGeoPositions: No valid Scene Bounding Box.\n");
    return;
  }
  for (const NodePtr& each : transforms) cores.emplace_back(each, ::osg::Group::create());
  for (const new_core& each : cores) each.node->setCore(each.core);
}

// --- Near the origin -----------------------------------------------------------------------------

/// Whether a transform stands above one of the nodes, whose ways up are gone together once.
bool is_any_transformed(const std::vector<NodePtr>& nodes) {
  std::set<NodePtr> seen;
  for (const NodePtr& node : nodes)
    for (auto above = node->getParent(); above && seen.insert(above).second;
         above = above->getParent())
      if (is_transform(above)) return true;
  return false;
}

void base(const NodePtr& node) {
  std::vector<NodePtr> nodes;
  getGeometryNodes(node, nodes, false);
  // A geometry at the top is on the list under a parent of its own.
  if (is_any_transformed(nodes) || is_any_transformed({node})) return;
  std::set<GeometryPtr> cores;
  for (const NodePtr& each : nodes) cores.insert(::osg::Geometry::dcast(each->getCore()));

  constexpr float largest = std::numeric_limits<float>::max();
  Pnt3f lowest{largest, largest, largest};
  const auto for_each_property = [&](const auto& work) {
    for (const GeometryPtr& core : cores)
      if (core->getPositions()) work(core->getPositions());
  };
  for_each_property([&](const GeoPositionsPtr& positions) {
    for (::osg::UInt32 i = 0; i < positions->size(); ++i) {
      const Pnt3f point = positions->getValue(i);
      for (unsigned axis = 0; axis < axes; ++axis)
        if (std::isfinite(point[axis])) lowest[axis] = std::min(lowest[axis], point[axis]);
    }
  });
  for (unsigned axis = 0; axis < axes; ++axis) lowest[axis] = std::floor(lowest[axis]);
  if (!cores.empty()) mark_bih(node);  // the last that may fail
  for_each_property([&](const GeoPositionsPtr& positions) {
    move_positions(positions, [&](float value, unsigned axis) { return value - lowest[axis]; });
  });
}

}  // namespace

void transformSceneBB(NodePtr node, const Pnt3f& min, const Pnt3f& max) {
  without_exception(fit_failed, [&] { fit_into(node, min, max); });
}

void transformSceneBB(NodePtr node, float size) {
  const float half = size / 2;
  if (half <= 0) return;
  transformSceneBB(std::move(node), {-half, -half, -half}, {half, half, half});
}

void transformSceneBB(NodePtr node, std::string values) {
  without_exception(fit_failed, [&] {
    const std::vector<float> numbers = numbers_of(values);
    if (numbers.size() >= 2 * axes)
      fit_into(node, point_at(numbers, 0), point_at(numbers, axes));
    else
      say("morlu::osg::transformSceneBB: String of Min/Max values not valid. Example "
          "\"1:2:3:4:5:6\"\n");
  });
}

void centerGeoPositions(NodePtr node, std::string values) {
  if (!node) return;
  without_exception(center_failed, [&] { center(node, values); });
}

void baseGeoPositions(NodePtr node) {
  if (!node) return;
  without_exception(base_failed, [&] { base(node); });
}

}  // namespace morlu::osg
