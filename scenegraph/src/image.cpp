#include "osg/image.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "content_hash.h"
#include "pixel_formats.h"
#include "resample.h"

namespace osg {

namespace {

/// The product, or `kMaxBytes + 1` if it is greater than `kMaxBytes`.
std::size_t limited_product(std::size_t a, std::size_t b) {
  return b != 0 && a > Image::kMaxBytes / b ? Image::kMaxBytes + 1 : a * b;
}

std::size_t unsigned_of(Int64 value) {
  return static_cast<std::size_t>(value);
}

/// `count` bytes that repeat the first `period` of `pattern`.
std::vector<UInt8> repeated(const UInt8* pattern, std::size_t period, std::size_t count) {
  if (std::all_of(pattern, pattern + period, [&](UInt8 byte) { return byte == pattern[0]; }))
    return std::vector<UInt8>(count, pattern[0]);
  std::vector<UInt8> bytes(count);
  std::copy_n(pattern, period, bytes.begin());
  for (std::size_t filled = period; filled < count; filled *= 2)
    std::memcpy(bytes.data() + filled, bytes.data(), std::min(filled, count - filled));
  return bytes;
}

/// `length` positions from `at` on, cut to those from 0 to below `limit`.
struct ClippedRange {
  Int64 begin, end, cut_off;  // cut_off: how many were lost at the start

  ClippedRange(Int64 at, Int64 length, Int64 limit)
      : begin(std::max<Int64>(at, 0)), end(std::min(at + length, limit)), cut_off(begin - at) {}
  bool is_empty() const { return begin >= end; }
  std::size_t size() const { return unsigned_of(end - begin); }
};

bool lies_within(Int64 at, Int64 length, Int64 limit) {
  return at >= 0 && length > 0 && at + length <= limit;
}

/// A block of pixels within others: bytes of its rows, how many rows and slices.
struct Block {
  std::size_t row_bytes, rows, slices;
};
/// Bytes from one row to the next, and from one slice to the next.
struct Pitch {
  std::size_t row, slice;
};

void copy_block(const Block& block, const UInt8* from, Pitch from_pitch, UInt8* to,
                Pitch to_pitch) {
  for (std::size_t slice = 0; slice < block.slices; ++slice)
    for (std::size_t row = 0; row < block.rows; ++row)
      std::memcpy(to + slice * to_pitch.slice + row * to_pitch.row,
                  from + slice * from_pitch.slice + row * from_pitch.row, block.row_bytes);
}

}  // namespace

UInt32 Image::channelsOf(UInt32 pixel_format) {
  return detail::channels_of(pixel_format);
}

bool Image::Layout::is_valid() const {
  if (channelsOf(format) == 0) return false;
  if (std::min({width, height, depth, mipmaps, frames, sides}) < 1) return false;
  const Int32 longest = std::max({width, height, depth});
  return mipmaps <= 31 && longest >> (mipmaps - 1) > 0 && bytes() <= kMaxBytes;
}

std::size_t Image::Layout::row_bytes() const {
  return limited_product(pixel_bytes(), unsigned_of(width));
}

std::size_t Image::Layout::slice_bytes() const {
  return limited_product(row_bytes(), unsigned_of(height));
}

std::size_t Image::Layout::level_bytes(Int32 level) const {
  std::size_t size = pixel_bytes();
  for (const Int32 extent : {width, height, depth})
    size = limited_product(size, unsigned_of(std::max(extent >> level, 1)));
  return size;
}

std::size_t Image::Layout::side_bytes() const {
  std::size_t size = 0;
  for (Int32 level = 0; level < mipmaps; ++level) size += level_bytes(level);
  return size;
}

std::size_t Image::Layout::bytes() const {
  return limited_product(limited_product(side_bytes(), unsigned_of(frames)), unsigned_of(sides));
}

bool Image::set(UInt32 pixel_format, Int32 width, Int32 height, Int32 depth, Int32 mipmaps,
                Int32 frames, Real32 frame_delay, const UInt8* data, UInt32 type, bool,
                Int32 sides) {
  const Layout layout{pixel_format, width, height, depth, mipmaps, frames, sides};
  if (type != gl::kUnsignedByte || !layout.is_valid()) return false;
  const std::size_t size = layout.bytes();
  replace_pixels(layout, data ? std::vector<UInt8>(data, data + size) : std::vector<UInt8>(size));
  frame_delay_ = frame_delay;
  return true;
}

void Image::clear() {
  replace_pixels(Layout{}, {});
  frame_delay_ = 0.0f;
}

void Image::replace_pixels(const Layout& layout, std::vector<UInt8>&& pixels) {
  pixels_ = std::move(pixels);
  layout_ = layout;
  dropEncoded();
}

bool Image::setData(const UInt8* data) {
  if (!data || pixels_.empty()) return false;
  std::memmove(pixels_.data(), data, pixels_.size());
  dropEncoded();
  return true;
}

bool Image::scale(Int32 width, Int32 height, Int32 depth, const ImagePtr& destination) {
  Image& result = destination ? *destination : *this;
  Layout layout = layout_;
  layout.width = width;
  layout.height = height;
  layout.depth = depth;
  if (layout == layout_ && !pixels_.empty()) {
    if (&result != this) result.replace_pixels(layout_, std::vector<UInt8>(pixels_));
    return true;
  }
  layout.mipmaps = 1;
  if (pixels_.empty() || !layout.is_valid()) return false;
  result.replace_pixels(layout, scaled_pixels(layout));
  return true;
}

bool Image::is_constant() const {
  const std::size_t pixel = getBpp();
  return std::memcmp(pixels_.data(), pixels_.data() + pixel, pixels_.size() - pixel) == 0;
}

std::vector<UInt8> Image::scaled_pixels(const Layout& target) const {
  if (is_constant()) return repeated(pixels_.data(), getBpp(), target.bytes());
  std::vector<UInt8> pixels(target.bytes());
  const UInt8* from = pixels_.data();
  UInt8* const end = pixels.data() + pixels.size();
  for (UInt8* to = pixels.data(); to != end; to += target.side_bytes()) {
    scale_volume(from, target, to);
    from += layout_.side_bytes();
  }
  return pixels;
}

void Image::scale_volume(const UInt8* from, const Layout& target, UInt8* to) const {
  const auto grid_of = [](Int32 width, Int32 height) {
    return detail::GridSize{static_cast<UInt32>(width), static_cast<UInt32>(height)};
  };
  const bool same_depth = target.depth == layout_.depth;
  const std::size_t slices = unsigned_of(layout_.depth);
  std::vector<UInt8> scaled_slices(same_depth ? 0 : slices * target.slice_bytes());
  UInt8* const slices_to = same_depth ? to : scaled_slices.data();
  for (std::size_t slice = 0; slice < slices; ++slice)
    detail::resample(from + slice * layout_.slice_bytes(), grid_of(layout_.width, layout_.height),
                     slices_to + slice * target.slice_bytes(), grid_of(target.width, target.height),
                     getBpp());
  // Along the depth each slice is one pixel of many channels.
  if (!same_depth)
    detail::resample(slices_to, grid_of(1, layout_.depth), to, grid_of(1, target.depth),
                     static_cast<UInt32>(target.slice_bytes()));
}

bool Image::reformat(UInt32 pixel_format) {
  Layout layout = layout_;
  layout.format = pixel_format;
  if (pixels_.empty() || !layout.is_valid()) return false;
  if (layout == layout_) return true;
  std::vector<UInt8> pixels(layout.bytes());
  detail::convert_pixels(pixels_.data(), layout_.format, pixels.data(), pixel_format,
                         pixels_.size() / getBpp());
  replace_pixels(layout, std::move(pixels));
  return true;
}

bool Image::setSubData(Int32 x, Int32 y, Int32 z, Int32 w, Int32 h, Int32 d, const UInt8* source) {
  const ClippedRange columns(x, w, layout_.width);
  const ClippedRange rows(y, h, layout_.height);
  const ClippedRange slices(z, d, layout_.depth);
  if (!source || columns.is_empty() || rows.is_empty() || slices.is_empty()) return false;

  const std::size_t pixel = getBpp();
  const Pitch from{pixel * unsigned_of(w), pixel * unsigned_of(w) * unsigned_of(h)};
  const Pitch to{layout_.row_bytes(), layout_.slice_bytes()};
  const std::size_t from_offset = unsigned_of(columns.cut_off) * pixel +
                                  unsigned_of(rows.cut_off) * from.row +
                                  unsigned_of(slices.cut_off) * from.slice;
  const std::size_t to_offset = unsigned_of(columns.begin) * pixel +
                                unsigned_of(rows.begin) * to.row +
                                unsigned_of(slices.begin) * to.slice;
  copy_block({columns.size() * pixel, rows.size(), slices.size()}, source + from_offset, from,
             pixels_.data() + to_offset, to);
  dropEncoded();
  return true;
}

bool Image::subImage(Int32 x, Int32 y, Int32 z, Int32 w, Int32 h, Int32 d,
                     const ImagePtr& destination) {
  if (!lies_within(x, w, layout_.width) || !lies_within(y, h, layout_.height) ||
      !lies_within(z, d, layout_.depth))
    return false;
  const Layout block{layout_.format, w, h, d};
  const Pitch from{layout_.row_bytes(), layout_.slice_bytes()};
  const Pitch to{block.row_bytes(), block.slice_bytes()};
  const std::size_t offset =
      unsigned_of(x) * getBpp() + unsigned_of(y) * from.row + unsigned_of(z) * from.slice;
  std::vector<UInt8> pixels(block.bytes());
  copy_block({to.row, unsigned_of(h), unsigned_of(d)}, pixels_.data() + offset, from, pixels.data(),
             to);
  (destination ? *destination : *this).replace_pixels(block, std::move(pixels));
  return true;
}

void Image::setEncoded(std::vector<UInt8> bytes, std::string mime_type) {
  encoded_hash_ = bytes.empty() ? 0 : getContentHash();
  encoded_ = std::move(bytes);
  encoded_mime_type_ = std::move(mime_type);
}

void Image::dropEncoded() {
  encoded_ = {};
  encoded_mime_type_.clear();
  encoded_hash_ = 0;
}

bool Image::encodedMatchesPixels() const {
  return !encoded_.empty() && !pixels_.empty() && encoded_hash_ == getContentHash();
}

UInt64 Image::getContentHash() const {
  UInt64 hash = layout_.format;
  for (const Int32 count : {layout_.width, layout_.height, layout_.depth, layout_.mipmaps,
                            layout_.frames, layout_.sides})
    hash = detail::mix_hash(hash, unsigned_of(count));
  return detail::hash_bytes(pixels_.data(), pixels_.size(), hash);
}

bool Image::accept_edited_fields() {
  const bool has_pixels = layout_.is_valid() && pixels_.size() == layout_.bytes();
  const bool has_none = layout_ == Layout{} && pixels_.empty();
  if (data_type_ == gl::kUnsignedByte && (has_pixels || has_none)) return true;
  clear();
  data_type_ = gl::kUnsignedByte;
  return false;
}

}  // namespace osg
