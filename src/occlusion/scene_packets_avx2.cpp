// Rays through scenes on AVX2: 8 lanes. Compiled for that unit; only `walk_packets` may be seen
// from outside.

#ifdef MORLU_VECTOR_UNITS

#include "ray/avx2_unit.h"

#include "occlusion/packet_walk.h"

namespace morlu {

void avx2::walk_packets(scene_packets& packets) {
  packet_walk<avx2_unit>(packets).run();
}

}  // namespace morlu

#endif
