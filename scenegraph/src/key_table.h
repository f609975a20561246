#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <type_traits>
#include <vector>

#include "content_hash.h"
#include "osg/base_types.h"

/// Numbers for keys of a few 32-bit words each, given out in first-use order.
///
/// Open addressing with linear probing over slots of (hash, number); the keys lie apart in one
/// row, so that growing moves eight bytes a key. At most half of the slots are taken. Nothing
/// depends on addresses or on the order of the slots.
namespace osg::detail {

inline constexpr UInt32 kNoNumber = ~UInt32{0};

/// `Width` is the words of a key: a `std::integral_constant`, or a `std::size_t` for rare widths.
template <class Width>
class KeyTable {
 public:
  explicit KeyTable(Width width) : width_(width), slots_(kFirstSlots) {}

  UInt32 size() const { return count_; }

  UInt32 hash(const UInt32* key) const {
    UInt64 state = 0;
    const std::size_t words = width_;
    for (std::size_t k = 0; k + 1 < words; k += 2)
      state = mix_hash(state, key[k] | UInt64{key[k + 1]} << 32);
    if (words % 2 == 1) state = mix_hash(state, key[words - 1]);
    return static_cast<UInt32>(mix_hash(mix_hash(state, words), 0));
  }

  void prefetch(UInt32 hash_of_key) const { __builtin_prefetch(&slots_[hash_of_key & mask()]); }

  /// The number of an equal key that came before, else the next free one. At most 2^32 - 1 keys.
  UInt32 number(const UInt32* key, UInt32 hash_of_key) {
    if (std::size_t{count_} * 2 >= slots_.size()) grow();
    for (std::size_t at = hash_of_key & mask();; at = (at + 1) & mask()) {
      Slot& slot = slots_[at];
      if (slot.number == kNoNumber) {
        slot = {hash_of_key, count_};
        keys_.insert(keys_.end(), key, key + std::size_t{width_});
        return count_++;
      }
      if (slot.hash == hash_of_key && holds(slot.number, key)) return slot.number;
    }
  }

 private:
  struct Slot {
    UInt32 hash = 0;
    UInt32 number = kNoNumber;
  };
  static constexpr std::size_t kFirstSlots = 1024;
  static constexpr std::size_t kLarge = std::size_t{1} << 20;  // slots; grow by less from here

  std::size_t mask() const { return slots_.size() - 1; }
  bool holds(UInt32 number, const UInt32* key) const {
    return std::equal(key, key + std::size_t{width_}, keys_.data() + number * std::size_t{width_});
  }

  void grow() {
    std::vector<Slot> larger(slots_.size() * (slots_.size() < kLarge ? 4 : 2));
    slots_.swap(larger);
    for (const Slot& slot : larger) {
      if (slot.number == kNoNumber) continue;
      std::size_t at = slot.hash & mask();
      while (slots_[at].number != kNoNumber) at = (at + 1) & mask();
      slots_[at] = slot;
    }
  }

  [[no_unique_address]] Width width_;
  UInt32 count_ = 0;
  std::vector<Slot> slots_;
  std::vector<UInt32> keys_;
};

/// Calls `use` with the width as a constant where keys of it are common.
template <class Use>
decltype(auto) with_key_width(std::size_t words, Use use) {
  switch (words) {
    case 1:
      return use(std::integral_constant<std::size_t, 1>{});
    case 2:
      return use(std::integral_constant<std::size_t, 2>{});
    case 3:
      return use(std::integral_constant<std::size_t, 3>{});
    case 4:
      return use(std::integral_constant<std::size_t, 4>{});
    default:
      return use(words);
  }
}

/// Numbers the keys of items 0 to `count` - 1. `load(item, words)` writes an item's key,
/// `store(item, number, fresh)` takes its number and whether it is new. Hashes run ahead of the
/// look-ups, so that the memory behind a look-up is on its way. O(count) time.
template <class Width, class Load, class Store>
void number_keys(Width width, std::size_t count, Load load, Store store) {
  constexpr std::size_t kAhead = 32;
  KeyTable<Width> table(width);
  std::vector<UInt32> keys(kAhead * std::size_t{width});
  std::array<UInt32, kAhead> hashes;
  for (std::size_t first = 0; first < count; first += kAhead) {
    const std::size_t block = std::min(kAhead, count - first);
    for (std::size_t i = 0; i < block; ++i) {
      UInt32* key = &keys[i * std::size_t{width}];
      load(first + i, key);
      hashes[i] = table.hash(key);
      table.prefetch(hashes[i]);
    }
    for (std::size_t i = 0; i < block; ++i) {
      const UInt32 before = table.size();
      const UInt32 number = table.number(&keys[i * std::size_t{width}], hashes[i]);
      store(first + i, number, number == before);
    }
  }
}

}  // namespace osg::detail
