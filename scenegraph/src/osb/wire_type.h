#pragma once

#include <concepts>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "osg/geo_property.h"
#include "osg/handle.h"
#include "osg/matrix.h"
#include "osg/vector.h"

namespace osg::osb {

/// What a value in the file is made of. The numbers stand in files.
enum class Scalar : UInt8 {
  kUInt8 = 1,
  kUInt16 = 2,
  kUInt32 = 3,
  kUInt64 = 4,
  kInt32 = 5,
  kReal32 = 6,
  kText = 7,       // UInt32 number of bytes, bytes
  kReference = 8,  // UInt32 number of an earlier object, from 1; 0 is null
};

/// Bytes of a scalar; of a text those that even the empty one takes. 0: no such scalar.
constexpr UInt32 scalar_bytes(Scalar scalar) {
  switch (scalar) {
    case Scalar::kUInt8:
      return 1;
    case Scalar::kUInt16:
      return 2;
    case Scalar::kUInt32:
    case Scalar::kInt32:
    case Scalar::kReal32:
    case Scalar::kText:
    case Scalar::kReference:
      return 4;
    case Scalar::kUInt64:
      return 8;
  }
  return 0;
}

/// Type of a field: one value of some components, or a list of such values after its UInt64 length.
struct WireType {
  Scalar scalar;
  UInt8 components = 1;
  UInt8 is_list = 0;

  bool operator==(const WireType&) const = default;
};

using TextPair = std::pair<std::string, std::string>;

template <class T>
concept Handle = std::derived_from<T, FieldContainerPtrBase>;
template <class T>
concept Number = std::is_arithmetic_v<T>;
/// Points, colours, matrices: components in a row and nothing else.
template <class T>
concept Row = requires(T& value) {
  typename T::ValueType;
  { value.getValues() } -> std::same_as<typename T::ValueType*>;
}
&&std::is_trivially_copyable_v<T>;

template <Number T>
constexpr Scalar scalar_of() {
  if constexpr (std::is_same_v<T, Real32>) return Scalar::kReal32;
  if constexpr (std::is_same_v<T, Int32>) return Scalar::kInt32;
  if constexpr (std::is_same_v<T, UInt8>) return Scalar::kUInt8;
  if constexpr (std::is_same_v<T, UInt16>) return Scalar::kUInt16;
  if constexpr (std::is_same_v<T, UInt32>) return Scalar::kUInt32;
  if constexpr (std::is_same_v<T, UInt64>) return Scalar::kUInt64;
}

template <class T>
constexpr WireType value_type() {
  if constexpr (Handle<T>) {
    return {Scalar::kReference};
  } else if constexpr (Number<T>) {
    return {scalar_of<T>()};
  } else if constexpr (Row<T>) {
    using Component = typename T::ValueType;
    return {scalar_of<Component>(), static_cast<UInt8>(sizeof(T) / sizeof(Component))};
  } else if constexpr (std::is_same_v<T, TextPair>) {
    return {Scalar::kText, 2};
  } else {
    static_assert(std::is_same_v<T, std::string>);
    return {Scalar::kText};
  }
}

template <class T>
struct ListElement {};
template <class T>
struct ListElement<std::vector<T>> {
  using Type = T;
};
template <class T, std::size_t N>
struct ListElement<std::span<T, N>> {
  using Type = std::remove_const_t<T>;
};
template <class T>
concept List = requires {
  typename ListElement<T>::Type;
};
template <List T>
using ElementOf = typename ListElement<T>::Type;

/// The type of a field with values of the C++ type `T`.
template <class T>
constexpr WireType wire_type() {
  if constexpr (List<T>) {
    WireType type = value_type<ElementOf<T>>();
    type.is_list = 1;
    return type;
  } else {
    return value_type<T>();
  }
}

/// The type of a property's entries as a list.
inline WireType wire_type_of(const GeoProperty& property) {
  constexpr Scalar scalars[] = {Scalar::kUInt8, Scalar::kUInt16, Scalar::kUInt32, Scalar::kReal32};
  return {scalars[static_cast<UInt8>(property.getComponentType())],
          static_cast<UInt8>(property.getDimension()), 1};
}

}  // namespace osg::osb
