#pragma once

// Closest hit on a bounding interval hierarchy: depth first, near side first.
//
// After C. Waechter, A. Keller, "Instant ray tracing: the bounding interval hierarchy" (2006).
// Each comparison has the sense that visits a side when a NaN comes in (a ray within a clip plane
// gives 0 * infinity), so that no hit is lost.

#include "ray/bih_tree.h"
#include "ray/intersect.h"
#include "ray/triangle_set.h"

namespace morlu {

/// A ray on its way through a tree.
struct walk_ray {
  math::vector3 origin;
  math::vector3 end;  // where the ray leaves the tree's box
  math::vector3 inverse_direction;

  walk_ray(const math::vector3& from, const math::vector3& direction, float t_exit)
      : origin(from),
        end(from + direction * t_exit),
        inverse_direction{1 / direction[0], 1 / direction[1], 1 / direction[2]} {}
};

/// Turns what a triangle test left of a hit into what a trace returns.
inline void finish_hit(const math::vector3& origin, ray_hit& out) {
  out.t = math::distance(out.point, origin);
  out.normal = math::unit(out.normal);
}

/// Tests leaf entries that are triangles: the whole segment, front faces or both, the nearest so
/// far kept, of equal ones the first.
struct triangle_leaf_test {
  const triangle* triangles;
  bool two_sided = false;

  template <class Stats>
  void operator()(std::uint32_t k, const walk_ray& ray, ray_hit& out, Stats& stats) const {
    const triangle& each = triangles[k];
    ray_hit local{};
    local.two_sided = two_sided;
    stats.add_tri_test();
    intersect_triangle(each[0], each[1], each[2], ray.origin, ray.end, local);
    if (!local.hit) {
      stats.add_failed_tri_test();
    } else if (!out.hit || out.t > local.t) {
      if (out.hit) stats.add_overwrite_tri_test();
      out = local;
      out.index = k;
    }
  }
};

/// The walk from `node` on, within the ray's distances `t_min` to `t_max`. Recursion only where
/// both sides are met: as deep as the tree at most.
template <class LeafTest, class Stats>
void descend(const bih_tree<float>& tree, std::int32_t node_index, const LeafTest& test,
             const walk_ray& ray, float t_min, float t_max, ray_hit& out, Stats& stats) {
  const bih_node* node = &tree.nodes[static_cast<std::size_t>(node_index)];
  while (!node->is_leaf()) {
    stats.add_node_test();
    const int axis = node->axis;
    const bool from_right = 0 > ray.inverse_direction[axis];
    const std::int32_t left = node_index + 1;
    const std::int32_t near_child = from_right ? node->right_child : left;
    const std::int32_t far_child = from_right ? left : node->right_child;
    const float near_plane = from_right ? node->right_plane : node->left_plane;
    const float far_plane = from_right ? node->left_plane : node->right_plane;
    // where the ray leaves the near side's slab, and where it enters the far side's
    const float t_near = (near_plane - ray.origin[axis]) * ray.inverse_direction[axis];
    const float t_far = (far_plane - ray.origin[axis]) * ray.inverse_direction[axis];

    node_index = far_child;
    if (!(t_min > t_near)) {
      const float t_max_near = t_max > t_near ? t_near : t_max;
      if (t_far > t_max) {
        t_max = t_max_near;
        node_index = near_child;
        node = &tree.nodes[static_cast<std::size_t>(node_index)];
        continue;
      }
      descend(tree, near_child, test, ray, t_min, t_max_near, out, stats);
      if (out.hit) {
        t_max = math::distance(out.point, ray.origin);
        if (t_far > t_max) return;
      }
    }
    if (t_far > t_min) t_min = t_far;
    node = &tree.nodes[static_cast<std::size_t>(node_index)];
  }
  stats.add_leaf_test();
  const std::uint32_t* const first = tree.indices.get() + node->leaf_start;
  for (std::int32_t i = 0; i < node->leaf_count; ++i) test(first[i], ray, out, stats);
}

/// The closest hit of a whole tree whose elements lie in `box`. `direction` of unit length gives a
/// `t` that is also the walk's measure; any other length still gives right hits' distances. Leaf
/// tests see a segment that ends where the ray leaves the box, or so many times as far on.
template <class LeafTest, class Stats>
void trace(const bih_tree<float>& tree, const bounding_box& box, const LeafTest& test,
           const math::vector3& origin, const math::vector3& direction, ray_hit& out, Stats& stats,
           float as_far = 1) {
  stats.add_ray();
  out = ray_hit{};
  ray_hit entry{};
  const float t_exit = intersect_box(box, origin, direction, entry);
  if (!entry.hit) return;
  descend(tree, 0, test, walk_ray(origin, direction, t_exit * as_far), entry.t, t_exit, out, stats);
  if (out.hit) finish_hit(origin, out);
}

/// The closest triangle of `set`, by the plain walk.
template <class Stats>
void trace(const bih_tree<float>& tree, const osg::triangle_set& set, const math::vector3& origin,
           const math::vector3& direction, ray_hit& out, Stats& stats) {
  trace(tree, set.box, triangle_leaf_test{set.triangles.get()}, origin, direction, out, stats);
}

}  // namespace morlu
