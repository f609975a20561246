#pragma once

// Many rays at once through one tree: the walk of trace.h, a ray a lane.
//
// Each lane makes the comparisons and roundings of the plain walk in its order, so its hit is the
// same bits. What lanes share is the machine's time: while one waits for memory the others go on,
// and hardly a branch depends on a single ray.
//
// Included by one source file for each vector unit, which is compiled for that unit. No inline
// function of other headers is called here: the linker could take its code for the whole library.

#include "ray/ray_stream.h"

namespace morlu {
namespace {

template <class Unit>
struct stream_walk {
  using floats = typename Unit::floats;
  using ints = typename Unit::ints;
  using mask = typename Unit::mask;
  using lane_mask = ray_stream::lane_mask;
  struct floats3 {
    floats x, y, z;
  };
  static constexpr int width = Unit::lanes;
  static constexpr int groups = ray_stream::lanes / width;

  ray_stream& at;
  lane_mask at_leaf = 0;  // lanes that stand at a leaf

  void run() {
    for (int lane = 0; lane < ray_stream::lanes; ++lane) start(lane);
    while (at.busy) {
      walk_to_leaves();
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
    copy(at.ready.origin, from, at.origin, lane);
    copy(at.ready.end, from, at.end, lane);
    copy(at.ready.inverse, from, at.inverse, lane);
    at.t_min.value[lane] = at.ready.t_min.value[from];
    at.t_max.value[lane] = at.ready.t_max.value[from];
    at.number.value[lane] = at.ready.number.value[from];
    at.node.value[lane] = 0;
    at.top.value[lane] = lane * ray_stream::max_pending;
    at.busy |= bit;
  }
  static void copy(const ray_stream::vectors& in, int from, ray_stream::vectors& out, int to) {
    out.x.value[to] = in.x.value[from];
    out.y.value[to] = in.y.value[from];
    out.z.value[to] = in.z.value[from];
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
    const floats3 inverse{inverse_of(direction.x), inverse_of(direction.y),
                          inverse_of(direction.z)};
    floats enter = Unit::all(0.0f);
    floats exit = Unit::all(__FLT_MAX__);
    mask missed = Unit::lanes_of(0);
    slab(0, origin.x, direction.x, inverse.x, enter, exit, missed);
    slab(1, origin.y, direction.y, inverse.y, enter, exit, missed);
    slab(2, origin.z, direction.z, inverse.z, enter, exit, missed);

    const mask met = Unit::without(Unit::lanes_of((1u << count) - 1), missed);
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
  static floats inverse_of(floats v) { return Unit::divide(Unit::all(1.0f), v); }

  /// One axis of `intersect_box`.
  void slab(int axis, floats origin, floats direction, floats inverse, floats& enter, floats& exit,
            mask& missed) const {
    const floats low = Unit::all(at.box.min.values[axis]);
    const floats high = Unit::all(at.box.max.values[axis]);
    const mask parallel = Unit::greater(Unit::all(1e-6f), Unit::absolute(direction));
    const mask outside = Unit::either(Unit::greater(low, origin), Unit::greater(origin, high));
    const floats a = Unit::multiply(Unit::subtract(low, origin), inverse);
    const floats b = Unit::multiply(Unit::subtract(high, origin), inverse);
    const mask turned = Unit::greater(a, b);
    const floats t1 = Unit::select(turned, b, a);
    const floats t2 = Unit::select(turned, a, b);
    const mask crossing = Unit::without(Unit::lanes_of(Unit::all_lanes), parallel);
    enter = Unit::select(Unit::both(crossing, Unit::greater(t1, enter)), t1, enter);
    exit = Unit::select(Unit::both(crossing, Unit::greater(exit, t2)), t2, exit);
    missed = Unit::either(missed, Unit::both(parallel, outside));
    missed = Unit::either(missed, Unit::both(crossing, Unit::greater(enter, exit)));
  }
  static void keep(mask m, const floats3& v, ray_stream::vectors& to) {
    keep(m, v.x, to.x.value);
    keep(m, v.y, to.y.value);
    keep(m, v.z, to.z.value);
  }
  static void keep(mask m, floats v, float* to) {
    Unit::compress(m, Unit::bits(v), reinterpret_cast<std::int32_t*>(to));
  }

  static lane_mask lanes_in(mask m, int group) {
    return lane_mask{Unit::lanes_in(m)} << group * width;
  }
  static mask mask_of(lane_mask lanes, int group) {
    return Unit::lanes_of(static_cast<unsigned>(lanes >> group * width) & Unit::all_lanes);
  }
  static floats load(ray_stream::each_lane<float>& from, int group) {
    return Unit::load(from.value + group * width);
  }
  static ints load(ray_stream::each_lane<std::int32_t>& from, int group) {
    return Unit::load(from.value + group * width);
  }
  static void store(ray_stream::each_lane<float>& to, int group, floats value) {
    Unit::store(to.value + group * width, value);
  }
  static void store(ray_stream::each_lane<std::int32_t>& to, int group, ints value) {
    Unit::store(to.value + group * width, value);
  }
  static floats3 load3(ray_stream::vectors& from, int group) {
    return {load(from.x, group), load(from.y, group), load(from.z, group)};
  }
  /// Words `from` to `from` + 3 of the lanes' records at `index`, each for all lanes.
  template <class Record>
  static void load_rows(const Record* records, const std::int32_t* index, int from,
                        floats (&fields)[4]) {
    const auto row = [&](int lane) {
      return reinterpret_cast<const float*>(records + index[lane]) + from;
    };
    floats rows[4];
    for (int k = 0; k < 4; ++k) rows[k] = Unit::load_each(row, k);
    Unit::transpose(rows, fields);
  }
  template <class Record>
  static void store_rows(const floats (&fields)[4], Record* records, const std::int32_t* index) {
    const auto row = [&](int lane) { return reinterpret_cast<float*>(records + index[lane]); };
    floats rows[4];
    Unit::transpose(fields, rows);
    for (int k = 0; k < 4; ++k) Unit::store_each(rows[k], row, k);
  }
  static floats along(mask second, mask third, const floats3& v) {
    return Unit::select(third, v.z, Unit::select(second, v.y, v.x));
  }

  /// Steps down until a good part of the rays stands at a leaf.
  void walk_to_leaves() {
    lane_mask walking = at.busy;
    const int enough = __builtin_popcountll(at.busy) / 2;
    do {
      lane_mask arrived = 0;
#pragma GCC unroll 8
      for (int group = 0; group < groups; ++group) arrived |= step(group, walking);
      walking &= ~arrived;
    } while (__builtin_popcountll(walking) > enough);
    at_leaf = at.busy & ~walking;
  }

  /// One node for each lane that is walking; returns the lanes whose node is a leaf.
  [[gnu::always_inline]] lane_mask step(int group, lane_mask walking) {
    const floats t_min = load(at.t_min, group);
    const floats t_max = load(at.t_max, group);
    const ints node = load(at.node, group);
    floats field[4];
    load_rows(at.nodes, at.node.value + group * width, 0, field);
    const ints right = Unit::bits(field[0]);
    const ints sides = Unit::bits(field[1]);  // axis, and above it which sides are empty
    const ints axis = Unit::both(sides, Unit::all(0xFFFF));
    const mask leaf = Unit::equal(sides, Unit::all(0xFFFF));
    store(at.leaf_start, group, Unit::bits(field[2]));
    store(at.leaf_count, group, Unit::bits(field[3]));

    const mask second = Unit::equal(axis, Unit::all(1));
    const mask third = Unit::equal(axis, Unit::all(2));
    const floats from = along(second, third, load3(at.origin, group));
    const floats scale = along(second, third, load3(at.inverse, group));
    const mask from_right = Unit::greater(Unit::all(0.0f), scale);
    const ints left = Unit::add(node, Unit::all(1));
    const ints near_child = Unit::select(from_right, right, left);
    const ints far_child = Unit::select(from_right, left, right);
    const floats near_plane = Unit::select(from_right, field[3], field[2]);
    const floats far_plane = Unit::select(from_right, field[2], field[3]);
    const floats t_near = Unit::multiply(Unit::subtract(near_plane, from), scale);
    const floats t_far = Unit::multiply(Unit::subtract(far_plane, from), scale);

    const mask near_missed = Unit::greater(t_min, t_near);
    const mask far_missed = Unit::greater(t_far, t_max);
    const floats t_min_far = Unit::select(Unit::greater(t_far, t_min), t_far, t_min);
    const floats t_max_near = Unit::select(Unit::greater(t_max, t_near), t_near, t_max);
    const mask inner = Unit::without(mask_of(walking, group), leaf);
    const mask both = Unit::without(Unit::without(inner, near_missed), far_missed);

    // An empty side is passed over where the other is visited too: straight on to the far side, as
    // from the end of the near one, or no far side to come back to.
    const mask left_empty = Unit::some(sides, Unit::all(0x10000));
    const mask right_empty = Unit::some(sides, Unit::all(0x20000));
    const mask near_empty = Unit::select(from_right, right_empty, left_empty);
    const mask far_empty = Unit::select(from_right, left_empty, right_empty);
    const mask hit = mask_of(at.hit, group);
    const floats reach = load(at.reach, group);
    const mask behind = Unit::both(hit, Unit::greater(t_far, reach));
    const mask passed = Unit::without(Unit::both(both, near_empty), behind);
    const mask pushed = Unit::without(Unit::without(both, near_empty), far_empty);

    // every lane writes its far side; where it isn't pushed that has no effect
    const floats entry[4] = {Unit::bits(far_child), t_far, t_min_far, t_max};
    store_rows(entry, at.stack, at.top.value + group * width);
    const ints top = load(at.top, group);
    store(at.top, group, Unit::select(pushed, Unit::add(top, Unit::all(1)), top));

    const mask to_far = Unit::either(Unit::both(inner, near_missed), passed);
    const mask to_near = Unit::without(inner, to_far);
    store(at.node, group, Unit::select(to_far, far_child, Unit::select(to_near, near_child, node)));
    store(at.t_min, group, Unit::select(to_far, t_min_far, t_min));
    const floats t_max_passed = Unit::select(Unit::both(passed, hit), reach, t_max);
    store(at.t_max, group, Unit::select(to_near, t_max_near, t_max_passed));
    return lanes_in(leaf, group);
  }

  static floats3 minus(const floats3& a, const floats3& b) {
    return {Unit::subtract(a.x, b.x), Unit::subtract(a.y, b.y), Unit::subtract(a.z, b.z)};
  }
  static floats det(floats p, floats q, floats r, floats s) {
    return Unit::subtract(Unit::multiply(p, q), Unit::multiply(r, s));
  }
  static floats3 cross(const floats3& a, const floats3& b) {
    return {det(a.y, b.z, a.z, b.y), det(a.z, b.x, a.x, b.z), det(a.x, b.y, a.y, b.x)};
  }
  static floats dot(const floats3& a, const floats3& b) {
    const floats x = Unit::add(Unit::all(0.0f), Unit::multiply(a.x, b.x));
    return Unit::add(Unit::add(x, Unit::multiply(a.y, b.y)), Unit::multiply(a.z, b.z));
  }

  /// All triangles of the leaves that lanes stand at, one of each leaf after the other, in vectors
  /// that hold whatever lanes.
  void test_leaves() {
    alignas(64) std::int32_t lane_of[room + 2 * width];
    alignas(64) std::int32_t place_of[room + 2 * width];
    int count = 0;
    const auto test_all = [&] {
      alignas(64) std::int32_t number[room + 2 * width];
      for (int i = 0; i < count; i += width) {
        const ints place = Unit::first(count - i, Unit::load(place_of + i));
        Unit::store(number + i, Unit::look_up(at.indices, place));
        for (int k = 0; k < width; ++k) __builtin_prefetch(at.triangles + number[i + k]);
      }
      for (int i = 0; i < count; i += width)
        test_triangles(lane_of + i, number + i, count - i < width ? count - i : width);
      count = 0;
    };
    for (int group = 0; group < groups; ++group) {
      const ints start = load(at.leaf_start, group);
      const ints size = load(at.leaf_count, group);
      const ints lanes = Unit::load(lane_numbers.value + group * width);
      const mask resting = mask_of(at_leaf, group);
      for (int i = 0;; ++i) {
        const mask more = Unit::both(resting, Unit::greater(size, Unit::all(i)));
        const unsigned bits = Unit::lanes_in(more);
        if (!bits) break;
        if (count > room) test_all();
        Unit::compress(more, lanes, lane_of + count);
        Unit::compress(more, Unit::add(start, Unit::all(i)), place_of + count);
        count += __builtin_popcount(bits);
      }
    }
    test_all();
  }

  static floats3 pick(ray_stream::vectors& from, ints lane) {
    return {Unit::pick(from.x.value, lane), Unit::pick(from.y.value, lane),
            Unit::pick(from.z.value, lane)};
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
    const floats3 n = cross(ab, ac);
    const floats d = dot(n, qp);
    const floats3 ap = minus(p, c0);
    const floats t = dot(n, ap);
    const floats3 e = cross(qp, ap);
    const floats v = dot(ac, e);
    const floats w = Unit::negate(dot(ab, e));
    const floats zero = Unit::all(0.0f);
    mask hit = Unit::greater(d, zero);
    hit = Unit::without(hit, Unit::greater(zero, t));
    hit = Unit::without(hit, Unit::greater(t, d));
    hit = Unit::without(hit, Unit::greater(zero, v));
    hit = Unit::without(hit, Unit::greater(v, d));
    hit = Unit::without(hit, Unit::greater(zero, w));
    hit = Unit::without(hit, Unit::greater(Unit::add(v, w), d));
    const unsigned hits = Unit::lanes_in(hit) & ((1u << count) - 1);
    if (!hits) return;

    const floats parameter = Unit::multiply(Unit::divide(Unit::all(1.0f), d), t);
    const floats3 pq = minus(q, p);
    const floats3 point{Unit::add(p.x, Unit::multiply(pq.x, parameter)),
                        Unit::add(p.y, Unit::multiply(pq.y, parameter)),
                        Unit::add(p.z, Unit::multiply(pq.z, parameter))};
    const floats3 way = minus(point, p);
    alignas(64) float t_of[width], reach_of[width];
    Unit::store(t_of, parameter);
    Unit::store(reach_of, Unit::root(dot(way, way)));
    for (unsigned rest = hits; rest; rest &= rest - 1) {
      const int i = __builtin_ctz(rest);
      const int to = lane_of[i];
      if ((at.hit >> to & 1) && !(at.best_t.value[to] > t_of[i])) continue;
      at.hit |= lane_mask{1} << to;
      at.best_t.value[to] = t_of[i];
      at.reach.value[to] = reach_of[i];
      at.best.value[to] = static_cast<std::uint32_t>(number[i]);
    }
  }

  /// From leaves to the nearest far sides that are left, or to the next rays.
  void go_on() {
    lane_mask beyond = 0;
    lane_mask done = 0;
    for (int group = 0; group < groups; ++group)
      if (at_leaf & lane_mask{Unit::all_lanes} << group * width) pop(group, beyond, done);
    for (; beyond; beyond &= beyond - 1) {
      const int lane = __builtin_ctzll(beyond);
      if (!search(lane)) done |= lane_mask{1} << lane;
    }
    for (; done; done &= done - 1) {
      const int lane = __builtin_ctzll(done);
      if (at.hit >> lane & 1) at.finish(lane);
      start(lane);
    }
  }

  /// Takes the last entry from the stack of each lane that stands at a leaf. Adds those whose entry
  /// lies behind the hit to `beyond`, and those without an entry to `done`.
  void pop(int group, lane_mask& beyond, lane_mask& done) {
    alignas(64) std::int32_t last[width];
    const mask resting = mask_of(at_leaf, group);
    const ints top = load(at.top, group);
    const ints bottom = Unit::load(stack_bottoms.value + group * width);
    const mask filled = Unit::both(resting, Unit::greater(top, bottom));
    const ints below = Unit::select(filled, Unit::add(top, Unit::all(-1)), top);
    Unit::store(last, below);
    store(at.top, group, below);
    floats field[4];
    load_rows(at.stack, last, 0, field);
    const floats reach = load(at.reach, group);
    const mask hit = mask_of(at.hit, group);
    const mask behind = Unit::both(filled, Unit::both(hit, Unit::greater(field[1], reach)));
    const mask found = Unit::without(filled, behind);
    store(at.node, group, Unit::select(found, Unit::bits(field[0]), load(at.node, group)));
    store(at.t_min, group, Unit::select(found, field[2], load(at.t_min, group)));
    store(at.t_max, group,
          Unit::select(found, Unit::select(hit, reach, field[3]), load(at.t_max, group)));
    beyond |= lanes_in(behind, group);
    done |= lanes_in(Unit::without(resting, filled), group);
  }

  /// Goes on below for a lane that has hit: most of what is left on its stack lies behind the hit.
  bool search(int lane) {
    const float reach = at.reach.value[lane];
    const ray_stream::pending* const bottom = at.stack + stack_bottoms.value[lane];
    const ray_stream::pending* next = at.stack + at.top.value[lane];
    do {
      if (next == bottom) return false;
      --next;
    } while (next->t_far > reach);
    at.top.value[lane] = static_cast<std::int32_t>(next - at.stack);
    at.node.value[lane] = next->node;
    at.t_min.value[lane] = next->t_min;
    at.t_max.value[lane] = reach;
    return true;
  }

  static constexpr int room = 96;  // triangles that wait for their tests

  struct lane_table {
    alignas(64) std::int32_t value[ray_stream::lanes];
  };
  static constexpr lane_table make_stack_bottoms() {
    lane_table table{};
    for (int lane = 0; lane < ray_stream::lanes; ++lane)
      table.value[lane] = lane * ray_stream::max_pending;
    return table;
  }
  static constexpr lane_table stack_bottoms = make_stack_bottoms();
  static constexpr lane_table make_lane_numbers() {
    lane_table table{};
    for (int lane = 0; lane < ray_stream::lanes; ++lane) table.value[lane] = lane;
    return table;
  }
  static constexpr lane_table lane_numbers = make_lane_numbers();
};

}  // namespace
}  // namespace morlu
