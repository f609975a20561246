#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

/// Numbers for keys of some 32-bit words each, given out in first-use order.
///
/// Open addressing with linear probing over slots of (hash, number), at most half of them taken.
/// The keys lie apart in one row, filled up with a zero to whole pairs of words. Work is done in
/// blocks: keys and hashes of a block first, then its look-ups, so that the memory behind them is
/// on its way. Nothing depends on addresses or on the order of the slots.
namespace morlu {

/// Where numbers go: every `stride`-th word of `words`, from `begin` on.
struct number_column {
  std::uint32_t* words;
  std::size_t begin = 0;
  std::size_t stride = 1;

  std::uint32_t& operator[](std::size_t item) const { return words[begin + item * stride]; }
};

inline constexpr std::uint32_t no_number = ~std::uint32_t{0};

/// `Pairs` is how many 64-bit words a key takes.
template <std::size_t Pairs>
class key_numbers {
 public:
  using key = std::array<std::uint64_t, Pairs>;

  /// `expected` keys at least fit without growing.
  explicit key_numbers(std::size_t expected) : slots_(slots_for(expected)) {
    keys_.reserve(expected);
  }

  std::uint32_t size() const { return static_cast<std::uint32_t>(keys_.size()); }

  /// Two chains, since each multiplication waits for the one before.
  static std::uint32_t hash(const key& of) {
    std::uint64_t even = 0x9e3779b97f4a7c15u, odd = 0xd1b54a32d192ed03u;
    for (std::size_t k = 0; k < Pairs; ++k) {
      std::uint64_t& chain = k % 2 == 0 ? even : odd;
      chain = (chain ^ of[k]) * 0xff51afd7ed558ccdu;
      chain ^= chain >> 32;
    }
    const std::uint64_t mixed = (even ^ (odd * 3)) * 0xc4ceb9fe1a85ec53u;
    return static_cast<std::uint32_t>(mixed >> 32);
  }

  void prefetch_slot(std::uint32_t hash) const { __builtin_prefetch(&slots_[hash & mask()]); }
  /// Of the key that a look-up will most likely be compared with.
  void prefetch_key(std::uint32_t hash) const {
    const slot& at = slots_[hash & mask()];
    if (at.hash == hash && at.number != no_number) __builtin_prefetch(&keys_[at.number]);
  }

  /// The number of an equal key that came before, else the next free one.
  std::uint32_t number(const key& of, std::uint32_t hash) {
    if (keys_.size() * 2 >= slots_.size()) grow();
    for (std::size_t at = hash & mask();; at = (at + 1) & mask()) {
      slot& here = slots_[at];
      if (here.number == no_number) {
        here = {hash, size()};
        keys_.push_back(of);
        return here.number;
      }
      if (here.hash == hash && equal(keys_[here.number], of)) return here.number;
    }
  }

 private:
  struct slot {
    std::uint32_t hash = 0;
    std::uint32_t number = no_number;
  };

  /// Most comparisons end with yes: all words at once.
  static bool equal(const key& a, const key& b) {
    std::uint64_t difference = 0;
    for (std::size_t k = 0; k < Pairs; ++k) difference |= a[k] ^ b[k];
    return difference == 0;
  }
  static std::size_t slots_for(std::size_t keys) {
    std::size_t slots = 64;
    while (slots < keys * 2) slots *= 2;
    return slots;
  }
  std::size_t mask() const { return slots_.size() - 1; }

  void grow() {
    std::vector<slot> larger(slots_.size() * 2);
    slots_.swap(larger);
    for (const slot& old : larger) {
      if (old.number == no_number) continue;
      std::size_t at = old.hash & mask();
      while (slots_[at].number != no_number) at = (at + 1) & mask();
      slots_[at] = old;
    }
  }

  std::vector<slot> slots_;
  std::vector<key> keys_;
};

/// Numbers the keys of items 0 to `count` - 1 (below 2^32), of which about `expected` differ,
/// without gaps: equal number, equal key. Returns the item that each number was given to first.
/// `load(begin, end, rows)` writes the keys of these items, at most 64, each to the front of a row
/// of 2 * Pairs zeros. O(count) time.
template <std::size_t Pairs, class Load>
std::vector<std::uint32_t> number_pairs(std::size_t count, std::size_t expected, number_column out,
                                        const Load& load) {
  constexpr std::size_t ahead = 64;
  key_numbers<Pairs> numbers(expected);
  std::vector<std::uint32_t> first;
  first.reserve(expected);
  std::array<std::uint32_t, ahead * 2 * Pairs> rows{};
  std::array<std::uint32_t, ahead> hashes;
  const auto key_in_row = [&rows](std::size_t i) {
    typename key_numbers<Pairs>::key key;
    std::memcpy(key.data(), &rows[i * 2 * Pairs], sizeof(key));
    return key;
  };
  for (std::size_t begin = 0; begin < count; begin += ahead) {
    const std::size_t block = std::min(ahead, count - begin);
    load(begin, begin + block, rows.data());
    for (std::size_t i = 0; i < block; ++i) {
      hashes[i] = numbers.hash(key_in_row(i));
      numbers.prefetch_slot(hashes[i]);
    }
    for (std::size_t i = 0; i < block; ++i) numbers.prefetch_key(hashes[i]);
    for (std::size_t i = 0; i < block; ++i) {
      const std::uint32_t fresh = numbers.size();
      const std::uint32_t number = numbers.number(key_in_row(i), hashes[i]);
      out[begin + i] = number;
      if (number == fresh) first.push_back(static_cast<std::uint32_t>(begin + i));
    }
  }
  return first;
}

/// The same for keys of any number of words up to 2 * Pairs. `load` gets the words from row to row
/// as well.
template <std::size_t Pairs, class Load>
std::vector<std::uint32_t> number_keys(std::size_t words, std::size_t count, std::size_t expected,
                                       number_column out, const Load& load) {
  if constexpr (Pairs > 1) {
    if (words <= 2 * (Pairs - 1)) return number_keys<Pairs - 1>(words, count, expected, out, load);
  }
  return number_pairs<Pairs>(count, expected, out,
                             [&](std::size_t begin, std::size_t end, std::uint32_t* rows) {
                               load(begin, end, rows, 2 * Pairs);
                             });
}

}  // namespace morlu
