#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kd/candidates.h"
#include "kd/strategies.h"

namespace morlu {

/// The elements that are still to be put into leaves, those of the current node in front. They
/// stand at the end of their memory, so that what a node adds needs only its own left side moved:
///
///     free ... | left | right | nodes to come
///              ^ front()
///
/// Throws `std::bad_alloc` and is as it was.
class element_runs {
 public:
  /// Room for `count` elements, which are yet to be written.
  explicit element_runs(std::uint64_t count);

  kd_record* front() { return records_.get() + start_; }
  std::uint64_t size() const { return end_ - start_; }
  /// The first `count` are done with.
  void drop(std::uint64_t count) { start_ += count; }
  /// Puts two lists between the first `left` elements and the next.
  void insert(std::uint64_t left, const std::vector<kd_record>& first,
              const std::vector<kd_record>& second);
  /// Brings the elements left of the plane to the front of the first `count`, others by their
  /// centre; each changes places with the first of the others before it. Returns their number.
  std::uint32_t part(std::uint32_t count, const kd_plane& plane);

 private:
  void make_room(std::uint64_t added);

  std::unique_ptr<kd_record[]> records_;  // one more than `end_`, which may be read
  std::uint64_t start_ = 0;
  std::uint64_t end_;
};

/// Whether an element is left of a plane, or, if the plane cuts it, its centre is. No NaN is.
inline bool is_left(const kd_record& element, const kd_plane& plane) {
  const float low = element.low[plane.axis], high = element.high[plane.axis];
  return static_cast<unsigned>(!(low >= plane.at)) &
         (static_cast<unsigned>(plane.at >= high) |
          static_cast<unsigned>(plane.at > centre_of(element, plane.axis)));
}
inline bool straddles(const kd_record& element, const kd_plane& plane) {
  return !(element.low[plane.axis] >= plane.at) && !(plane.at >= element.high[plane.axis]);
}

}  // namespace morlu
