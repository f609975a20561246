#pragma once

#include <cstdint>

/// Scalar names of the scene-graph layer. Every one has the width that its name tells.
namespace osg {

using Int8 = std::int8_t;
using Int16 = std::int16_t;
using Int32 = std::int32_t;
using Int64 = std::int64_t;
using UInt8 = std::uint8_t;
using UInt16 = std::uint16_t;
using UInt32 = std::uint32_t;
using UInt64 = std::uint64_t;
using Real32 = float;
using Real64 = double;

static_assert(sizeof(Real32) == 4 && sizeof(Real64) == 8);

}  // namespace osg
