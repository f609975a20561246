#include "picture/progress_bar.h"

#include <unistd.h>

#include <iostream>

namespace morlu::program {
namespace {

constexpr std::size_t bar_width = 30;
constexpr auto pause = std::chrono::milliseconds(80);  // between two drawings

}  // namespace

ProgressBar::ProgressBar(std::string label, std::size_t total)
    : label_(std::move(label)),
      total_(total),
      shown_(total > 0 && isatty(STDERR_FILENO) == 1),
      drawn_at_(Clock::now()) {}

ProgressBar::~ProgressBar() {
  if (shown_) std::cerr << "\r\033[K" << std::flush;  // back to an empty line
}

void ProgressBar::step() {
  if (!shown_) return;
  const std::size_t done_so_far = ++done_;
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock || Clock::now() - drawn_at_ < pause) return;
  draw(done_so_far);
  drawn_at_ = Clock::now();
}

void ProgressBar::draw(std::size_t done_so_far) {
  const std::size_t filled = done_so_far * bar_width / total_;
  std::cerr << '\r' << label_ << " [" << std::string(filled, '#')
            << std::string(bar_width - filled, ' ') << "] " << done_so_far * 100 / total_ << " %"
            << std::flush;
}

}  // namespace morlu::program
