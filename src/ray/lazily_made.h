#pragma once

#include <atomic>

namespace morlu {

/// A part that is made when it is first asked for, by whichever of several threads comes first.
template <class T>
class lazily_made {
 public:
  lazily_made() = default;
  lazily_made(const lazily_made&) = delete;
  lazily_made& operator=(const lazily_made&) = delete;
  ~lazily_made() { drop(); }

  /// What is there, or what `make` returns by `new`. Threads that ask at the same time may each
  /// make one; all get the same.
  template <class Make>
  const T& get(const Make& make) const {
    if (const T* there = made_.load(std::memory_order_acquire)) return *there;
    const T* const fresh = make();
    const T* there = nullptr;
    if (made_.compare_exchange_strong(there, fresh, std::memory_order_acq_rel)) return *fresh;
    delete fresh;
    return *there;
  }
  bool is_made() const { return made_.load(std::memory_order_acquire); }
  /// Not beside any other use.
  void drop() { delete made_.exchange(nullptr); }

 private:
  mutable std::atomic<const T*> made_{nullptr};
};

}  // namespace morlu
