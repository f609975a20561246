#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

namespace morlu::program {

/// A bar on standard error, if that is a terminal: nobody wants one in a log. Gone with the object.
class ProgressBar {
 public:
  ProgressBar(std::string label, std::size_t total);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// One more of the total is done; from any thread.
  void step();

 private:
  using Clock = std::chrono::steady_clock;

  void draw(std::size_t done_so_far);

  const std::string label_;
  const std::size_t total_;
  const bool shown_;
  std::atomic<std::size_t> done_{0};
  std::mutex mutex_;
  Clock::time_point drawn_at_;  // under the mutex
};

}  // namespace morlu::program
