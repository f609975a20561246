// Rays on AVX2: 8 lanes. Compiled for that unit; only `walk_stream` may be seen from outside.

#ifdef MORLU_VECTOR_UNITS

#include "ray/avx2_unit.h"
#include "ray/stream_walk.h"

namespace morlu {

void avx2::walk_stream(ray_stream& stream) {
  stream_walk<avx2_unit>{{stream}}.run();
}

}  // namespace morlu

#endif
