#include "kd/element_runs.h"

#include <algorithm>

namespace morlu {

element_runs::element_runs(std::uint64_t count)
    : records_(std::make_unique_for_overwrite<kd_record[]>(count + 1)), end_(count) {
  records_[count] = {};
}

void element_runs::make_room(std::uint64_t added) {
  if (added <= start_) return;
  const std::uint64_t used = size(), end = 2 * used + added;
  auto moved = std::make_unique_for_overwrite<kd_record[]>(end + 1);
  std::copy_n(front(), used, moved.get() + (end - used));
  moved[end] = {};
  records_ = std::move(moved);
  start_ = end - used;
  end_ = end;
}

void element_runs::insert(std::uint64_t left, const std::vector<kd_record>& first,
                          const std::vector<kd_record>& second) {
  const std::uint64_t added = first.size() + second.size();
  if (added == 0) return;
  make_room(added);
  kd_record* to = front() - added;
  to = std::copy_n(front(), left, to);
  to = std::copy(first.begin(), first.end(), to);
  std::copy(second.begin(), second.end(), to);
  start_ -= added;
}

std::uint32_t element_runs::part(std::uint32_t count, const kd_plane& plane) {
  //     left ... left | right ... right | unseen      the first right one stays in registers, and
  //                     ^ write           ^ i         nothing branches: sides are as good as random
  kd_record* const run = front();
  std::uint32_t write = 0;
  two_registers first = two_registers::load(run[0]);
  for (std::uint32_t i = 0; i < count; ++i) {
    const bool left = is_left(run[i], plane);
    const std::int32_t all = -static_cast<std::int32_t>(left);
    const two_registers::mask choice{all, all, all, all};
    const two_registers own = two_registers::load(run[i]);
    two_registers::choose(choice, own, first).store(run[write]);
    two_registers::choose(choice, first, own).store(run[i]);
    first = two_registers::choose(choice, two_registers::load(run[write + 1]), first);
    write += left;
  }
  return write;
}

}  // namespace morlu
