#pragma once

#include <osg/geometry.h>

#include <optional>
#include <span>

#include "occlusion/occlusion.h"
#include "occlusion/scene_trace.h"

/// What bake, gut-out and hull have in common: geometry whose vertices can be sampled, the scene
/// that they are sampled in, and the walk over them.
namespace morlu::osg {

// --- Geometry ------------------------------------------------------------------------------------

/// Null for null and for nodes without geometry.
::osg::GeometryPtr geometry_at(const ::osg::NodePtr& node);

/// Of nodes with one core all but the first get a copy of their own, which shares properties.
void part_shared_cores(std::span<const ::osg::NodePtr> nodes);

/// All properties run in step afterwards, vertex for vertex.
void make_single_vertices(const ::osg::GeometryPtr& geometry);
/// The same, with a new normal for each vertex of a triangle; others keep theirs.
void make_vertex_normals(const ::osg::GeometryPtr& geometry);

// --- Scene ---------------------------------------------------------------------------------------

/// How values are taken.
struct occlusion_query {
  int samples = 1;
  float distance = 0;
  bool two_sided = false;
};

/// A copy of the geometry below a node, with trees; later edits don't reach it. Tells of its making
/// on standard output.
class occlusion_scene {
 public:
  explicit occlusion_scene(const ::osg::NodePtr& node);

  /// Of the node's volume.
  float diagonal() const { return diagonal_; }

  void sample(std::span<const sample_point> points, const occlusion_query& query,
              std::span<float> values) {
    sampler_->occlusion_at_many(points, query.samples, query.distance, query.two_sided, values);
  }

 private:
  ray_scene objects_;
  bih_tree<float> top_tree_;
  std::optional<occlusion_sampler> sampler_;
  float diagonal_ = 0;
};

// --- Vertices ------------------------------------------------------------------------------------

/// The entries of a geometry's positions and normals, where the node places them in the world.
class placed_vertices {
 public:
  /// `node` has a geometry with positions, and normals in step if any.
  explicit placed_vertices(const ::osg::NodePtr& node);

  std::uint32_t size() const { return positions_.size(); }
  math::vector3 position(std::uint32_t vertex) const;
  /// Of unit length, or as short as it is below 1e-6; zeros without normals.
  math::vector3 normal(std::uint32_t vertex) const;
  /// Before they are placed.
  const ::osg::GeoPositions& own_positions() const { return positions_; }

 private:
  const ::osg::GeoPositions& positions_;
  const ::osg::GeoNormals* normals_;
  const ::osg::Matrix to_world_;
};

enum class rays_lean { to_the_normal, nowhere };

/// A value for each vertex: that of the first vertex at the same position of the geometry, however
/// different their normals are.
std::vector<float> values_by_position(occlusion_scene& scene, const placed_vertices& vertices,
                                      rays_lean lean, const occlusion_query& query);

// --- Messages ------------------------------------------------------------------------------------

void say_without_positions();

}  // namespace morlu::osg
