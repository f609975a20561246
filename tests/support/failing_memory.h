#pragma once

namespace morlu::test {

/// While it lives, requests for memory on this thread fail: the one with the number `nth`, counted
/// from 0, and with `all_later` those after it. What fails are `operator new` and `realloc`, in all
/// libraries of the program.
class failing_memory {
 public:
  explicit failing_memory(int nth, bool all_later = false);
  ~failing_memory();
  failing_memory(const failing_memory&) = delete;
  failing_memory& operator=(const failing_memory&) = delete;

  /// Whether a request has failed.
  bool met() const;
};

}  // namespace morlu::test
