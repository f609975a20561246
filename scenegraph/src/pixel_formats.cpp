#include "pixel_formats.h"

#include "osg/gl_constants.h"

#include <iterator>
#include <utility>

namespace osg::detail {

namespace {

/// Where a format has its channels: byte of red, green, blue and alpha; alpha -1 where there is
/// none. All three colours on one byte make luminance.
struct PixelFormat {
  UInt32 code;
  UInt32 channels;
  int red, green, blue, alpha;

  constexpr bool is_grey() const { return red == green; }
};

constexpr PixelFormat kFormats[] = {
    {gl::kRGB, 3, 0, 1, 2, -1},       {gl::kRGBA, 4, 0, 1, 2, 3},
    {gl::kLuminance, 1, 0, 0, 0, -1}, {gl::kLuminanceAlpha, 2, 0, 0, 0, 1},
    {gl::kBGR, 3, 2, 1, 0, -1},       {gl::kBGRA, 4, 2, 1, 0, 3},
};

template <std::size_t FromIndex, std::size_t ToIndex>
void convert(const UInt8* from, UInt8* to, std::size_t count) {
  constexpr PixelFormat from_format = kFormats[FromIndex];
  constexpr PixelFormat to_format = kFormats[ToIndex];
  for (; count > 0; --count, from += from_format.channels, to += to_format.channels) {
    if constexpr (to_format.is_grey() && !from_format.is_grey()) {
      // Weights of the eye for red, green and blue in 256ths; they sum up to 256.
      to[0] = static_cast<UInt8>((77u * from[from_format.red] + 150u * from[from_format.green] +
                                  29u * from[from_format.blue] + 128u) >>
                                 8);
    } else {
      to[to_format.red] = from[from_format.red];
      to[to_format.green] = from[from_format.green];
      to[to_format.blue] = from[from_format.blue];
    }
    if constexpr (to_format.alpha >= 0) {
      if constexpr (from_format.alpha >= 0)
        to[to_format.alpha] = from[from_format.alpha];
      else
        to[to_format.alpha] = 255;
    }
  }
}

using FormatIndices = std::make_index_sequence<std::size(kFormats)>;

/// Calls `use` with the index of the format of that code as a constant of the compiler.
template <class Use, std::size_t... Index>
void with_format(UInt32 code, const Use& use, std::index_sequence<Index...>) {
  ((kFormats[Index].code == code ? use(std::integral_constant<std::size_t, Index>()) : void()),
   ...);
}

}  // namespace

UInt32 channels_of(UInt32 pixel_format) {
  for (const PixelFormat& format : kFormats)
    if (format.code == pixel_format) return format.channels;
  return 0;
}

void convert_pixels(const UInt8* from, UInt32 from_format, UInt8* to, UInt32 to_format,
                    std::size_t count) {
  const auto convert_from = [=](auto from_index) {
    const auto convert_to = [=](auto to_index) {
      convert<from_index(), to_index()>(from, to, count);
    };
    with_format(to_format, convert_to, FormatIndices());
  };
  with_format(from_format, convert_from, FormatIndices());
}

}  // namespace osg::detail
