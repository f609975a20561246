#pragma once

#include <cstddef>
#include <span>

#include "occlusion/scene_trace.h"
#include "ray/stream_trace.h"

/// Rays through a scene, a ray a lane. The walk itself is in packet_walk.h, once for each vector
/// unit.
namespace morlu {

/// A triangle with what a test derives from it alone.
struct packed_triangle {
  math::vector3 corner;
  math::vector3 ab, ac;  // to the second and third corner
  math::vector3 n;       // ab x ac
};
static_assert(sizeof(packed_triangle) == 48);

struct packed_object {
  math::vector3 low;
  std::int32_t root;  // the first node of its tree
  math::vector3 high;
  std::int32_t unused;
};
static_assert(sizeof(packed_object) == 32);

/// A scene and its top tree in one numbering: the nodes of the top tree, then those of each
/// object's; objects and triangles in the order of the leaves that hold them.
struct packed_scene {
  large_array<bih_node> nodes;
  large_array<packed_triangle> triangles;
  large_array<packed_object> objects;
  bounding_box box;
  int depth;  // of a ray's stack
};

/// Whether the numbers of nodes and triangles fit.
bool can_be_packed(const bih_tree<float>& top_tree, const ray_scene& scene);
/// Throws `std::bad_alloc`.
packed_scene pack(const bih_tree<float>& top_tree, const ray_scene& scene);

struct scene_ray {
  math::vector3 origin;
  math::vector3 direction;
  float decided_below;   // a hit nearer than this ends the ray
  std::uint32_t number;  // of its outcome
};
static_assert(sizeof(scene_ray) == 32);

struct scene_outcome {
  enum outcome_kind : std::int32_t { miss, hit, decided };
  math::vector3 point;  // of a `hit`: the closest
  outcome_kind kind;
};

/// Rays that go through a scene in packets of neighbours.
struct scene_packets {
  static constexpr std::size_t bytes_a_level = 256;
  struct alignas(64) level {
    std::byte bytes[bytes_a_level];
  };

  explicit scene_packets(const packed_scene& scene);

  const bih_node* nodes;
  const packed_triangle* triangles;
  const packed_object* objects;
  bounding_box box;
  const scene_ray* rays = nullptr;
  scene_outcome* outcomes = nullptr;
  std::size_t ray_count = 0;
  bool two_sided = false;
  large_array<level> stack;
};

/// The outcome of each ray, at its number. `unit` is not `none`. Rays that follow each other and go
/// the same way, at least in the signs of their directions, are fast.
///
/// Each ray goes the way of the plain walk through the scene, node by node and object by object,
/// with its comparisons and roundings; but it ends at its first hit nearer than `decided_below`.
void trace_packets(scene_packets& packets, std::span<const scene_ray> rays, bool two_sided,
                   std::span<scene_outcome> outcomes, vector_unit unit);

namespace avx2 {
void walk_packets(scene_packets& packets);
}
namespace avx512 {
void walk_packets(scene_packets& packets);
}

}  // namespace morlu
