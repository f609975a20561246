#pragma once

#include <span>

#include "occlusion/scene_trace.h"
#include "ray/ray_stream.h"

/// Rays through a scene, a ray a lane. The walk itself is in scene_walk.h, once for each vector
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
  float decided_below;  // a hit nearer than this ends the ray
  std::int32_t unused;
};
static_assert(sizeof(scene_ray) == 32);

struct scene_outcome {
  enum outcome_kind : std::int32_t { miss, hit, decided };
  math::vector3 point;  // of a `hit`: the closest
  outcome_kind kind;
};

/// Rays on their way. A lane is at the level of objects or, while its bit is in `inside`, in the
/// tree of one; what `lane_walk` steps by (`inverse`, `bottom`, `hit`, `reach`, ...) is that of the
/// level.
struct scene_stream {
  static constexpr int lanes = ray_stream::lanes;
  using lane_mask = ray_stream::lane_mask;
  template <class T>
  using each_lane = ray_stream::each_lane<T>;
  using vectors = ray_stream::vectors;
  using pending = ray_stream::pending;

  explicit scene_stream(const packed_scene& scene);

  const bih_node* nodes;
  const packed_triangle* triangles;
  const packed_object* objects;
  bounding_box box;
  const scene_ray* rays = nullptr;
  scene_outcome* outcomes = nullptr;
  std::size_t ray_count = 0;
  std::size_t next_ray = 0;  // that nobody has looked at
  bool two_sided = false;

  lane_mask busy = 0;     // lanes with a ray
  lane_mask hit = 0;      // lanes whose ray has hit something at its level
  lane_mask inside = 0;   // lanes in an object's tree
  lane_mask met = 0;      // lanes whose ray has hit an object
  lane_mask decided = 0;  // lanes whose ray needs no more

  vectors origin;
  vectors inverse;
  each_lane<std::int32_t> node;
  each_lane<float> t_min;
  each_lane<float> t_max;
  each_lane<float> reach;   // the hit's distance from the origin
  each_lane<float> best_t;  // of the hit in the object, on the segment from origin to end
  each_lane<std::int32_t> leaf_start;
  each_lane<std::int32_t> leaf_count;
  each_lane<std::int32_t> bottom;  // the level's first place in `stack`
  each_lane<std::int32_t> top;     // place in `stack` after the lane's last entry
  each_lane<std::int32_t> number;  // of the ray among all
  each_lane<float> decided_below;

  vectors end;    // where the ray has left the object
  vectors point;  // of the hit in the object
  vectors outer_inverse;
  vectors inner_direction;  // made anew from `outer_inverse`
  vectors inner_inverse;
  vectors met_point;           // of the nearest object
  each_lane<float> met_reach;  // its distance from the origin
  each_lane<std::int32_t> next_object;
  each_lane<std::int32_t> end_object;  // of the leaf

  each_lane<std::int32_t> lane_bottom;  // the lane's first place in `stack`
  large_array<pending> stack_memory;
  pending* stack;

  /// Rays that meet the box, ready for a lane.
  struct ready_rays {
    vectors origin;
    vectors inverse;
    vectors inner_direction;
    vectors inner_inverse;
    each_lane<float> t_min;
    each_lane<float> t_max;
    each_lane<float> decided_below;
    each_lane<std::int32_t> number;
    int count = 0;
  } ready;
};

/// The outcome of each ray that isn't a miss. `unit` is not `none`.
///
/// Each ray goes the way of the plain walk through the scene, node by node and object by object,
/// with its comparisons and roundings; but it ends at its first hit nearer than `decided_below`.
void trace_to_outcomes(scene_stream& stream, std::span<const scene_ray> rays, bool two_sided,
                       std::span<scene_outcome> outcomes, vector_unit unit);

namespace avx2 {
void walk_stream(scene_stream& stream);
}
namespace avx512 {
void walk_stream(scene_stream& stream);
}

}  // namespace morlu
