#pragma once

// Many rays at once through a scene: the walk of scene_trace.h, a ray a lane.

#include "occlusion/scene_stream.h"
#include "ray/lane_walk.h"

namespace morlu {
namespace {

template <class Unit>
struct scene_walk : lane_walk<Unit, scene_stream> {
  using base = lane_walk<Unit, scene_stream>;
  using base::at;
  using base::at_leaf;
  using base::copy;
  using base::dot;
  using base::keep;
  using base::lanes_in;
  using base::load;
  using base::load3;
  using base::load_rows;
  using base::mask_of;
  using base::pick;
  using base::width;
  using typename base::floats;
  using typename base::floats3;
  using typename base::ints;
  using typename base::lane_mask;
  using typename base::mask;

  void run() {
    for (int lane = 0; lane < ray_stream::lanes; ++lane) start(lane);
    while (at.busy) {
      this->walk_to_leaves();
      test_triangles();
      go_on();
    }
  }

  // --- Rays --------------------------------------------------------------------------------------

  /// Puts a ray that is ready into the lane, or leaves the lane idle.
  void start(int lane) {
    const lane_mask bit = lane_mask{1} << lane;
    at.busy &= ~bit;
    at.hit &= ~bit;
    at.inside &= ~bit;
    at.met &= ~bit;
    at.decided &= ~bit;
    while (at.ready.count == 0) {
      if (at.next_ray == at.ray_count) return;
      make_ready();
    }
    const int from = --at.ready.count;
    copy(at.ready.origin, from, at.origin, lane);
    copy(at.ready.inverse, from, at.inverse, lane);
    copy(at.ready.inverse, from, at.outer_inverse, lane);
    copy(at.ready.inner_direction, from, at.inner_direction, lane);
    copy(at.ready.inner_inverse, from, at.inner_inverse, lane);
    at.t_min.value[lane] = at.ready.t_min.value[from];
    at.t_max.value[lane] = at.ready.t_max.value[from];
    at.decided_below.value[lane] = at.ready.decided_below.value[from];
    at.number.value[lane] = at.ready.number.value[from];
    at.node.value[lane] = 0;
    at.bottom.value[lane] = at.top.value[lane] = at.lane_bottom.value[lane];
    at.busy |= bit;
  }

  /// `intersect_box` for the next rays; those that meet the box are ready then.
  void make_ready() {
    const std::size_t left = at.ray_count - at.next_ray;
    const int count = left < width ? static_cast<int>(left) : width;
    alignas(64) std::int32_t row[width];
    for (int i = 0; i < width; ++i) row[i] = i < count ? i : 0;
    floats field[4], more[4];
    load_rows(at.rays + at.next_ray, row, 0, field);
    load_rows(at.rays + at.next_ray, row, 4, more);
    const floats3 origin{field[0], field[1], field[2]};
    const floats3 direction{field[3], more[0], more[1]};
    const floats3 inverse = this->inverse_of(direction);
    floats enter, exit;
    const mask in_box = this->meets_box(this->all(at.box.min), this->all(at.box.max), origin,
                                        direction, inverse, enter, exit);
    const mask met = Unit::both(Unit::lanes_of((1u << count) - 1), in_box);
    keep(met, origin, at.ready.origin);
    keep(met, inverse, at.ready.inverse);
    const floats3 inner_direction = this->inverse_of(inverse);
    keep(met, inner_direction, at.ready.inner_direction);
    keep(met, this->inverse_of(inner_direction), at.ready.inner_inverse);
    keep(met, enter, at.ready.t_min.value);
    keep(met, exit, at.ready.t_max.value);
    keep(met, more[2], at.ready.decided_below.value);
    const ints first = Unit::all(static_cast<int>(at.next_ray));
    Unit::compress(met, Unit::add(first, Unit::load(row)), at.ready.number.value);
    at.ready.count = __builtin_popcount(Unit::lanes_in(met));
    at.next_ray += static_cast<std::size_t>(count);
  }

  void finish(int lane) {
    scene_outcome& out = at.outcomes[at.number.value[lane]];
    if (at.decided >> lane & 1) {
      out.kind = scene_outcome::decided;
    } else if (at.met >> lane & 1) {
      out.kind = scene_outcome::hit;
      out.point.values[0] = at.met_point.x.value[lane];
      out.point.values[1] = at.met_point.y.value[lane];
      out.point.values[2] = at.met_point.z.value[lane];
    }
  }

  // --- Triangles ---------------------------------------------------------------------------------

  void test_triangles() {
    this->each_leaf_entry(at_leaf & at.inside, [this](const std::int32_t* lane_of,
                                                      std::int32_t* place_of, int count) {
      for (int i = 0; i < count; i += width) {
        Unit::store(place_of + i, Unit::first(count - i, Unit::load(place_of + i)));
        for (int k = 0; k < width; ++k) __builtin_prefetch(at.triangles + place_of[i + k]);
      }
      for (int i = 0; i < count; i += width)
        test_triangles(lane_of + i, place_of + i, count - i < width ? count - i : width);
    });
  }

  /// `triangle_test` for the ray of each lane of `lane_of` and a triangle.
  void test_triangles(const std::int32_t* lane_of, const std::int32_t* place, int count) {
    const ints lane = Unit::first(count, Unit::load(lane_of));
    const floats3 p = pick(at.origin, lane);
    const floats3 q = pick(at.end, lane);
    floats first[4], second[4], third[4];
    load_rows(at.triangles, place, 0, first);
    load_rows(at.triangles, place, 4, second);
    load_rows(at.triangles, place, 8, third);
    const floats3 c0{first[0], first[1], first[2]};
    const floats3 ab{first[3], second[0], second[1]};
    const floats3 ac{second[2], second[3], third[0]};
    const floats3 n{third[1], third[2], third[3]};
    const floats3 qp = this->minus(p, q);
    floats d = dot(n, qp);
    const floats3 ap = this->minus(p, c0);
    floats t = dot(n, ap);
    const floats3 e = this->cross(qp, ap);
    floats v = dot(ac, e);
    floats w = Unit::negate(dot(ab, e));
    if (at.two_sided) turn_backs(d, t, v, w);
    const unsigned hits = Unit::lanes_in(this->meets_triangle(d, t, v, w)) & ((1u << count) - 1);
    if (!hits) return;

    const floats parameter = Unit::multiply(Unit::divide(Unit::all(1.0f), d), t);
    const floats3 point = this->point_on(p, q, parameter);
    alignas(64) float t_of[width], reach_of[width], x[width], y[width], z[width];
    Unit::store(t_of, parameter);
    Unit::store(reach_of, this->distance(point, p));
    Unit::store(x, point.x);
    Unit::store(y, point.y);
    Unit::store(z, point.z);
    for (unsigned rest = hits; rest; rest &= rest - 1) {
      const int i = __builtin_ctz(rest);
      const int to = lane_of[i];
      if ((at.hit >> to & 1) && !(at.best_t.value[to] > t_of[i])) continue;
      at.hit |= lane_mask{1} << to;
      at.best_t.value[to] = t_of[i];
      at.reach.value[to] = reach_of[i];
      at.point.x.value[to] = x[i];
      at.point.y.value[to] = y[i];
      at.point.z.value[to] = z[i];
      if (reach_of[i] < at.decided_below.value[to] && !is_stuck(to))
        at.decided |= lane_mask{1} << to;
    }
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

  /// Whether the ray has met an object at a distance that is no number: nothing takes its place.
  bool is_stuck(int lane) const {
    return (at.met >> lane & 1) && at.met_reach.value[lane] != at.met_reach.value[lane];
  }

  // --- Objects -----------------------------------------------------------------------------------

  /// From leaves to what comes next: far sides in the same object, other objects, far sides of the
  /// top tree, other rays.
  void go_on() {
    lane_mask done = at_leaf & at.decided;
    const lane_mask in_objects = at_leaf & at.inside & ~done;
    lane_mask outside = at_leaf & ~at.inside;
    list_objects(outside);
    const lane_mask left = this->pop_all(in_objects);
    leave(left);
    done |= this->pop_all(enter(outside | left));
    for (; done; done &= done - 1) {
      const int lane = __builtin_ctzll(done);
      finish(lane);
      start(lane);
    }
  }

  template <class Work>
  static void each_group(lane_mask lanes, const Work& work) {
    for (int group = 0; group < base::groups; ++group)
      if (lanes & lane_mask{Unit::all_lanes} << group * width) work(group);
  }
  template <class T>
  void set(ray_stream::each_lane<T>& to, int group, mask m, decltype(Unit::all(T())) value) {
    this->store(to, group, Unit::select(m, value, load(to, group)));
  }
  void set(ray_stream::vectors& to, int group, mask m, const floats3& value) {
    set(to.x, group, m, value.x);
    set(to.y, group, m, value.y);
    set(to.z, group, m, value.z);
  }

  /// The objects of the leaves that the lanes stand at.
  void list_objects(lane_mask lanes) {
    each_group(lanes, [&](int group) {
      const mask m = mask_of(lanes, group);
      const ints first = load(at.leaf_start, group);
      set(at.next_object, group, m, first);
      set(at.end_object, group, m, Unit::add(first, load(at.leaf_count, group)));
    });
  }

  /// Back to the top tree, with the hit in the object if it is the nearest so far.
  void leave(lane_mask lanes) {
    each_group(lanes, [&](int group) {
      const mask m = mask_of(lanes, group);
      const floats reach = load(at.reach, group);
      const mask farther = Unit::greater(load(at.met_reach, group), reach);
      const mask kept = Unit::without(mask_of(at.met, group), farther);
      const mask nearest = Unit::without(Unit::both(m, mask_of(at.hit, group)), kept);
      at.met |= lanes_in(nearest, group);
      set(at.met_reach, group, nearest, reach);
      set(at.met_point, group, nearest, load3(at.point, group));
      set(at.reach, group, m, load(at.met_reach, group));
      set(at.inverse, group, m, load3(at.outer_inverse, group));
      set(at.top, group, m, load(at.bottom, group));
      set(at.bottom, group, m, load(at.lane_bottom, group));
    });
    at.inside &= ~lanes;
    at.hit = (at.hit & ~lanes) | (at.met & lanes);
  }

  /// Sends lanes into the next object of their leaf whose box they meet; returns those without.
  lane_mask enter(lane_mask lanes) {
    lane_mask without = 0;
    each_group(lanes, [&](int group) {
      mask open = mask_of(lanes, group);
      for (;;) {
        const ints next = load(at.next_object, group);
        const mask more = Unit::both(open, Unit::greater(load(at.end_object, group), next));
        without |= lanes_in(Unit::without(open, more), group);
        if (!Unit::lanes_in(more)) break;
        set(at.next_object, group, more, Unit::add(next, Unit::all(1)));
        open = Unit::without(more, enter(group, more, next));
      }
    });
    return without;
  }

  /// Returns the lanes that have met the boxes.
  mask enter(int group, mask lanes, ints object) {
    alignas(64) std::int32_t row[width];
    Unit::store(row, Unit::select(lanes, object, Unit::all(0)));
    floats low[4], high[4];
    load_rows(at.objects, row, 0, low);
    load_rows(at.objects, row, 4, high);
    const floats3 origin = load3(at.origin, group);
    const floats3 direction = load3(at.inner_direction, group);
    const floats3 inverse = load3(at.inner_inverse, group);
    floats enter, exit;
    const mask in_box = this->meets_box({low[0], low[1], low[2]}, {high[0], high[1], high[2]},
                                        origin, direction, inverse, enter, exit);
    const mask met = Unit::both(lanes, in_box);
    const lane_mask entered = lanes_in(met, group);
    if (!entered) return met;
    const floats far = Unit::multiply(exit, Unit::all(beyond_box));
    set(at.end, group, met,
        {Unit::add(origin.x, Unit::multiply(direction.x, far)),
         Unit::add(origin.y, Unit::multiply(direction.y, far)),
         Unit::add(origin.z, Unit::multiply(direction.z, far))});
    set(at.node, group, met, Unit::bits(low[3]));
    set(at.t_min, group, met, enter);
    set(at.t_max, group, met, exit);
    set(at.inverse, group, met, inverse);
    set(at.bottom, group, met, load(at.top, group));
    at.inside |= entered;
    at.hit &= ~entered;
    return met;
  }
};

}  // namespace
}  // namespace morlu
