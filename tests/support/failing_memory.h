#pragma once

#include <new>
#include <string>

#include "support/said.h"

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

/// What came of a work while a request for memory failed.
struct hindered {
  bool met = false;     // the request was made
  bool thrown = false;  // the failure came out
  std::string out, err;
};

template <class Work>
hindered with_failing_memory(int nth, const Work& work, bool all_later = false) {
  hindered result;
  said lines;
  {
    const failing_memory memory(nth, all_later);
    try {
      work();
    } catch (const std::bad_alloc&) {
      result.thrown = true;
    }
    result.met = memory.met();
  }
  lines.end();
  result.out = lines.out;
  result.err = lines.err;
  return result;
}

/// What comes of a request for memory where a test wants it to fail: the usual or, since any
/// function that asks may then throw it, something else.
enum class failure { bad_alloc, standard, other };

/// While it lives, the request with the number `nth` of all threads but this one fails. Only
/// `operator new`: threads call `realloc` before they are under way. At most one at a time.
class failing_workers {
 public:
  explicit failing_workers(int nth, failure kind = failure::bad_alloc);
  ~failing_workers();
  failing_workers(const failing_workers&) = delete;
  failing_workers& operator=(const failing_workers&) = delete;

  bool met() const;
};

}  // namespace morlu::test
