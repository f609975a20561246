#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

#include "osg/base_types.h"

namespace osg::osb {

/// Takes bytes in order and passes them on in large pieces.
class ByteSink {
 public:
  ByteSink(const ByteSink&) = delete;
  ByteSink& operator=(const ByteSink&) = delete;
  virtual ~ByteSink();

  void write(const void* from, std::size_t count) {
    const auto* bytes = static_cast<const std::byte*>(from);
    if (count > kBufferSize - buffer_.size()) [[unlikely]] {
      flush();
      if (count >= kBufferSize) return pass_on(bytes, count);
    }
    buffer_.insert(buffer_.end(), bytes, bytes + count);
  }
  template <class Number>
  requires std::is_arithmetic_v<Number>
  void put(Number value) { write(&value, sizeof value); }

  /// Passes on what is held back.
  void flush() {
    if (!buffer_.empty()) pass_on(buffer_.data(), buffer_.size());
    buffer_.clear();
  }

 protected:
  ByteSink() { buffer_.reserve(kBufferSize); }
  /// Throws a `Failure` if the bytes can't be taken.
  virtual void pass_on(const std::byte* from, std::size_t count) = 0;

 private:
  static constexpr std::size_t kBufferSize = 256 * 1024;
  std::vector<std::byte> buffer_;
};

class MemorySink final : public ByteSink {
 public:
  explicit MemorySink(std::vector<std::byte>& bytes) : bytes_(bytes) {}

 private:
  void pass_on(const std::byte* from, std::size_t count) override {
    bytes_.insert(bytes_.end(), from, from + count);
  }
  std::vector<std::byte>& bytes_;
};

}  // namespace osg::osb
