#pragma once

#include <gtest/gtest.h>

#include <string>

namespace morlu::test {

/// What is said on both streams from when it is made to `end`.
class said {
 public:
  said() {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
  }
  void end() {
    out = testing::internal::GetCapturedStdout();
    err = testing::internal::GetCapturedStderr();
  }
  std::string out, err;
};

}  // namespace morlu::test
