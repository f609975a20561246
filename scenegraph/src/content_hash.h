#pragma once

#include <cstddef>
#include <cstring>

#include "osg/base_types.h"

namespace osg::detail {

/// Takes `word` into `hash`. For a given hash no two words have the same result.
constexpr UInt64 mix_hash(UInt64 hash, UInt64 word) {
  hash = (hash ^ word) * 0x9e3779b97f4a7c15u;  // odd, so the product is one-to-one
  return hash ^ (hash >> 32);
}

/// Takes `count` bytes and their number into `hash`, eight at a time.
inline UInt64 hash_bytes(const void* bytes, std::size_t count, UInt64 hash = 0) {
  hash = mix_hash(hash, count);
  const auto* at = static_cast<const unsigned char*>(bytes);
  UInt64 word = 0;
  for (; count >= sizeof word; at += sizeof word, count -= sizeof word) {
    std::memcpy(&word, at, sizeof word);
    hash = mix_hash(hash, word);
  }
  word = 0;
  if (count > 0) std::memcpy(&word, at, count);
  return mix_hash(hash, word);
}

}  // namespace osg::detail
