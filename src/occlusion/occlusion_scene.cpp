// Sampling the vertices of a scene's geometry. Values of one position are taken once: positions are
// numbered in the order of their first vertex, sampled all together, and the values go back to the
// vertices.

#include "occlusion/occlusion_scene.h"

#include <osg/geometry_tools.h>

#include <cstring>
#include <set>
#include <vector>

#include "finishing/first_use_numbers.h"
#include "morlu/finishing.h"
#include "primitives/say.h"

namespace morlu::osg {

using math::vector3;
using ::osg::Attribute;
using ::osg::GeometryPtr;
using ::osg::NodePtr;

// --- Geometry ------------------------------------------------------------------------------------

GeometryPtr geometry_at(const NodePtr& node) {
  return node ? ::osg::Geometry::dcast(node->getCore()) : ::osg::NullFC;
}

void part_shared_cores(std::span<const NodePtr> nodes) {
  std::set<GeometryPtr> taken;
  for (const NodePtr& node : nodes) {
    const GeometryPtr geometry = geometry_at(node);
    if (!taken.insert(geometry).second)
      node->setCore(::osg::Geometry::dcast(geometry->shallowCopy()));
  }
}

namespace {

/// The library's builders make one primitive of triangles and leave no index for attributes that
/// they don't know.
bool loses_nothing_as_triangles(const ::osg::Geometry& geometry) {
  if (geometry.beginTriangles().isAtEnd() || !geometry.beginLines().isAtEnd()) return false;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it)
    if (it.getType() == ::osg::kPoints && it.getLength() > 0) return false;
  for (std::uint32_t i = 0; i < ::osg::kAttributeCount; ++i) {
    const Attribute attribute = ::osg::attributeAt(i);
    const auto* property = geometry.getAttribute(attribute);
    const bool known = attribute <= Attribute::Colors || attribute == Attribute::TexCoords ||
                       attribute == Attribute::TexCoords7;
    if (!known && property && !property->empty()) return false;
  }
  return true;
}

void make_shared_index(const GeometryPtr& geometry) {
  if (loses_nothing_as_triangles(*geometry))
    morlu::osg::createSharedIndex(geometry);
  else
    ::osg::createSharedIndex(geometry);
}

void make_single_index(const GeometryPtr& geometry) {
  if (loses_nothing_as_triangles(*geometry))
    morlu::osg::createSingleIndex(geometry);
  else
    ::osg::createSingleIndex(geometry);
}

}  // namespace

void make_single_vertices(const GeometryPtr& geometry) {
  make_shared_index(geometry);
  make_single_index(geometry);
}

void make_vertex_normals(const GeometryPtr& geometry) {
  const auto& normals = geometry->getNormals();
  if (normals && normals->empty()) geometry->setNormals(::osg::NullFC);  // it may be in others too
  make_shared_index(geometry);
  ::osg::calcVertexNormals(geometry);
  make_single_index(geometry);
}

// --- Scene ---------------------------------------------------------------------------------------

namespace {

float diagonal_of(const NodePtr& node) {
  ::osg::Pnt3f low, high;
  node->getVolume().getBounds(low, high);
  vector3 from, to;
  set(from, low);
  set(to, high);
  return math::distance(to, from);
}

}  // namespace

occlusion_scene::occlusion_scene(const NodePtr& node) {
  say("Prepare Geoset: \n");
  objects_.with_objects = true;
  objects_.setup(node, {5, 100});
  say("\n");
  build_top_tree(objects_, top_tree_);
  sampler_.emplace(top_tree_, objects_);
  node->updateVolume();
  diagonal_ = diagonal_of(node);
  say("Calc Ambient Occlusion: \n");
}

// --- Vertices ------------------------------------------------------------------------------------

placed_vertices::placed_vertices(const NodePtr& node)
    : positions_(*geometry_at(node)->getPositions()),
      normals_(geometry_at(node)->getNormals().get()),
      to_world_(node->getToWorld()) {}

vector3 placed_vertices::position(std::uint32_t vertex) const {
  vector3 placed;
  set(placed, to_world_ * positions_.getValue(vertex));
  return placed;
}

vector3 placed_vertices::normal(std::uint32_t vertex) const {
  if (!normals_ || vertex >= normals_->size()) return {0, 0, 0};
  constexpr float too_short = 1e-6f;
  vector3 placed;
  set(placed, to_world_ * normals_->getValue(vertex));
  return math::length(placed) < too_short ? placed : math::unit(placed);
}

namespace {

/// Equal words for positions with equal coordinates: both zeros are one value. A NaN equals one of
/// the same bits only.
void write_key(const ::osg::Pnt3f& position, std::uint32_t* words) {
  for (unsigned axis = 0; axis < 3; ++axis) {
    const float coordinate = position[axis] + 0.0f;  // -0 becomes 0
    std::memcpy(words + axis, &coordinate, sizeof(coordinate));
  }
}

/// Numbers the positions in the order of their first vertices, which it returns.
std::vector<std::uint32_t> number_positions(const ::osg::GeoPositions& positions,
                                            std::vector<std::uint32_t>& number_of_vertex) {
  number_of_vertex.resize(positions.size());
  return number_keys<2>(
      3, positions.size(), positions.size(), {number_of_vertex.data()},
      [&](std::size_t begin, std::size_t end, std::uint32_t* rows, std::size_t stride) {
        for (std::size_t i = begin; i < end; ++i, rows += stride)
          write_key(positions.getValue(static_cast<std::uint32_t>(i)), rows);
      });
}

}  // namespace

std::vector<float> values_by_position(occlusion_scene& scene, const placed_vertices& vertices,
                                      rays_lean lean, const occlusion_query& query) {
  std::vector<std::uint32_t> number_of_vertex;
  const auto first = number_positions(vertices.own_positions(), number_of_vertex);
  std::vector<sample_point> points;
  points.reserve(first.size());
  for (const std::uint32_t vertex : first)
    points.push_back({vertices.position(vertex), lean == rays_lean::to_the_normal
                                                     ? vertices.normal(vertex)
                                                     : vector3{0, 0, 0}});
  std::vector<float> value_of_number(points.size());
  scene.sample(points, query, value_of_number);
  std::vector<float> values;
  values.reserve(vertices.size());
  for (const std::uint32_t number : number_of_vertex) values.push_back(value_of_number[number]);
  return values;
}

// --- Messages ------------------------------------------------------------------------------------

void say_without_positions() {
  say("Positions are NullFC. Skipping this Geometry.\n");
}

}  // namespace morlu::osg
