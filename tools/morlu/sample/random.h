#pragma once

#include <cstdint>

namespace morlu::sample {

/// Random numbers that are the same on every machine, as long as no two are drawn among the
/// arguments of one call, whose order is the compiler's. After G. Marsaglia, "Xorshift RNGs"
/// (2003), with the output multiplier of S. Vigna (2016).
class Random {
 public:
  /// Any seed, also 0; `stream` gives independent rows of numbers for one seed.
  explicit Random(std::uint64_t seed, std::uint64_t stream = 0)
      : state_((seed + 1) * 0x9E3779B97F4A7C15u ^ (stream + 1) * 0xD1B54A32D192ED03u) {
    if (state_ == 0) state_ = 1;
    for (int i = 0; i < 8; ++i) next();
  }

  /// 32 random bits.
  std::uint32_t next() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return static_cast<std::uint32_t>((state_ * 0x2545F4914F6CDD1Du) >> 32);
  }
  /// From 0 to `count` - 1; `count` is at least 1.
  std::uint32_t below(std::uint32_t count) {
    return static_cast<std::uint32_t>((std::uint64_t{next()} * count) >> 32);
  }
  /// From `low` to `high`, both included.
  int between(int low, int high) {
    return low + static_cast<int>(below(static_cast<std::uint32_t>(high - low) + 1));
  }
  /// From 0 up to, but not including, 1 in steps of 2^-24.
  float share() { return static_cast<float>(next() >> 8) * 0x1p-24f; }
  /// True once in `count` times.
  bool one_in(std::uint32_t count) { return below(count) == 0; }

 private:
  std::uint64_t state_;
};

}  // namespace morlu::sample
