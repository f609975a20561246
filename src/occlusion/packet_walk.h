#pragma once

// Rays through a scene in packets: all rays of a packet stand at one node, a ray a lane.
//
// What lanes share is the way: a node, a box or a triangle is read once for all, which pays where
// neighbours among the rays go the same way. Each lane makes the comparisons and roundings of the
// plain walk (scene_trace.h), and it comes to its nodes in that order, since all rays of a packet
// have the same near sides; nodes that only other lanes visit don't count for it.
//
// Included by source files that are compiled for one vector unit, as lane_walk.h is.

#include "occlusion/scene_packets.h"
#include "ray/lane_walk.h"

namespace morlu {
namespace {

template <class Unit>
struct packet_walk {
  using steps = lane_walk<Unit, ray_stream>;
  using floats = typename steps::floats;
  using floats3 = typename steps::floats3;
  using mask = typename steps::mask;
  static constexpr int width = Unit::lanes;

  /// A far side still to visit: for lanes that visit the near side before, and for those that
  /// don't.
  struct alignas(64) pending {
    floats t_far, t_min, t_max;
    mask after_near, at_once;
    std::int32_t node;
  };
  static_assert(sizeof(pending) <= scene_packets::bytes_a_level);

  /// The nearest hits so far, among the triangles of an object or among the objects.
  struct nearest {
    mask hit = Unit::lanes_of(0);
    floats reach = Unit::all(0.0f);  // from the origin
    floats3 point = {reach, reach, reach};
  };

  scene_packets& job;
  pending* top = reinterpret_cast<pending*>(job.stack.get());

  // Of the packet's rays.
  floats origin[3] = {};
  floats inverse[3] = {};
  floats3 inner_direction = {};  // made anew from `inverse`
  floats inner_inverse[3] = {};
  floats3 end = {};  // where the ray has left the object
  floats decided_below = {};
  unsigned from_right = 0;  // axes along which they go down
  mask alive = {};          // lanes that need more
  mask decided = {};
  nearest object = {};
  nearest triangle = {};
  floats best_t = {};  // of the hit triangle, on the segment from origin to end

  explicit packet_walk(scene_packets& of) : job(of) {}

  void run() {
    for (std::size_t first = 0; first < job.ray_count;) first += start(first);
  }

  static bool any(mask m) { return Unit::lanes_in(m) != 0; }
  floats3 origins() const { return {origin[0], origin[1], origin[2]}; }

  /// The packet of rays from `first` on; returns how many they are.
  std::size_t start(std::size_t first) {
    const std::size_t left = job.ray_count - first;
    const int count = left < width ? static_cast<int>(left) : width;
    alignas(64) std::int32_t row[width];
    for (int i = 0; i < width; ++i) row[i] = i < count ? i : 0;
    floats field[4], more[4];
    steps::load_rows(job.rays + first, row, 0, field);
    steps::load_rows(job.rays + first, row, 4, more);
    const floats3 direction{field[3], more[0], more[1]};
    const floats3 outer = steps::inverse_of(direction);
    const int together = rays_together(outer, count);
    for (int axis = 0; axis < 3; ++axis) origin[axis] = field[axis];
    put(outer, inverse);
    inner_direction = steps::inverse_of(outer);
    put(steps::inverse_of(inner_direction), inner_inverse);
    decided_below = more[2];

    floats enter, exit;
    const mask in_box = steps::meets_box(steps::all(job.box.min), steps::all(job.box.max),
                                         origins(), direction, outer, enter, exit);
    alive = Unit::both(Unit::lanes_of((1u << together) - 1), in_box);
    decided = Unit::lanes_of(0);
    object = nearest();
    if (any(alive))
      walk(0, inverse, alive, enter, exit, object,
           [this](const bih_node& leaf, mask lanes) { meet_objects(leaf, lanes); });
    finish(first, together);
    return static_cast<std::size_t>(together);
  }

  static void put(const floats3& from, floats (&to)[3]) {
    to[0] = from.x;
    to[1] = from.y;
    to[2] = from.z;
  }

  /// How many of the first rays have the same near sides.
  int rays_together(const floats3& outer, int count) {
    const floats zero = Unit::all(0.0f);
    const unsigned downward[3] = {Unit::lanes_in(Unit::greater(zero, outer.x)),
                                  Unit::lanes_in(Unit::greater(zero, outer.y)),
                                  Unit::lanes_in(Unit::greater(zero, outer.z))};
    unsigned other = ~0u << count;
    from_right = 0;
    for (int axis = 0; axis < 3; ++axis) {
      const bool first = downward[axis] & 1;
      from_right |= static_cast<unsigned>(first) << axis;
      other |= first ? ~downward[axis] : downward[axis];
    }
    const int run = __builtin_ctz(other | 1u << width);
    return run < count ? run : count;
  }

  void finish(std::size_t first, int count) {
    alignas(64) float x[width], y[width], z[width];
    Unit::store(x, object.point.x);
    Unit::store(y, object.point.y);
    Unit::store(z, object.point.z);
    const unsigned done = Unit::lanes_in(decided), hit = Unit::lanes_in(object.hit);
    for (int i = 0; i < count; ++i) {
      scene_outcome& out = job.outcomes[job.rays[first + static_cast<std::size_t>(i)].number];
      out.point.values[0] = x[i];
      out.point.values[1] = y[i];
      out.point.values[2] = z[i];
      out.kind = done >> i & 1  ? scene_outcome::decided
                 : hit >> i & 1 ? scene_outcome::hit
                                : scene_outcome::miss;
    }
  }

  // --- Nodes -------------------------------------------------------------------------------------

  /// `descend` of trace.h from `node` on.
  template <class AtLeaf>
  void walk(std::int32_t node, const floats (&scale)[3], mask lanes, floats t_min, floats t_max,
            const nearest& best, const AtLeaf& at_leaf) {
    const pending* const bottom = top;
    for (;;) {
      const bih_node& here = job.nodes[node];
      if (here.axis == -1) {
        at_leaf(here, lanes);
        if (!pop(bottom, best, node, lanes, t_min, t_max)) return;
        continue;
      }
      const int axis = here.axis;
      const bool turned = from_right >> axis & 1;
      const std::int32_t near_child = turned ? here.right_child : node + 1;
      const std::int32_t far_child = turned ? node + 1 : here.right_child;
      const floats near_plane = Unit::all(turned ? here.right_plane : here.left_plane);
      const floats far_plane = Unit::all(turned ? here.left_plane : here.right_plane);
      const floats t_near = Unit::multiply(Unit::subtract(near_plane, origin[axis]), scale[axis]);
      const floats t_far = Unit::multiply(Unit::subtract(far_plane, origin[axis]), scale[axis]);

      const mask near_missed = Unit::both(lanes, Unit::greater(t_min, t_near));
      const mask near = Unit::without(lanes, near_missed);
      const mask both = Unit::without(near, Unit::greater(t_far, t_max));
      const floats t_min_far = Unit::select(Unit::greater(t_far, t_min), t_far, t_min);
      if (!any(near)) {
        node = far_child;
        t_min = t_min_far;
        continue;
      }
      if (any(Unit::either(near_missed, both))) {
        *top = {t_far, t_min_far, t_max, both, near_missed, far_child};
        ++top;
      }
      node = near_child;
      lanes = near;
      t_max = Unit::select(Unit::greater(t_max, t_near), t_near, t_max);
    }
  }

  /// Goes on with the nearest far side that is left to any lane.
  bool pop(const pending* bottom, const nearest& best, std::int32_t& node, mask& lanes,
           floats& t_min, floats& t_max) {
    while (top != bottom) {
      const pending& next = *--top;
      const mask behind = Unit::both(best.hit, Unit::greater(next.t_far, best.reach));
      lanes = Unit::both(alive, Unit::either(next.at_once, Unit::without(next.after_near, behind)));
      if (!any(lanes)) continue;
      node = next.node;
      t_min = next.t_min;
      t_max = Unit::select(Unit::both(next.after_near, best.hit), best.reach, next.t_max);
      return true;
    }
    return false;
  }

  // --- Objects -----------------------------------------------------------------------------------

  void meet_objects(const bih_node& leaf, mask lanes) {
    for (std::int32_t i = 0; i < leaf.leaf_count; ++i) {
      const packed_object& next = job.objects[leaf.leaf_start + i];
      floats enter, exit;
      const mask in_box =
          steps::meets_box(steps::all(next.low), steps::all(next.high), origins(), inner_direction,
                           {inner_inverse[0], inner_inverse[1], inner_inverse[2]}, enter, exit);
      const mask entered = Unit::both(Unit::both(lanes, alive), in_box);
      if (any(entered)) meet_object(next, entered, enter, exit);
    }
  }

  /// `object_leaf_test`.
  void meet_object(const packed_object& next, mask lanes, floats enter, floats exit) {
    const floats far = Unit::multiply(exit, Unit::all(beyond_box));
    end = {Unit::add(origin[0], Unit::multiply(inner_direction.x, far)),
           Unit::add(origin[1], Unit::multiply(inner_direction.y, far)),
           Unit::add(origin[2], Unit::multiply(inner_direction.z, far))};
    triangle.hit = Unit::lanes_of(0);
    walk(next.root, inner_inverse, lanes, enter, exit, triangle,
         [this](const bih_node& leaf, mask there) { meet_triangles(leaf, there); });
    const mask kept = Unit::without(object.hit, Unit::greater(object.reach, triangle.reach));
    take(Unit::without(triangle.hit, kept), triangle.reach, triangle.point, object);
  }

  static void take(mask m, floats reach, const floats3& point, nearest& to) {
    to.hit = Unit::either(to.hit, m);
    to.reach = Unit::select(m, reach, to.reach);
    to.point = {Unit::select(m, point.x, to.point.x), Unit::select(m, point.y, to.point.y),
                Unit::select(m, point.z, to.point.z)};
  }

  // --- Triangles ---------------------------------------------------------------------------------

  void meet_triangles(const bih_node& leaf, mask lanes) {
    for (std::int32_t i = 0; i < leaf.leaf_count; ++i)
      meet_triangle(job.triangles[leaf.leaf_start + i], Unit::both(lanes, alive));
  }

  /// `triangle_test`.
  void meet_triangle(const packed_triangle& each, mask lanes) {
    const floats3 p = origins();
    const floats3 n = steps::all(each.n);
    const floats3 qp = steps::minus(p, end);
    floats d = steps::dot(n, qp);
    const floats3 ap = steps::minus(p, steps::all(each.corner));
    floats t = steps::dot(n, ap);
    const floats3 e = steps::cross(qp, ap);
    floats v = steps::dot(steps::all(each.ac), e);
    floats w = Unit::negate(steps::dot(steps::all(each.ab), e));
    if (job.two_sided) turn_backs(d, t, v, w);
    const mask hits = Unit::both(lanes, steps::meets_triangle(d, t, v, w));
    if (!any(hits)) return;

    const floats parameter = Unit::multiply(Unit::divide(Unit::all(1.0f), d), t);
    const mask kept = Unit::without(triangle.hit, Unit::greater(best_t, parameter));
    const mask nearer = Unit::without(hits, kept);
    const floats3 point = steps::point_on(p, end, parameter);
    const floats reach = steps::distance(point, p);
    best_t = Unit::select(nearer, parameter, best_t);
    take(nearer, reach, point, triangle);
    decide(Unit::both(nearer, Unit::greater(decided_below, reach)));
  }

  /// With its second and third corner changed, a triangle has ab and ac changed and its normal
  /// turned round, and all that follows from them to the last bit. At most one of both faces the
  /// ray.
  static void turn_backs(floats& d, floats& t, floats& v, floats& w) {
    const mask back = Unit::greater(Unit::all(0.0f), d);
    const floats v_of_front = v;
    d = Unit::select(back, Unit::negate(d), d);
    t = Unit::select(back, Unit::negate(t), t);
    v = Unit::select(back, Unit::negate(w), v);
    w = Unit::select(back, Unit::negate(v_of_front), w);
  }

  /// Ends lanes, but those that have met an object at a distance that is no number: nothing takes
  /// its place.
  void decide(mask lanes) {
    const mask stuck = Unit::without(object.hit, Unit::greater(object.reach, Unit::all(-1.0f)));
    lanes = Unit::without(lanes, stuck);
    decided = Unit::either(decided, lanes);
    alive = Unit::without(alive, lanes);
  }
};

}  // namespace
}  // namespace morlu
