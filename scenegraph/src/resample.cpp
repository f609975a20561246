// Separable resampling in integers. Weights are fixed-point numbers that sum up to exactly one, so
// a constant image stays as it is, and results are the same on every machine: they are the exact
// average or interpolation, rounded half up, but for sums within about 2^-16 of a half.
//
// Rejected: the resampling of stb, whose scratch sizes and row offsets are 32-bit numbers that
// overflow on long thin images, whose checks end the process, and whose weights are floats.

#include "resample.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace osg::detail {

namespace {

constexpr UInt32 kWeightBits = 31;  // so that the weight one fits 32 bits: twice as fast a product
constexpr UInt32 kRowBits = 16;     // binary places of a sample between the two passes
constexpr UInt32 kOne = UInt32{1} << kWeightBits;

/// The source samples `first`, `first + 1`, ... that make one sample of the result.
struct Taps {
  UInt32 first;
  UInt32 count;
  std::size_t weights;  // place of the first weight in the filter's list
};

/// How the samples along an axis come from those before.
struct AxisFilter {
  std::vector<Taps> taps;
  std::vector<UInt32> weights;

  /// Appends a weight that ends at `sum` of `total`, so that all of a sample make up `kOne`.
  void add_weight(UInt64 sum, UInt64 total) {
    const auto end = static_cast<UInt32>((sum << kWeightBits) / total);
    weights.push_back(end - placed_);
    placed_ = end == kOne ? 0 : end;
    ++taps.back().count;
  }
  void add_sample(UInt64 first) { taps.push_back({static_cast<UInt32>(first), 0, weights.size()}); }

 private:
  UInt32 placed_ = 0;
};

/// Sample i of the result covers i * from ... (i + 1) * from on a scale on which source sample j
/// covers j * to ... (j + 1) * to.
AxisFilter shrinking_filter(UInt64 from, UInt64 to) {
  AxisFilter filter;
  filter.taps.reserve(to);
  filter.weights.reserve(from + to);
  for (UInt64 i = 0; i < to; ++i) {
    const UInt64 begin = i * from;
    const UInt64 end = begin + from;
    filter.add_sample(begin / to);
    for (UInt64 j = begin / to; j * to < end; ++j)
      filter.add_weight(std::min((j + 1) * to, end) - begin, from);
  }
  return filter;
}

/// The centre of sample i lies ((2i + 1) * from - to) / (2 * to) source samples behind the centre
/// of source sample 0.
AxisFilter growing_filter(UInt64 from, UInt64 to) {
  AxisFilter filter;
  filter.taps.reserve(to);
  filter.weights.reserve(2 * to);
  const UInt64 total = 2 * to;
  for (UInt64 i = 0; i < to; ++i) {
    const UInt64 shifted = (2 * i + 1) * from + to;  // one source sample more, never negative
    const UInt64 left = shifted / total;             // the left neighbour's number and one
    const UInt64 rest = shifted % total;
    const bool inside = left > 0 && left < from && rest > 0;
    filter.add_sample(left == 0 ? 0 : std::min(left, from) - 1);
    if (inside) filter.add_weight(total - rest, total);
    filter.add_weight(total, total);
  }
  return filter;
}

AxisFilter filter_for(UInt32 from, UInt32 to) {
  return from > to ? shrinking_filter(from, to) : growing_filter(from, to);
}

using Row = std::vector<UInt32>;

template <UInt32 Channels>
void filter_row(const UInt8* from, const AxisFilter& filter, Row& row) {
  UInt32* to = row.data();
  for (const Taps& taps : filter.taps) {
    std::array<UInt64, Channels> sums{};
    const UInt8* pixel = from + std::size_t{taps.first} * Channels;
    const UInt32* weight = filter.weights.data() + taps.weights;
    for (UInt32 t = 0; t < taps.count; ++t, ++weight, pixel += Channels)
      for (UInt32 c = 0; c < Channels; ++c) sums[c] += UInt64{*weight} * pixel[c];
    constexpr UInt32 shift = kWeightBits - kRowBits;
    for (const UInt64 sum : sums)
      *to++ = static_cast<UInt32>((sum + (UInt64{1} << (shift - 1))) >> shift);
  }
}

void widen_row(const UInt8* from, Row& row) {
  for (std::size_t i = 0; i < row.size(); ++i) row[i] = UInt32{from[i]} << kRowBits;
}

/// Rows of the source, filtered along x. Holds the last two, which is what neighbouring rows of the
/// result share.
class FilteredRows {
 public:
  FilteredRows(const UInt8* from, UInt32 from_width, UInt32 to_width, UInt32 channels)
      : from_(from),
        from_stride_(std::size_t{from_width} * channels),
        channels_(channels),
        same_width_(from_width == to_width) {
    if (!same_width_) filter_ = filter_for(from_width, to_width);
    for (Slot& slot : slots_) slot.row.resize(std::size_t{to_width} * channels);
  }

  const Row& operator[](UInt32 number) {
    Slot& slot = slots_[number % 2];
    if (!slot.filled || slot.number != number) {
      compute(from_ + number * from_stride_, slot.row);
      slot.filled = true;
      slot.number = number;
    }
    return slot.row;
  }

 private:
  struct Slot {
    bool filled = false;
    UInt32 number = 0;
    Row row;
  };

  void compute(const UInt8* from, Row& row) const {
    if (same_width_) return widen_row(from, row);
    switch (channels_) {
      case 1:
        return filter_row<1>(from, filter_, row);
      case 2:
        return filter_row<2>(from, filter_, row);
      case 3:
        return filter_row<3>(from, filter_, row);
      default:
        return filter_row<4>(from, filter_, row);
    }
  }

  const UInt8* from_;
  std::size_t from_stride_;
  UInt32 channels_;
  bool same_width_;
  AxisFilter filter_;
  std::array<Slot, 2> slots_;
};

void add_row(const Row& row, UInt32 weight, std::vector<UInt64>& sums) {
  for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += UInt64{weight} * row[i];
}

/// A sum is at most 255 * 2^47.
void write_row(const std::vector<UInt64>& sums, UInt8* to) {
  constexpr UInt32 shift = kWeightBits + kRowBits;
  for (std::size_t i = 0; i < sums.size(); ++i)
    to[i] = static_cast<UInt8>((sums[i] + (UInt64{1} << (shift - 1))) >> shift);
}

}  // namespace

void resample(const UInt8* from, GridSize from_size, UInt8* to, GridSize to_size, UInt32 channels) {
  FilteredRows rows(from, from_size.width, to_size.width, channels);
  const AxisFilter filter = filter_for(from_size.height, to_size.height);
  std::vector<UInt64> sums(std::size_t{to_size.width} * channels);
  for (const Taps& taps : filter.taps) {
    std::ranges::fill(sums, 0);
    for (UInt32 t = 0; t < taps.count; ++t)
      add_row(rows[taps.first + t], filter.weights[taps.weights + t], sums);
    write_row(sums, to);
    to += sums.size();
  }
}

}  // namespace osg::detail
