#pragma once

// Rays on their way through trees, a ray a lane: the steps of the walk of trace.h, for streams of
// any kind.
//
// Each lane makes the comparisons and roundings of the plain walk in its order, so its hit is the
// same bits. What lanes share is the machine's time: while one waits for memory the others go on,
// and hardly a branch depends on a single ray.
//
// Included by source files that are compiled for one vector unit. No inline function of other
// headers is called here: the linker could take its code for the whole library.

#include "ray/ray_stream.h"

namespace morlu {
namespace {

/// A stream holds the `nodes`, each lane's ray and place in the tree (`origin`, `inverse`, `node`,
/// `t_min`, `t_max`), its nearest hit (`hit`, `reach`) and its part of `stack`, from `bottom` to
/// `top`.
template <class Unit, class Stream>
struct lane_walk {
  using floats = typename Unit::floats;
  using ints = typename Unit::ints;
  using mask = typename Unit::mask;
  using lane_mask = ray_stream::lane_mask;
  struct floats3 {
    floats x, y, z;
  };
  static constexpr int width = Unit::lanes;
  static constexpr int words = ray_stream::words;
  static constexpr int groups = ray_stream::lanes / width;

  Stream& at;
  lane_mask at_leaf = 0;  // lanes that stand at a leaf

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
    gather([&](int lane) { return reinterpret_cast<const float*>(records + index[lane]) + from; },
           fields);
  }
  template <class Row>
  static void gather(const Row& row, floats (&fields)[4]) {
    floats rows[4];
    for (int k = 0; k < 4; ++k) rows[k] = Unit::load_each(row, k);
    Unit::transpose(rows, fields);
  }
  /// The same of the records of 16 bytes that begin at the words `first`, see `ray_stream::words`.
  template <class Record>
  static void load_at(const Record* records, const std::int32_t* first, floats (&fields)[4]) {
    const auto* const base = reinterpret_cast<const double*>(records);
    gather(
        [&](int lane) {
          return reinterpret_cast<const float*>(base + static_cast<std::uint32_t>(first[lane]));
        },
        fields);
  }
  template <class Record>
  static void store_at(const floats (&fields)[4], Record* records, const std::int32_t* first) {
    auto* const base = reinterpret_cast<double*>(records);
    const auto row = [&](int lane) {
      return reinterpret_cast<float*>(base + static_cast<std::uint32_t>(first[lane]));
    };
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
    load_at(at.nodes, at.node.value + group * width, field);
    const ints right = Unit::add(Unit::bits(field[0]), Unit::bits(field[0]));
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
    const ints left = Unit::add(node, Unit::all(words));
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
    store_at(entry, at.stack, at.top.value + group * width);
    const ints top = load(at.top, group);
    store(at.top, group, Unit::select(pushed, Unit::add(top, Unit::all(words)), top));

    const mask to_far = Unit::either(Unit::both(inner, near_missed), passed);
    const mask to_near = Unit::without(inner, to_far);
    store(at.node, group, Unit::select(to_far, far_child, Unit::select(to_near, near_child, node)));
    store(at.t_min, group, Unit::select(to_far, t_min_far, t_min));
    const floats t_max_passed = Unit::select(Unit::both(passed, hit), reach, t_max);
    store(at.t_max, group, Unit::select(to_near, t_max_near, t_max_passed));
    return lanes_in(leaf, group);
  }

  /// Sends lanes to the nearest far sides that are left to them; returns those without any.
  lane_mask pop_all(lane_mask lanes) {
    lane_mask beyond = 0;
    lane_mask done = 0;
    for (int group = 0; group < groups; ++group)
      if (lanes & lane_mask{Unit::all_lanes} << group * width) pop(group, lanes, beyond, done);
    for (; beyond; beyond &= beyond - 1) {
      const int lane = __builtin_ctzll(beyond);
      if (!search(lane)) done |= lane_mask{1} << lane;
    }
    return done;
  }

  /// Takes the last entry from the stack of each of the lanes. Adds those whose entry
  /// lies behind the hit to `beyond`, and those without an entry to `done`.
  void pop(int group, lane_mask lanes, lane_mask& beyond, lane_mask& done) {
    alignas(64) std::int32_t last[width];
    const mask resting = mask_of(lanes, group);
    const ints top = load(at.top, group);
    const ints bottom = load(at.bottom, group);
    const mask filled = Unit::both(resting, Unit::greater(top, bottom));
    const ints below = Unit::select(filled, Unit::add(top, Unit::all(-words)), top);
    Unit::store(last, below);
    store(at.top, group, below);
    floats field[4];
    load_at(at.stack, last, field);
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
    const ray_stream::pending* const bottom = at.stack + at.bottom.value[lane] / words;
    const ray_stream::pending* next = at.stack + at.top.value[lane] / words;
    do {
      if (next == bottom) return false;
      --next;
    } while (next->t_far > reach);
    at.top.value[lane] = static_cast<std::int32_t>(next - at.stack) * words;
    at.node.value[lane] = next->node;
    at.t_min.value[lane] = next->t_min;
    at.t_max.value[lane] = reach;
    return true;
  }

  // --- Leaves

  static constexpr int room = 96;  // entries that wait for their tests

  /// Hands on all entries of the leaves that `lanes` stand at, one of each leaf after the other, in
  /// rows that hold whatever lanes: `test(lane_of, place_of, count)`.
  template <class Test>
  void each_leaf_entry(lane_mask lanes, const Test& test) {
    alignas(64) std::int32_t lane_of[room + 2 * width];
    alignas(64) std::int32_t place_of[room + 2 * width];
    int count = 0;
    for (int group = 0; group < groups; ++group) {
      const ints start = load(at.leaf_start, group);
      const ints size = load(at.leaf_count, group);
      const ints numbers = Unit::load(lane_numbers.value + group * width);
      const mask resting = mask_of(lanes, group);
      for (int i = 0;; ++i) {
        const mask more = Unit::both(resting, Unit::greater(size, Unit::all(i)));
        const unsigned bits = Unit::lanes_in(more);
        if (!bits) break;
        if (count > room) {
          test(lane_of, place_of, count);
          count = 0;
        }
        Unit::compress(more, numbers, lane_of + count);
        Unit::compress(more, Unit::add(start, Unit::all(i)), place_of + count);
        count += __builtin_popcount(bits);
      }
    }
    if (count) test(lane_of, place_of, count);
  }

  // --- Boxes

  static floats3 all(const math::vector3& v) {
    return {Unit::all(v.values[0]), Unit::all(v.values[1]), Unit::all(v.values[2])};
  }
  static floats3 inverse_of(const floats3& v) {
    const floats one = Unit::all(1.0f);
    return {Unit::divide(one, v.x), Unit::divide(one, v.y), Unit::divide(one, v.z)};
  }

  /// `intersect_box` of a box a lane.
  static mask meets_box(const floats3& low, const floats3& high, const floats3& origin,
                        const floats3& direction, const floats3& inverse, floats& enter,
                        floats& exit) {
    enter = Unit::all(0.0f);
    exit = Unit::all(__FLT_MAX__);
    mask missed = Unit::lanes_of(0);
    slab(low.x, high.x, origin.x, direction.x, inverse.x, enter, exit, missed);
    slab(low.y, high.y, origin.y, direction.y, inverse.y, enter, exit, missed);
    slab(low.z, high.z, origin.z, direction.z, inverse.z, enter, exit, missed);
    return Unit::without(Unit::lanes_of(Unit::all_lanes), missed);
  }
  static void slab(floats low, floats high, floats origin, floats direction, floats inverse,
                   floats& enter, floats& exit, mask& missed) {
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

  static void copy(const ray_stream::vectors& in, int from, ray_stream::vectors& out, int to) {
    out.x.value[to] = in.x.value[from];
    out.y.value[to] = in.y.value[from];
    out.z.value[to] = in.z.value[from];
  }

  // --- Arithmetic in the order of vector_ops.h

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

  static floats3 pick(ray_stream::vectors& from, ints lane) {
    return {Unit::pick(from.x.value, lane), Unit::pick(from.y.value, lane),
            Unit::pick(from.z.value, lane)};
  }

  /// The comparisons of `triangle_test`.
  static mask meets_triangle(floats d, floats t, floats v, floats w) {
    const floats zero = Unit::all(0.0f);
    mask hit = Unit::greater(d, zero);
    hit = Unit::without(hit, Unit::greater(zero, t));
    hit = Unit::without(hit, Unit::greater(t, d));
    hit = Unit::without(hit, Unit::greater(zero, v));
    hit = Unit::without(hit, Unit::greater(v, d));
    hit = Unit::without(hit, Unit::greater(zero, w));
    return Unit::without(hit, Unit::greater(Unit::add(v, w), d));
  }
  /// The point on the segment from p to q at `parameter`.
  static floats3 point_on(const floats3& p, const floats3& q, floats parameter) {
    const floats3 pq = minus(q, p);
    return {Unit::add(p.x, Unit::multiply(pq.x, parameter)),
            Unit::add(p.y, Unit::multiply(pq.y, parameter)),
            Unit::add(p.z, Unit::multiply(pq.z, parameter))};
  }
  static floats distance(const floats3& a, const floats3& b) {
    const floats3 way = minus(a, b);
    return Unit::root(dot(way, way));
  }

  struct lane_table {
    alignas(64) std::int32_t value[ray_stream::lanes];
  };
  static constexpr lane_table make_lane_numbers() {
    lane_table table{};
    for (int lane = 0; lane < ray_stream::lanes; ++lane) table.value[lane] = lane;
    return table;
  }
  static constexpr lane_table lane_numbers = make_lane_numbers();
};

}  // namespace
}  // namespace morlu
