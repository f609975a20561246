#pragma once

#include <cstdint>
#include <cstring>

namespace morlu {

/// An element on its way through the partitions of a build.
struct alignas(32) bih_record {
  float low[3];
  std::uint32_t element;
  float high[3];
  std::uint32_t unused;
};

/// Where a partition cut a run, and what its sides reach.
struct bih_cut {
  std::uint32_t left_count;
  float left_plane;
  float right_plane;
};

// Unnamed: each file that is compiled for a vector unit of its own keeps its own code.
namespace {

/// A record in two registers that every processor has.
struct two_registers {
  using floats = float __attribute__((vector_size(16)));
  using mask = std::int32_t __attribute__((vector_size(16)));
  floats low, high;

  static two_registers load(const bih_record& from) {
    two_registers value;
    std::memcpy(&value, &from, sizeof value);
    return value;
  }
  void store(bih_record& to) const { std::memcpy(&to, this, sizeof to); }
  static two_registers all(float v) { return {floats{v, v, v, v}, floats{v, v, v, v}}; }
  static mask greater(float a, float b) { return floats{a, a, a, a} > floats{b, b, b, b}; }
  static two_registers choose(mask m, const two_registers& yes, const two_registers& no) {
    return {m ? yes.low : no.low, m ? yes.high : no.high};
  }
  static two_registers highest(const two_registers& a, const two_registers& b) {
    return {a.low, a.high > b.high ? a.high : b.high};
  }
  static two_registers lowest(const two_registers& a, const two_registers& b) {
    return {a.low < b.low ? a.low : b.low, a.high};
  }
};

/// Brings the elements whose centre lies below `mid` to the front: each changes places with the
/// first of the others before it. The planes start as given and are moved outward by the sides.
/// `Register` holds a record. Reads one record beyond the run.
///
///     left ... left | right ... right | unseen        the first right one stays in registers, and
///                     ^ write           ^ i           nothing branches: the sides of a scene's
///                                                     triangles are as good as random
template <class Register>
bih_cut partition_run(bih_record* run, std::uint32_t count, float left_plane, float right_plane,
                      int axis, float mid) {
  std::uint32_t write = 0;
  Register first = Register::load(run[0]);
  Register left_reach = Register::all(left_plane);
  Register right_reach = Register::all(right_plane);
  for (std::uint32_t i = 0; i < count; ++i) {
    const float low = run[i].low[axis];
    const float high = run[i].high[axis];
    const float centre = (high - low) * 0.5f + low;
    const auto left = Register::greater(mid, centre);
    const Register own = Register::load(run[i]);
    left_reach = Register::choose(left, Register::highest(own, left_reach), left_reach);
    right_reach = Register::choose(left, right_reach, Register::lowest(own, right_reach));
    Register::choose(left, own, first).store(run[write]);
    Register::choose(left, first, own).store(run[i]);
    // after the stores: an only right one has just moved there
    first = Register::choose(left, Register::load(run[write + 1]), first);
    write += mid > centre;
  }
  bih_record reach;
  left_reach.store(reach);
  left_plane = reach.high[axis];
  right_reach.store(reach);
  return {write, left_plane, reach.low[axis]};
}

}  // namespace

namespace avx2 {
bih_cut partition(bih_record* run, std::uint32_t count, float left_plane, float right_plane,
                  int axis, float mid);
}

}  // namespace morlu
