#pragma once

// AVX2: 8 lanes. Included only by source files that are compiled for that unit.

// Where this is compiled alone, without the unit, vectors would be handed over in another way.
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wpsabi"
#endif

#include <immintrin.h>

#include <cstdint>

namespace morlu {
namespace {

struct kept_lanes_table {
  std::uint8_t of[256][8];  // the lanes whose bits are set, then zeros
};
constexpr kept_lanes_table make_kept_lanes() {
  kept_lanes_table table{};
  for (int bits = 0; bits < 256; ++bits) {
    int count = 0;
    for (int lane = 0; lane < 8; ++lane)
      if (bits >> lane & 1) table.of[bits][count++] = static_cast<std::uint8_t>(lane);
  }
  return table;
}
constexpr kept_lanes_table kept_lanes = make_kept_lanes();

struct avx2_unit {
  static constexpr int lanes = 8;
  static constexpr unsigned all_lanes = 0xFF;
  using floats = __m256;
  using ints = __m256i;
  using mask = __m256;

  static floats load(const float* from) { return _mm256_load_ps(from); }
  static ints load(const std::int32_t* from) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(from));
  }
  static void store(float* to, floats value) { _mm256_store_ps(to, value); }
  static void store(std::int32_t* to, ints value) {
    _mm256_store_si256(reinterpret_cast<__m256i*>(to), value);
  }
  static floats all(float value) { return _mm256_set1_ps(value); }
  static ints all(int value) { return _mm256_set1_epi32(value); }
  static ints bits(floats value) { return _mm256_castps_si256(value); }
  static floats bits(ints value) { return _mm256_castsi256_ps(value); }

  static floats add(floats a, floats b) { return _mm256_add_ps(a, b); }
  static ints add(ints a, ints b) { return _mm256_add_epi32(a, b); }
  static floats subtract(floats a, floats b) { return _mm256_sub_ps(a, b); }
  static floats multiply(floats a, floats b) { return _mm256_mul_ps(a, b); }
  static floats divide(floats a, floats b) { return _mm256_div_ps(a, b); }
  static floats root(floats a) { return _mm256_sqrt_ps(a); }
  static floats absolute(floats a) { return bits(_mm256_and_si256(bits(a), all(INT32_MAX))); }
  static floats negate(floats a) {
    return bits(_mm256_xor_si256(bits(a), _mm256_set1_epi32(INT32_MIN)));
  }

  static mask greater(floats a, floats b) { return _mm256_cmp_ps(a, b, _CMP_GT_OQ); }
  static mask greater(ints a, ints b) { return bits(_mm256_cmpgt_epi32(a, b)); }
  static mask equal(ints a, ints b) { return bits(_mm256_cmpeq_epi32(a, b)); }
  /// Whether `a` has the one bit of `b`.
  static mask some(ints a, ints b) { return equal(_mm256_and_si256(a, b), b); }
  static ints both(ints a, ints b) { return _mm256_and_si256(a, b); }
  static mask both(mask a, mask b) { return _mm256_and_ps(a, b); }
  static mask either(mask a, mask b) { return _mm256_or_ps(a, b); }
  static mask without(mask a, mask b) { return _mm256_andnot_ps(b, a); }
  static unsigned lanes_in(mask m) { return static_cast<unsigned>(_mm256_movemask_ps(m)); }
  static mask lanes_of(unsigned which) {
    const ints bit = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
    return equal(_mm256_and_si256(all(static_cast<int>(which)), bit), bit);
  }
  static floats select(mask m, floats yes, floats no) { return _mm256_blendv_ps(no, yes, m); }
  static ints select(mask m, ints yes, ints no) {
    return bits(_mm256_blendv_ps(bits(no), bits(yes), m));
  }

  /// `table[index]` of 64 entries.
  static floats pick(const float* table, ints index) {
    return _mm256_i32gather_ps(table, index, 4);
  }
  static ints look_up(const std::uint32_t* table, ints index) {
    return _mm256_i32gather_epi32(reinterpret_cast<const int*>(table), index, 4);
  }
  /// The lanes before `count`, 0 in the others.
  static ints first(int count, ints value) {
    return _mm256_and_si256(
        value, _mm256_cmpgt_epi32(all(count), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7)));
  }
  /// Writes the lanes of `m` one after the other, and something up to the vector's width.
  static void compress(mask m, ints value, std::int32_t* to) {
    const __m128i order =
        _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kept_lanes.of[lanes_in(m)]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to),
                        _mm256_permutevar8x32_epi32(value, _mm256_cvtepu8_epi32(order)));
  }
  /// Four floats from each of the rows of lanes k and 4 + k.
  template <class RowOf>
  static floats load_each(const RowOf& row, int k) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(row(k))),
                                _mm_loadu_ps(row(4 + k)), 1);
  }
  template <class RowOf>
  static void store_each(floats value, const RowOf& row, int k) {
    _mm_storeu_ps(row(k), _mm256_castps256_ps128(value));
    _mm_storeu_ps(row(4 + k), _mm256_extractf128_ps(value, 1));
  }
  /// Between rows of lanes, four a vector as `load_each` puts them, and fields.
  static void transpose(const floats (&in)[4], floats (&out)[4]) {
    const floats a = _mm256_unpacklo_ps(in[0], in[1]), b = _mm256_unpacklo_ps(in[2], in[3]);
    const floats c = _mm256_unpackhi_ps(in[0], in[1]), d = _mm256_unpackhi_ps(in[2], in[3]);
    out[0] = _mm256_shuffle_ps(a, b, 0x44);
    out[1] = _mm256_shuffle_ps(a, b, 0xEE);
    out[2] = _mm256_shuffle_ps(c, d, 0x44);
    out[3] = _mm256_shuffle_ps(c, d, 0xEE);
  }
};

}  // namespace
}  // namespace morlu
