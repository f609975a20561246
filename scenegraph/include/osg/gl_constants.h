#pragma once

#include "osg/base_types.h"

/// The constants of graphics interfaces that materials, chunks and images hold, under names that no
/// macro of a graphics header can touch. Kinds of primitive stand in geometry.h.
namespace osg::gl {

inline constexpr UInt32 kNone = 0;

// Component types.
inline constexpr UInt32 kUnsignedByte = 5121;
inline constexpr UInt32 kUnsignedShort = 5123;
inline constexpr UInt32 kFloat = 5126;

// Pixel formats.
inline constexpr UInt32 kRGB = 6407;
inline constexpr UInt32 kRGBA = 6408;
inline constexpr UInt32 kLuminance = 6409;
inline constexpr UInt32 kLuminanceAlpha = 6410;
inline constexpr UInt32 kBGR = 32992;
inline constexpr UInt32 kBGRA = 32993;

// How a texture and the colour below it mix.
inline constexpr UInt32 kAdd = 260;
inline constexpr UInt32 kBlend = 3042;
inline constexpr UInt32 kReplace = 7681;
inline constexpr UInt32 kModulate = 8448;
inline constexpr UInt32 kDecal = 8449;
inline constexpr UInt32 kCombine = 34160;

// Filters.
inline constexpr UInt32 kNearest = 9728;
inline constexpr UInt32 kLinear = 9729;
inline constexpr UInt32 kNearestMipmapNearest = 9984;
inline constexpr UInt32 kLinearMipmapNearest = 9985;
inline constexpr UInt32 kNearestMipmapLinear = 9986;
inline constexpr UInt32 kLinearMipmapLinear = 9987;

// What a texture shows outside 0 to 1.
inline constexpr UInt32 kClamp = 10496;
inline constexpr UInt32 kRepeat = 10497;
inline constexpr UInt32 kClampToEdge = 33071;
inline constexpr UInt32 kMirroredRepeat = 33648;

// Blend factors.
inline constexpr UInt32 kZero = 0;
inline constexpr UInt32 kOne = 1;
inline constexpr UInt32 kSrcAlpha = 770;
inline constexpr UInt32 kOneMinusSrcAlpha = 771;

// Which material colours a vertex colour stands for.
inline constexpr UInt32 kAmbient = 4608;
inline constexpr UInt32 kDiffuse = 4609;
inline constexpr UInt32 kSpecular = 4610;
inline constexpr UInt32 kEmission = 5632;
inline constexpr UInt32 kAmbientAndDiffuse = 5634;

}  // namespace osg::gl
