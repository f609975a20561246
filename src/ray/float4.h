#pragma once

#include <cstdint>
#include <cstring>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

/// Four floats side by side: each lane makes the operation and the rounding that a float alone
/// would.
namespace morlu {

using float4 = float __attribute__((vector_size(16)));
using mask4 = std::int32_t __attribute__((vector_size(16)));  // -1 or 0 a lane

inline float4 all(float value) {
  return float4{value, value, value, value};
}
inline float4 abs(float4 v) {
  return reinterpret_cast<float4>(reinterpret_cast<mask4>(v) & 0x7fffffff);
}

/// Bit i tells lane i.
inline unsigned lanes_of(mask4 m) {
#if defined(__SSE__)
  return static_cast<unsigned>(_mm_movemask_ps(reinterpret_cast<__m128>(m)));
#else
  return static_cast<unsigned>((m[0] & 1) | (m[1] & 2) | (m[2] & 4) | (m[3] & 8));
#endif
}

struct float4x3 {
  float4 x, y, z;
};

inline float4x3 operator-(const float4x3& a, const float4x3& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
/// In the order of `math::dot`, but for its leading zero, which only tells zeros of either sign
/// apart.
inline float4 dot(const float4x3& a, const float4x3& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline float4x3 cross(const float4x3& a, const float4x3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

}  // namespace morlu
