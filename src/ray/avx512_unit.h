#pragma once

// AVX-512: 16 lanes. Included only by source files that are compiled for that unit.

// The compiler's own header starts results from undefined registers. Where this one is compiled
// alone, without the unit, vectors would be handed over in another way.
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wpsabi"
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

#include <cstdint>

namespace morlu {
namespace {

struct avx512_unit {
  static constexpr int lanes = 16;
  static constexpr unsigned all_lanes = 0xFFFF;
  using floats = __m512;
  using ints = __m512i;
  using mask = __mmask16;

  static floats load(const float* from) { return _mm512_load_ps(from); }
  static ints load(const std::int32_t* from) { return _mm512_load_si512(from); }
  static void store(float* to, floats value) { _mm512_store_ps(to, value); }
  static void store(std::int32_t* to, ints value) { _mm512_store_si512(to, value); }
  static floats all(float value) { return _mm512_set1_ps(value); }
  static ints all(int value) { return _mm512_set1_epi32(value); }
  static ints bits(floats value) { return _mm512_castps_si512(value); }
  static floats bits(ints value) { return _mm512_castsi512_ps(value); }

  static floats add(floats a, floats b) { return _mm512_add_ps(a, b); }
  static ints add(ints a, ints b) { return _mm512_add_epi32(a, b); }
  static floats subtract(floats a, floats b) { return _mm512_sub_ps(a, b); }
  static floats multiply(floats a, floats b) { return _mm512_mul_ps(a, b); }
  static floats divide(floats a, floats b) { return _mm512_div_ps(a, b); }
  static floats root(floats a) { return _mm512_sqrt_ps(a); }
  static floats absolute(floats a) { return bits(_mm512_and_si512(bits(a), all(INT32_MAX))); }
  static floats negate(floats a) {
    return bits(_mm512_xor_si512(bits(a), _mm512_set1_epi32(INT32_MIN)));
  }

  static mask greater(floats a, floats b) { return _mm512_cmp_ps_mask(a, b, _CMP_GT_OQ); }
  static mask greater(ints a, ints b) { return _mm512_cmpgt_epi32_mask(a, b); }
  static mask equal(ints a, ints b) { return _mm512_cmpeq_epi32_mask(a, b); }
  static unsigned lanes_in(mask m) { return m; }
  /// Whether `a` has the one bit of `b`.
  static mask some(ints a, ints b) { return _mm512_test_epi32_mask(a, b); }
  static ints both(ints a, ints b) { return _mm512_and_si512(a, b); }
  static mask select(mask m, mask yes, mask no) { return static_cast<mask>((m & yes) | (~m & no)); }
  static mask both(mask a, mask b) { return a & b; }
  static mask either(mask a, mask b) { return a | b; }
  static mask without(mask a, mask b) { return a & ~b; }
  static mask lanes_of(unsigned which) { return static_cast<mask>(which); }
  static floats select(mask m, floats yes, floats no) { return _mm512_mask_blend_ps(m, no, yes); }
  static ints select(mask m, ints yes, ints no) { return _mm512_mask_blend_epi32(m, no, yes); }

  /// `table[index]` of 64 entries.
  static floats pick(const float* table, ints index) {
    const floats lower = _mm512_permutex2var_ps(load(table), index, load(table + 16));
    const floats upper = _mm512_permutex2var_ps(load(table + 32), index, load(table + 48));
    return select(some(index, all(32)), upper, lower);
  }
  static ints look_up(const std::uint32_t* table, ints index) {
    return _mm512_i32gather_epi32(index, table, 4);
  }
  /// The lanes before `count`, 0 in the others.
  static ints first(int count, ints value) {
    return _mm512_maskz_mov_epi32(static_cast<mask>(count < lanes ? (1u << count) - 1 : all_lanes),
                                  value);
  }
  /// Writes the lanes of `m` one after the other, and something up to the vector's width.
  static void compress(mask m, ints value, std::int32_t* to) {
    _mm512_storeu_si512(to, _mm512_maskz_compress_epi32(m, value));
  }

  /// Four floats from each of the rows of lanes k, 4 + k, 8 + k and 12 + k.
  template <class RowOf>
  static floats load_each(const RowOf& row, int k) {
    floats all = _mm512_castps128_ps512(_mm_loadu_ps(row(k)));
    all = _mm512_insertf32x4(all, _mm_loadu_ps(row(4 + k)), 1);
    all = _mm512_insertf32x4(all, _mm_loadu_ps(row(8 + k)), 2);
    return _mm512_insertf32x4(all, _mm_loadu_ps(row(12 + k)), 3);
  }
  template <class RowOf>
  static void store_each(floats value, const RowOf& row, int k) {
    _mm_storeu_ps(row(k), _mm512_castps512_ps128(value));
    _mm_storeu_ps(row(4 + k), _mm512_extractf32x4_ps(value, 1));
    _mm_storeu_ps(row(8 + k), _mm512_extractf32x4_ps(value, 2));
    _mm_storeu_ps(row(12 + k), _mm512_extractf32x4_ps(value, 3));
  }
  /// Between rows of lanes, four a vector as `load_each` puts them, and fields.
  static void transpose(const floats (&in)[4], floats (&out)[4]) {
    const floats a = _mm512_unpacklo_ps(in[0], in[1]), b = _mm512_unpacklo_ps(in[2], in[3]);
    const floats c = _mm512_unpackhi_ps(in[0], in[1]), d = _mm512_unpackhi_ps(in[2], in[3]);
    out[0] = _mm512_shuffle_ps(a, b, 0x44);
    out[1] = _mm512_shuffle_ps(a, b, 0xEE);
    out[2] = _mm512_shuffle_ps(c, d, 0x44);
    out[3] = _mm512_shuffle_ps(c, d, 0xEE);
  }
};

}  // namespace
}  // namespace morlu
