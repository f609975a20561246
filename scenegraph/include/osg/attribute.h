#pragma once

#include "osg/base_types.h"

namespace osg {

/// The per-vertex properties of a geometry, in the order of their mapping flags.
enum class Attribute : UInt8 {
  Positions,
  Normals,
  Colors,
  SecondaryColors,
  TexCoords,
  TexCoords1,
  TexCoords2,
  TexCoords3,
  TexCoords4,
  TexCoords5,
  TexCoords6,
  TexCoords7,
};
inline constexpr UInt32 kAttributeCount = 12;
inline constexpr UInt32 kTexCoordSets = 8;

constexpr Attribute attributeAt(UInt32 index) {
  return static_cast<Attribute>(index);
}
constexpr UInt32 indexOf(Attribute attribute) {
  return static_cast<UInt32>(attribute);
}
constexpr Attribute texCoordsAttribute(UInt32 set) {
  return attributeAt(indexOf(Attribute::TexCoords) + set);
}
/// The attribute's bit in an entry of the index mapping.
constexpr UInt16 mappingFlag(Attribute attribute) {
  return static_cast<UInt16>(1u << indexOf(attribute));
}

}  // namespace osg
