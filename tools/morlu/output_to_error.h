#pragma once

#include <iostream>

namespace morlu::program {

/// What is written to standard output goes to another stream while this lives.
class OutputTo {
 public:
  explicit OutputTo(const std::ostream& other) : before_(std::cout.rdbuf(other.rdbuf())) {}
  ~OutputTo() { std::cout.rdbuf(before_); }
  OutputTo(const OutputTo&) = delete;
  OutputTo& operator=(const OutputTo&) = delete;

 private:
  std::streambuf* const before_;
};

struct OutputToError : OutputTo {
  OutputToError() : OutputTo(std::cerr) {}
};

}  // namespace morlu::program
