#pragma once

#include <cstddef>

#include "osg/base_types.h"

namespace osg::detail {

/// Channels of one of the six formats of 8-bit pixels; 0 for any other number.
UInt32 channels_of(UInt32 pixel_format);

/// Converts `count` pixels between two of the six formats; `to` has room for them all and doesn't
/// overlap `from`.
void convert_pixels(const UInt8* from, UInt32 from_format, UInt8* to, UInt32 to_format,
                    std::size_t count);

}  // namespace osg::detail
