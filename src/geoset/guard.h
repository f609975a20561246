#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <iostream>
#include <new>

namespace morlu::osg {

/// The lines that tell of a failed operation on the standard error stream: the first two go on with
/// the exception's text.
struct failure_texts {
  const char* out_of_memory;
  const char* exception;
  const char* other;
};

/// How many failures have ended in a guard since the process began. Whoever is to give something up
/// for a result compares the count before with that after: results of guarded work may have gaps.
inline std::atomic<std::uint64_t> ended_failures{0};

/// Runs `work`. Whatever it throws ends here: `restore` runs, which must not throw, one line says
/// what happened, and the result is false.
template <class Work, class Restore>
bool guarded(const failure_texts& texts, Work work, Restore restore) {
  try {
    work();
    return true;
  } catch (const std::bad_alloc& failure) {
    ++ended_failures;
    restore();
    std::cerr << texts.out_of_memory << failure.what() << std::endl;
  } catch (const std::exception& failure) {
    ++ended_failures;
    restore();
    std::cerr << texts.exception << failure.what() << std::endl;
  } catch (...) {
    ++ended_failures;
    restore();
    std::cerr << texts.other << std::endl;
  }
  return false;
}

/// The same where one line tells of all failures.
template <class Work>
bool guarded(const char* text, std::ostream& out, Work work) {
  try {
    work();
    return true;
  } catch (...) {
    ++ended_failures;
    out << text << std::endl;
  }
  return false;
}

}  // namespace morlu::osg
