#pragma once

#include <iostream>

namespace morlu::program {

/// What is written to standard output goes to standard error while this lives.
class OutputToError {
 public:
  OutputToError() : before_(std::cout.rdbuf(std::cerr.rdbuf())) {}
  ~OutputToError() { std::cout.rdbuf(before_); }
  OutputToError(const OutputToError&) = delete;
  OutputToError& operator=(const OutputToError&) = delete;

 private:
  std::streambuf* const before_;
};

}  // namespace morlu::program
