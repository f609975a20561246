#pragma once

#include <osg/node.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ray/stream_trace.h"
#include "ray/vector_ops.h"

/// Triangles and rays that the benchmarks of rays and collisions measure with.
namespace morlu::bench {

using math::vector3;

/// An indexed triangle mesh; faces run counter-clockwise as seen from their front.
struct mesh {
  std::vector<vector3> points;
  std::vector<std::array<std::uint32_t, 3>> faces;

  vector3 corner(std::size_t face, std::size_t k) const { return points[faces[face][k]]; }
  /// The box's lowest corner (0) and highest (1).
  std::array<vector3, 2> bounds() const;
  /// Of the box.
  float diagonal() const;
};

/// 20 * 4^level triangles on the unit sphere.
mesh make_icosphere(int level);

/// Hills over a square of `side` * `side` quads, two triangles each, z up.
mesh make_terrain(std::uint32_t side);

/// All triangles below `root` in world space, equal positions made one. Windings below mirroring
/// transforms are turned, so that fronts stay fronts.
mesh flatten(const ::osg::NodePtr& root);

/// A node with a geometry of its own.
::osg::NodePtr make_node(const mesh& from);

struct named_mesh {
  std::string name;
  std::function<mesh()> make;
};

/// What rays are measured on; real models only where they are there.
const std::vector<named_mesh>& ray_meshes();

/// The mesh of that name. The last one is kept, as figures of one scene follow each other.
std::shared_ptr<const mesh> find_mesh(const std::string& name);

/// 700 * 700 rays from a point outside that looks at the middle of the mesh, z up.
std::vector<ray_query> camera_rays(const mesh& from);

/// The rays that an occlusion bake sends: from at most 8,192 vertices, in runs of 64 in the mesh's
/// order that are evenly spread, 64 rays each along normal + d, for d on the 4 * 4 * 4 grid of the
/// cube from -1 to 1. They start 1e-4 d off the vertex, in units of half the mesh's diagonal.
std::vector<ray_query> occlusion_rays(const mesh& from);

/// Distance to the nearest front face by brute force in double precision; infinity without one.
double nearest_front(const mesh& in, const ray_query& ray);

}  // namespace morlu::bench
