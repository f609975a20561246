#pragma once

#include <functional>
#include <thread>
#include <vector>

namespace support {

/// Runs `work(thread number)` on `count` threads side by side.
inline void run_threads(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace support
