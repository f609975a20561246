#pragma once

#include <osg/matrix.h>

#include <memory>
#include <string>

#include "bench/ray_scenes.h"

namespace morlu::bench {

/// The peer of the collisions' figures. Meshes and poses are handed over ahead and go by their
/// numbers, so that what is timed is the query alone.
class collision_peer {
 public:
  /// Null where the peer isn't installed.
  static std::unique_ptr<collision_peer> make();
  virtual ~collision_peer() = default;

  virtual std::string name() const = 0;
  /// Builds the tree of a mesh.
  virtual std::size_t add_mesh(const mesh& from) = 0;
  virtual void drop_meshes() = 0;
  /// `world` turns and moves, no more.
  virtual std::size_t add_pose(const ::osg::Matrix& world) = 0;
  /// Whether two meshes in their poses touch, with the first contact.
  virtual bool collide(std::size_t mesh_a, std::size_t pose_a, std::size_t mesh_b,
                       std::size_t pose_b) const = 0;
};

}  // namespace morlu::bench
