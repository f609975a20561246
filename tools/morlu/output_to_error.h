#pragma once

#include <atomic>
#include <iostream>
#include <streambuf>

namespace morlu::program {

/// What is written to standard output goes to another stream while this lives. Progress may leave a
/// line open; it is ended in the end.
class OutputTo {
 public:
  explicit OutputTo(const std::ostream& other)
      : passed_on_(*other.rdbuf()), before_(std::cout.rdbuf(&passed_on_)) {}
  ~OutputTo() {
    if (passed_on_.is_line_open()) std::cout << std::endl;
    std::cout.rdbuf(before_);
  }
  OutputTo(const OutputTo&) = delete;
  OutputTo& operator=(const OutputTo&) = delete;

 private:
  class PassedOn : public std::streambuf {
   public:
    explicit PassedOn(std::streambuf& to) : to_(to) {}
    bool is_line_open() const { return last_ != '\n'; }

   private:
    int_type overflow(int_type c) override {
      if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
      last_ = traits_type::to_char_type(c);
      return to_.sputc(last_);
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
      if (size > 0) last_ = text[size - 1];
      return to_.sputn(text, size);
    }
    int sync() override { return to_.pubsync(); }

    std::streambuf& to_;
    std::atomic<char> last_ = '\n';  // workers write too
  };

  PassedOn passed_on_;
  std::streambuf* const before_;
};

struct OutputToError : OutputTo {
  OutputToError() : OutputTo(std::cerr) {}
};

}  // namespace morlu::program
