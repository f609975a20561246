// Rays through scenes on AVX-512: 16 lanes. Compiled for that unit; only `walk_stream` may be seen
// from outside.

#ifdef MORLU_VECTOR_UNITS

#include "ray/avx512_unit.h"

#include "occlusion/scene_walk.h"

namespace morlu {

void avx512::walk_stream(scene_stream& stream) {
  scene_walk<avx512_unit>{{stream}}.run();
}

}  // namespace morlu

#endif
