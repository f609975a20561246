// Rays through scenes on AVX2: 8 lanes. Compiled for that unit; only `walk_stream` may be seen from
// outside.

#ifdef MORLU_VECTOR_UNITS

#include "ray/avx2_unit.h"

#include "occlusion/scene_walk.h"

namespace morlu {

void avx2::walk_stream(scene_stream& stream) {
  scene_walk<avx2_unit>{{stream}}.run();
}

}  // namespace morlu

#endif
