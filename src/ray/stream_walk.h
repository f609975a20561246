#pragma once

// Many rays at once through one tree: the walk of trace.h, a ray a lane.

#include "ray/lane_walk.h"

namespace morlu {
namespace {

template <class Unit>
struct stream_walk : lane_walk<Unit, ray_stream> {
  using base = lane_walk<Unit, ray_stream>;
  using base::at;
  using base::at_leaf;
  using base::keep;
  using base::load_rows;
  using base::minus;
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
      test_leaves();
      go_on();
    }
  }

  /// Puts a ray that is ready into the lane, or leaves the lane idle.
  void start(int lane) {
    const lane_mask bit = lane_mask{1} << lane;
    at.hit &= ~bit;
    at.busy &= ~bit;
    while (at.ready.count == 0) {
      if (at.next_ray == at.ray_count) return;
      make_ready();
    }
    const int from = --at.ready.count;
    this->copy(at.ready.origin, from, at.origin, lane);
    this->copy(at.ready.end, from, at.end, lane);
    this->copy(at.ready.inverse, from, at.inverse, lane);
    at.t_min.value[lane] = at.ready.t_min.value[from];
    at.t_max.value[lane] = at.ready.t_max.value[from];
    at.number.value[lane] = at.ready.number.value[from];
    at.node.value[lane] = 0;
    at.top.value[lane] = at.bottom.value[lane];
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
    load_rows(at.rays + at.next_ray, row, 2, more);
    const floats3 origin{field[0], field[1], field[2]};
    const floats3 direction{field[3], more[2], more[3]};
    const floats3 inverse = this->inverse_of(direction);
    floats enter, exit;
    const mask in_box = this->meets_box(this->all(at.box.min), this->all(at.box.max), origin,
                                        direction, inverse, enter, exit);

    const mask met = Unit::both(Unit::lanes_of((1u << count) - 1), in_box);
    keep(met, origin, at.ready.origin);
    keep(met,
         {Unit::add(origin.x, Unit::multiply(direction.x, exit)),
          Unit::add(origin.y, Unit::multiply(direction.y, exit)),
          Unit::add(origin.z, Unit::multiply(direction.z, exit))},
         at.ready.end);
    keep(met, inverse, at.ready.inverse);
    keep(met, enter, at.ready.t_min.value);
    keep(met, exit, at.ready.t_max.value);
    const ints first = Unit::all(static_cast<int>(at.next_ray));
    Unit::compress(met, Unit::add(first, Unit::load(row)), at.ready.number.value);
    at.ready.count = __builtin_popcount(Unit::lanes_in(met));
    at.next_ray += static_cast<std::size_t>(count);
  }

  void test_leaves() {
    this->each_leaf_entry(
        at_leaf, [this](const std::int32_t* lane_of, const std::int32_t* place_of, int count) {
          alignas(64) std::int32_t number[base::room + 2 * width];
          for (int i = 0; i < count; i += width) {
            const ints place = Unit::first(count - i, Unit::load(place_of + i));
            Unit::store(number + i, Unit::look_up(at.indices, place));
            for (int k = 0; k < width; ++k) __builtin_prefetch(at.triangles + number[i + k]);
          }
          for (int i = 0; i < count; i += width)
            test_triangles(lane_of + i, number + i, count - i < width ? count - i : width);
        });
  }

  /// `triangle_test` for the ray of each lane of `lane_of` and a triangle.
  void test_triangles(const std::int32_t* lane_of, const std::int32_t* number, int count) {
    const ints lane = Unit::first(count, Unit::load(lane_of));
    const floats3 p = pick(at.origin, lane);
    const floats3 q = pick(at.end, lane);
    floats x0y0z0x1[4], y1z1x2y2[4], z1x2y2z2[4];
    load_rows(at.triangles, number, 0, x0y0z0x1);
    load_rows(at.triangles, number, 4, y1z1x2y2);
    load_rows(at.triangles, number, 5, z1x2y2z2);
    const floats3 c0{x0y0z0x1[0], x0y0z0x1[1], x0y0z0x1[2]};
    const floats3 ab = minus({x0y0z0x1[3], y1z1x2y2[0], y1z1x2y2[1]}, c0);
    const floats3 ac = minus({y1z1x2y2[2], y1z1x2y2[3], z1x2y2z2[3]}, c0);
    const floats3 qp = minus(p, q);
    const floats3 n = this->cross(ab, ac);
    const floats d = this->dot(n, qp);
    const floats3 ap = minus(p, c0);
    const floats t = this->dot(n, ap);
    const floats3 e = this->cross(qp, ap);
    const floats v = this->dot(ac, e);
    const floats w = Unit::negate(this->dot(ab, e));
    const unsigned hits = Unit::lanes_in(this->meets_triangle(d, t, v, w)) & ((1u << count) - 1);
    if (!hits) return;

    const floats parameter = Unit::multiply(Unit::divide(Unit::all(1.0f), d), t);
    alignas(64) float t_of[width], reach_of[width], normal_of[3][width];
    Unit::store(t_of, parameter);
    Unit::store(reach_of, this->distance(this->point_on(p, q, parameter), p));
    Unit::store(normal_of[0], n.x);
    Unit::store(normal_of[1], n.y);
    Unit::store(normal_of[2], n.z);
    for (unsigned rest = hits; rest; rest &= rest - 1) {
      const int i = __builtin_ctz(rest);
      const int to = lane_of[i];
      if ((at.hit >> to & 1) && !(at.best_t.value[to] > t_of[i])) continue;
      at.hit |= lane_mask{1} << to;
      at.best_t.value[to] = t_of[i];
      at.reach.value[to] = reach_of[i];
      at.normal.x.value[to] = normal_of[0][i];
      at.normal.y.value[to] = normal_of[1][i];
      at.normal.z.value[to] = normal_of[2][i];
      at.best.value[to] = static_cast<std::uint32_t>(number[i]);
    }
  }

  /// From leaves to the nearest far sides that are left, or to the next rays.
  void go_on() {
    for (lane_mask done = this->pop_all(at_leaf); done; done &= done - 1) {
      const int lane = __builtin_ctzll(done);
      if (at.hit >> lane & 1) at.finish(lane);
      start(lane);
    }
  }
};

}  // namespace
}  // namespace morlu
