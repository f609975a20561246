#include "osb/byte_source.h"

#include <algorithm>

namespace osg::osb {

ByteSource::~ByteSource() = default;

void ByteSource::expect(UInt64 count, UInt64 bytes_each) const {
  if (count <= remaining() / bytes_each) return;
  fail(std::to_string(count) + " entries can't stand in the " + std::to_string(remaining()) +
       " bytes that are left");
}

void ByteSource::skip(UInt64 count) {
  expect(count, 1);
  seek(offset() + count);
}

void ByteSource::seek(UInt64 offset) {
  if (offset >= window_offset_ && offset - window_offset_ <= window_.size()) {
    cursor_ = window_.data() + (offset - window_offset_);
    return;
  }
  window_offset_ = offset;
  window_ = {};
  cursor_ = window_.data();
}

void ByteSource::read_beyond_window(std::byte* to, std::size_t count) {
  if (count > remaining()) {
    fail("the file ends within a value of " + std::to_string(count) + " bytes");
  }
  const std::size_t at_hand = window_left();
  if (at_hand > 0) std::memcpy(to, cursor_, at_hand);
  cursor_ += at_hand;
  to += at_hand;
  count -= at_hand;
  const std::span<std::byte> room = buffer();
  if (count >= room.size()) {  // large blocks go straight to their place
    read_at(offset(), to, count);
    seek(offset() + count);
    return;
  }
  const UInt64 from = offset();
  const auto filled = static_cast<std::size_t>(std::min<UInt64>(room.size(), remaining()));
  read_at(from, room.data(), filled);
  window_offset_ = from;
  window_ = room.first(filled);
  cursor_ = window_.data();
  read(to, count);
}

}  // namespace osg::osb
