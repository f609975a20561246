#include "kd/candidates.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace morlu {

namespace {

// Below, comparing is faster than counting digits.
constexpr std::size_t few_keys = 400;

/// Orders as the floats do.
std::uint32_t ordered_bits(float key) {
  const auto bits = std::bit_cast<std::uint32_t>(key);
  return bits & 0x80000000u ? ~bits : bits | 0x80000000u;
}

/// By digits of 8 bits, the lowest first. Keys of one node are near one another, so that the
/// highest digit is mostly the same for all and needs no pass.
void sort_by_digits(std::vector<float>& keys, std::vector<float>& spare) {
  constexpr std::array<int, 4> shifts{0, 8, 16, 24};
  std::array<std::array<std::uint32_t, 256>, 4> places{};
  for (const float key : keys) {
    const std::uint32_t bits = ordered_bits(key);
    for (int pass = 0; pass < 4; ++pass) ++places[pass][bits >> shifts[pass] & 255];
  }
  spare.resize(keys.size());
  for (int pass = 0; pass < 4; ++pass) {
    auto& of_digit = places[pass];
    if (of_digit[ordered_bits(keys[0]) >> shifts[pass] & 255] == keys.size()) continue;
    std::uint32_t sum = 0;
    for (std::uint32_t& place : of_digit) sum += std::exchange(place, sum);
    for (const float key : keys) spare[of_digit[ordered_bits(key) >> shifts[pass] & 255]++] = key;
    keys.swap(spare);
  }
}

void sort_keys(std::vector<float>& keys, std::vector<float>& spare) {
  if (keys.size() < few_keys)
    std::sort(keys.begin(), keys.end());
  else
    sort_by_digits(keys, spare);
}

}  // namespace

void key_lists::sort() {
  for (std::vector<float>* keys : {&lows, &ends, &flats}) sort_keys(*keys, spare);
}

}  // namespace morlu
