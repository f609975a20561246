#pragma once

#include "osg/base_types.h"

namespace osg::detail {

/// A row-wise grid of 8-bit pixels.
struct GridSize {
  UInt32 width = 0;
  UInt32 height = 0;
};

/// Fills `to` from `from`, both of `channels` bytes a pixel: area average along an axis that
/// shrinks, linear between pixel centres along one that grows, the edge pixels continued beyond the
/// edge. `channels` is 1 to 4, or anything if the widths are the same. Throws `std::bad_alloc`.
///
/// O(columns of `to` x rows of both) time, some rows and the filter weights of scratch.
void resample(const UInt8* from, GridSize from_size, UInt8* to, GridSize to_size, UInt32 channels);

}  // namespace osg::detail
