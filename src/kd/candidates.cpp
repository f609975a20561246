#include "kd/candidates.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace morlu {

namespace {

// Below, comparing is faster than counting digits.
constexpr std::size_t few_keys = 512;

/// Orders as the floats do.
std::uint32_t ordered_bits(float key) {
  const auto bits = std::bit_cast<std::uint32_t>(key);
  return bits & 0x80000000u ? ~bits : bits | 0x80000000u;
}

/// By digits of 11 bits, the lowest first; three passes.
void sort_by_digits(std::vector<float>& keys, std::vector<float>& spare) {
  constexpr std::uint32_t digit = 2048;
  constexpr std::array<int, 3> shifts{0, 11, 22};
  std::array<std::array<std::uint32_t, digit>, 3> places{};
  for (const float key : keys)
    for (int pass = 0; pass < 3; ++pass)
      ++places[pass][ordered_bits(key) >> shifts[pass] & (digit - 1)];
  for (auto& of_pass : places) {
    std::uint32_t sum = 0;
    for (std::uint32_t& place : of_pass) sum += std::exchange(place, sum);
  }
  spare.resize(keys.size());
  for (int pass = 0; pass < 3; ++pass) {
    for (const float key : keys)
      spare[places[pass][ordered_bits(key) >> shifts[pass] & (digit - 1)]++] = key;
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
