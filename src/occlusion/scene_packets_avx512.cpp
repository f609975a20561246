// Rays through scenes on AVX-512: 16 lanes. Compiled for that unit; only `walk_packets` may be seen
// from outside.

#ifdef MORLU_VECTOR_UNITS

#include "ray/avx512_unit.h"

#include "occlusion/packet_walk.h"

namespace morlu {

void avx512::walk_packets(scene_packets& packets) {
  packet_walk<avx512_unit>(packets).run();
}

}  // namespace morlu

#endif
