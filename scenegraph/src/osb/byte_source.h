#pragma once

#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>

#include "osb/failure.h"

namespace osg::osb {

/// Bytes of a known number, read in order. Reading past the end throws a `Failure`, and so does a
/// source that fails or ends early.
class ByteSource {
 public:
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;
  virtual ~ByteSource();

  UInt64 offset() const { return window_offset_ + static_cast<UInt64>(cursor_ - window_.data()); }
  UInt64 remaining() const { return size_ - offset(); }

  void read(void* to, std::size_t count) {
    if (count <= window_left()) [[likely]] {
      if (count > 0) std::memcpy(to, cursor_, count);
      cursor_ += count;
    } else {
      read_beyond_window(static_cast<std::byte*>(to), count);
    }
  }
  template <class Number>
  requires std::is_arithmetic_v<Number> Number get() {
    Number value;
    read(&value, sizeof value);
    return value;
  }
  /// `count` things of `bytes_each` bytes or more are about to come: fails if they can't.
  void expect(UInt64 count, UInt64 bytes_each) const;
  void skip(UInt64 count);
  /// To a place read before or skipped.
  void seek(UInt64 offset);

  [[noreturn]] void fail(std::string reason) const { fail_at(offset(), std::move(reason)); }
  [[noreturn]] static void fail_at(UInt64 offset, std::string reason) {
    throw Failure{std::move(reason), offset};
  }

 protected:
  ByteSource(std::span<const std::byte> window, UInt64 size)
      : window_(window), cursor_(window.data()), size_(size) {}

  /// Reads exactly `count` bytes from `offset` on; they are there, by the size.
  virtual void read_at(UInt64 offset, std::byte* to, std::size_t count) = 0;
  /// Room that is filled with what comes next when the window is used up; may be empty.
  virtual std::span<std::byte> buffer() = 0;

 private:
  std::size_t window_left() const {
    return static_cast<std::size_t>(window_.data() + window_.size() - cursor_);
  }
  void read_beyond_window(std::byte* to, std::size_t count);

  std::span<const std::byte> window_;  // the bytes at hand
  const std::byte* cursor_;            // next one, in the window or at its end
  UInt64 window_offset_ = 0;           // of the window in the source
  UInt64 size_;
};

/// Bytes in memory, which have to stay there.
class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::span<const std::byte> bytes) : ByteSource(bytes, bytes.size()) {}

 private:
  void read_at(UInt64, std::byte*, std::size_t) override {}  // all bytes are in the window
  std::span<std::byte> buffer() override { return {}; }
};

}  // namespace osg::osb
