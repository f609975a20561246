// Binary glTF: the container is put around the input, so that the fuzzer gets at what is inside.
// The first two bytes tell how long the JSON text is, the rest of the input is the binary part.
#include <string>

#include "gltf_round_trip.h"

namespace {

std::string word(std::size_t value) {
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) text += static_cast<char>(value >> shift & 0xff);
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size >= 4 && data[0] == 'g' && data[1] == 'l') {  // a whole file
    fuzzing::check_gltf(data, size, ".gltf");
    return 0;
  }
  if (size < 2) return 0;
  const std::size_t json = std::min<std::size_t>(data[0] + std::size_t{256} * data[1], size - 2);
  const std::string text(data + 2, data + 2 + json);
  const std::string binary(data + 2 + json, data + size);
  std::string file = "glTF" + word(2) + word(28 + text.size() + binary.size());
  file += word(text.size()) + "JSON" + text;
  file += word(binary.size()) + std::string("BIN\0", 4) + binary;
  const std::string exact(file.data(), file.size());
  fuzzing::check_gltf(reinterpret_cast<const std::uint8_t*>(exact.data()), exact.size(), ".gltf");
  return 0;
}
