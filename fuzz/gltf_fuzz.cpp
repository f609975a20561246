// glTF as text, from any bytes.
#include "gltf_round_trip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzzing::check_gltf(data, size, ".glb");
  return 0;
}
