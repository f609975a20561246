#include "support/failing_memory.h"

#include <cstdlib>
#include <new>
#include <stdexcept>

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UNDER_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UNDER_SANITIZER
#endif

// A new thread asks for memory before the thread sanitizer knows it.
#define UNTRACED __attribute__((no_sanitize("thread")))

struct state {
  bool armed = false;
  int left = 0;
  bool all_later = false;
  bool met = false;
};
thread_local state current;

// Of all threads but the one that has set it up. Read and written by built-in operations, which
// call nothing that the thread sanitizer follows.
struct shared_state {
  bool armed = false;
  int left = 0;
  morlu::test::failure kind = morlu::test::failure::bad_alloc;
};
shared_state workers;
thread_local bool is_no_worker = false;

UNTRACED bool fails_here() {
  if (!current.armed) return false;
  if (current.left > 0) {
    --current.left;
    return false;
  }
  if (current.met && !current.all_later) return false;
  return current.met = true;
}

UNTRACED bool fails_now() {
  if (!is_no_worker && __atomic_load_n(&workers.armed, __ATOMIC_ACQUIRE))
    return __atomic_fetch_sub(&workers.left, 1, __ATOMIC_RELAXED) == 0;
  return fails_here();
}

[[noreturn]] UNTRACED void fail() {
  using morlu::test::failure;
  const bool is_set_up = !is_no_worker && __atomic_load_n(&workers.armed, __ATOMIC_ACQUIRE);
  const failure kind = is_set_up ? workers.kind : failure::bad_alloc;
  if (kind == failure::standard) throw std::runtime_error("no good");
  if (kind == failure::other) throw 7;
  throw std::bad_alloc();
}

void* checked_block(void* block) {
  if (!block) fail();
  return block;
}

}  // namespace

#if defined(UNDER_SANITIZER)
extern "C" void* __interceptor_realloc(void*, std::size_t);
#define REAL_REALLOC __interceptor_realloc
#else
extern "C" void* __libc_realloc(void*, std::size_t);
#define REAL_REALLOC __libc_realloc
#endif

extern "C" UNTRACED void* realloc(void* block, std::size_t bytes) noexcept {
  return fails_here() ? nullptr : REAL_REALLOC(block, bytes);
}

void* operator new(std::size_t bytes) {
  return checked_block(fails_now() ? nullptr : std::malloc(bytes ? bytes : 1));
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
  const auto unit = static_cast<std::size_t>(alignment);
  return checked_block(fails_now() ? nullptr
                                   : std::aligned_alloc(unit, (bytes + unit - 1) / unit * unit));
}
// Sanitizers have further forms of their own, which would not go with these.
void* operator new[](std::size_t bytes) {
  return operator new(bytes);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return operator new(bytes);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  return operator new(bytes, std::nothrow);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  std::free(block);
}

namespace morlu::test {

failing_memory::failing_memory(int nth, bool all_later) {
  current = {true, nth, all_later, false};
}
failing_memory::~failing_memory() {
  current.armed = false;
}
bool failing_memory::met() const {
  return current.met;
}

failing_workers::failing_workers(int nth, failure kind) {
  is_no_worker = true;
  workers.left = nth;
  workers.kind = kind;
  __atomic_store_n(&workers.armed, true, __ATOMIC_RELEASE);
}
failing_workers::~failing_workers() {
  __atomic_store_n(&workers.armed, false, __ATOMIC_RELEASE);
  is_no_worker = false;
}
bool failing_workers::met() const {
  return __atomic_load_n(&workers.left, __ATOMIC_RELAXED) < 0;
}

}  // namespace morlu::test
