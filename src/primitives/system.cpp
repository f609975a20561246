// What the library asks of the operating system: a clock and a directory.
#include <chrono>

#include <boost/filesystem/operations.hpp>

#include "morlu/primitives.h"

namespace morlu {

unsigned int get_ms() {
  const auto since_origin = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<unsigned int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(since_origin).count());
}

void createDir(char* path) {
  const boost::filesystem::path directory(path ? path : "");
  if (!boost::filesystem::exists(boost::filesystem::status(directory))) {
    boost::filesystem::create_directory(directory);
  }
}

}  // namespace morlu
