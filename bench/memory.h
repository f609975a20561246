#pragma once

#include <malloc.h>

#include <fstream>
#include <string>

namespace morlu::bench {

/// Bytes, from the kernel's account of this process: "VmRSS" or "VmHWM".
inline double process_memory(const std::string& entry) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);)
    if (line.rfind(entry, 0) == 0) return 1024 * std::stod(line.substr(entry.size() + 1));
  return 0;
}

/// The most bytes that `work` takes beyond what is there before.
template <class Work>
double peak_bytes(Work work) {
  malloc_trim(0);                               // what was freed counts no more
  std::ofstream("/proc/self/clear_refs") << 5;  // the high-water mark begins anew
  const double before = process_memory("VmRSS");
  work();
  return process_memory("VmHWM") - before;
}

}  // namespace morlu::bench
