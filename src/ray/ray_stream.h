#pragma once

#include <span>

#include "ray/bih_tree.h"
#include "ray/stream_trace.h"

namespace morlu {

/// Rays on their way through a tree, one a lane, and where they come from and go to. The walk
/// itself is in stream_walk.h, once for each vector unit.
struct ray_stream {
  static constexpr int lanes = 64;
  using lane_mask = std::uint64_t;
  static constexpr int max_pending = 56;  // deeper trees than this go the plain way

  /// `node`, `top` and `bottom` count in words of 8 bytes, so many to a record: what the
  /// machine makes an address of without a shift. They fit 32 bits without a sign.
  static constexpr int words = 2;

  template <class T>
  struct alignas(64) each_lane {
    T value[lanes] = {};
  };
  struct vectors {
    each_lane<float> x, y, z;
  };
  /// A far side still to visit.
  struct pending {
    std::int32_t node;
    float t_far;
    float t_min;
    float t_max;  // unless a hit is nearer
  };

  ray_stream(const bih_tree<float>& tree, const osg::triangle_set& set,
             std::span<const ray_query> rays, std::span<ray_hit> hits);

  /// Writes the hit of the lane's ray.
  void finish(int lane);

  const bih_node* nodes;
  const std::uint32_t* indices;
  const triangle* triangles;
  bounding_box box;
  const ray_query* rays;
  ray_hit* hits;
  std::size_t ray_count;
  std::size_t next_ray = 0;  // that nobody has looked at

  lane_mask busy = 0;  // lanes with a ray
  lane_mask hit = 0;   // lanes whose ray has hit a triangle

  vectors origin;
  vectors end;  // where the ray leaves the tree's box
  vectors inverse;
  each_lane<std::int32_t> node;
  each_lane<float> t_min;
  each_lane<float> t_max;
  each_lane<float> best_t;        // of the hit, on the segment from origin to end
  each_lane<float> reach;         // the hit's distance from the origin
  vectors normal;                 // of the triangle that is hit, of any length
  each_lane<std::uint32_t> best;  // that triangle
  each_lane<std::int32_t> leaf_start;
  each_lane<std::int32_t> leaf_count;
  each_lane<std::int32_t> bottom;  // the lane's first place in `stack`
  each_lane<std::int32_t> top;     // place in `stack` after the lane's last entry
  each_lane<std::int32_t> number;  // of the ray among all
  alignas(64) pending stack[lanes * max_pending];

  /// Rays that meet the box, ready for a lane.
  struct ready_rays {
    vectors origin;
    vectors end;
    vectors inverse;
    each_lane<float> t_min;
    each_lane<float> t_max;
    each_lane<std::int32_t> number;
    int count = 0;
  } ready;
};

namespace avx2 {
void walk_stream(ray_stream& stream);
}
namespace avx512 {
void walk_stream(ray_stream& stream);
}

}  // namespace morlu
