// Partitions with a record in one register. Compiled for AVX2; only `partition` may be seen from
// outside.

#ifdef MORLU_VECTOR_UNITS

#include <immintrin.h>

#include "ray/bih_partition.h"

namespace morlu {
namespace {

struct one_register {
  __m256 value;

  static one_register load(const bih_record& from) { return {_mm256_load_ps(from.low)}; }
  void store(bih_record& to) const { _mm256_store_ps(to.low, value); }
  static one_register all(float v) { return {_mm256_set1_ps(v)}; }
  static __m256 greater(float a, float b) {
    return _mm256_cmp_ps(_mm256_set1_ps(a), _mm256_set1_ps(b), _CMP_GT_OQ);
  }
  static one_register choose(__m256 mask, const one_register& yes, const one_register& no) {
    return {_mm256_blendv_ps(no.value, yes.value, mask)};
  }
  static one_register highest(const one_register& a, const one_register& b) {
    return {_mm256_max_ps(a.value, b.value)};
  }
  static one_register lowest(const one_register& a, const one_register& b) {
    return {_mm256_min_ps(a.value, b.value)};
  }
};

}  // namespace

bih_cut avx2::partition(bih_record* run, std::uint32_t count, float left_plane, float right_plane,
                        int axis, float mid) {
  return partition_run<one_register>(run, count, left_plane, right_plane, axis, mid);
}

}  // namespace morlu

#endif
