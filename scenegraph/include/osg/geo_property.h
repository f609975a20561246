#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <span>
#include <type_traits>

#include "osg/attachment.h"
#include "osg/container_class.h"
#include "osg/vector.h"

namespace osg {

class Geometry;

enum class ComponentType : UInt8 { Unsigned8, Unsigned16, Unsigned32, Float32 };

constexpr std::size_t componentSize(ComponentType type) {
  return type == ComponentType::Unsigned8 ? 1 : type == ComponentType::Unsigned16 ? 2 : 4;
}

namespace detail {

/// A geometry's place in the list of those that a property bounds: intrusive, so that to link and
/// to unlink takes constant time and can't fail. All under the link mutex.
struct BoundsLink {
  explicit BoundsLink(Geometry& of) : owner(of) {}
  BoundsLink(const BoundsLink&) = delete;
  BoundsLink& operator=(const BoundsLink&) = delete;

  Geometry& owner;
  BoundsLink* next = nullptr;
  BoundsLink** from = nullptr;  // what points to this link; null while in no list
};

}  // namespace detail

/// A contiguous row of values of a geometry: positions, indices, colours, ...
///
/// Values are stored without gaps, `getDimension()` components each. A property may stand in many
/// geometries, and in several fields of one.
class OSG_API GeoProperty
    : public AbstractContainerClass<"GeoProperty", GeoProperty, AttachmentContainer> {
 public:
  ComponentType getComponentType() const { return component_type_; }
  UInt32 getDimension() const { return dimension_; }
  /// Bytes from one entry to the next.
  std::size_t getStride() const { return stride_; }
  UInt32 size() const { return count_; }
  UInt32 getSize() const { return count_; }
  bool empty() const { return count_ == 0; }
  /// First byte of the entries; may be null for an empty property. Valid until the size changes.
  const std::byte* getData() const { return data_; }
  std::byte* editData() { return data_; }

  /// Keeps the first `count` entries; new ones are zero. Throws `std::bad_alloc` if there is no
  /// memory and `std::length_error` for 2^32 entries and more; the property is then as it was.
  /// In a large property, entries that nobody writes take no memory, growing moves none of them,
  /// and a much smaller size gives memory back.
  void resize(std::size_t count);
  /// Room for `count` entries; the size stays. Throws as `resize` does.
  void reserve(std::size_t count);
  /// No entries any more; the room stays.
  void clear() {
    note_written();
    count_ = 0;
  }

  /// Marks the volumes of the geometries that this property bounds as stale.
  void changed(FieldMask mask, ChangeOrigin origin) override;

 protected:
  GeoProperty(ComponentType type, UInt32 dimension)
      : component_type_(type),
        dimension_(static_cast<UInt8>(dimension)),
        stride_(static_cast<UInt16>(componentSize(type) * dimension)) {}
  /// Copies the entries; the copy is in no geometry yet.
  GeoProperty(const GeoProperty& other);
  ~GeoProperty() override;

  std::byte* entry(UInt32 index) { return data_ + std::size_t{index} * stride_; }
  const std::byte* entry(UInt32 index) const { return data_ + std::size_t{index} * stride_; }
  /// Room for one more entry, whose bytes are undefined; counts it.
  std::byte* append() {
    if (count_ == capacity_) grow();
    return entry(count_++);
  }

 private:
  friend class Geometry;
  void grow();
  void reallocate(std::size_t capacity);
  /// Entries below the size may have been written.
  void note_written() { written_ = std::max(written_, std::size_t{count_} * stride_); }
  void link(detail::BoundsLink& link);
  static void unlink(detail::BoundsLink& link);

  ComponentType component_type_;
  UInt8 dimension_;
  UInt16 stride_;
  UInt32 count_ = 0;
  UInt32 capacity_ = 0;
  std::byte* data_ = nullptr;
  std::size_t written_ = 0;  // bytes from here or from the size on, what is later, are zero
  detail::BoundsLink* bounded_ = nullptr;     // geometries whose bounds depend on this; link mutex
  mutable std::atomic<bool> watched_{false};  // bounds were computed from it since the last change
};
using GeoPropertyPtr = FCPtr<GeoProperty>;

namespace detail {

/// One entry as an unsigned number: types, lengths, indices.
inline void read_entry(const std::byte* from, ComponentType type, UInt32, UInt32& value) {
  if (type == ComponentType::Unsigned32) {
    std::memcpy(&value, from, 4);
  } else if (type == ComponentType::Unsigned16) {
    UInt16 narrow;
    std::memcpy(&narrow, from, 2);
    value = narrow;
  } else {
    value = static_cast<UInt8>(*from);
  }
}
inline void write_entry(std::byte* to, ComponentType type, UInt32, UInt32 value) {
  if (type == ComponentType::Unsigned32) {
    std::memcpy(to, &value, 4);
  } else if (type == ComponentType::Unsigned16) {
    const auto narrow = static_cast<UInt16>(value);
    std::memcpy(to, &narrow, 2);
  } else {
    *to = static_cast<std::byte>(value);
  }
}

/// A byte that stands for a share of 255; NaN is 0.
inline std::byte byte_of_share(Real32 share) {
  if (!(share > 0.0f)) return std::byte{0};
  return static_cast<std::byte>(share >= 1.0f ? 255L : std::lround(share * 255.0f));
}

/// One entry of bytes, or of fewer components than `Value` has, as a tuple of floats. Kept out of
/// line: inlined, its writes would hold the values of the common case in memory.
template <class Value>
[[gnu::noinline]] Value converted_entry(const std::byte* from, ComponentType type,
                                        UInt32 dimension) {
  Value value;
  const UInt32 shared = std::min<UInt32>(dimension, sizeof(Value) / sizeof(Real32));
  for (UInt32 k = 0; k < shared; ++k) {
    if (type == ComponentType::Float32)
      std::memcpy(&value[k], from + 4 * k, 4);
    else
      value[k] = static_cast<Real32>(static_cast<UInt8>(from[k])) / 255.0f;
  }
  return value;
}
/// One entry as a tuple of floats: components that the entry lacks are 0, those that the value
/// lacks are passed over. Bytes are shares of 255.
template <class Value>
void read_entry(const std::byte* from, ComponentType type, UInt32 dimension, Value& value) {
  if (type == ComponentType::Float32 && dimension >= sizeof(Value) / sizeof(Real32)) [[likely]]
    std::memcpy(&value, from, sizeof(Value));
  else
    value = converted_entry<Value>(from, type, dimension);
}
/// The way back, out of line for the same reason: components that the entry lacks are passed over.
template <class Value>
[[gnu::noinline]] void convert_entry(std::byte* to, ComponentType type, UInt32 dimension,
                                     Value value) {
  const UInt32 shared = std::min<UInt32>(dimension, sizeof(Value) / sizeof(Real32));
  for (UInt32 k = 0; k < shared; ++k) {
    if (type == ComponentType::Float32)
      std::memcpy(to + 4 * k, &value[k], 4);
    else
      to[k] = byte_of_share(value[k]);
  }
}
/// Components that the entry has beyond those of the value stay as they are.
template <class Value>
void write_entry(std::byte* to, ComponentType type, UInt32 dimension, const Value& value) {
  if (type == ComponentType::Float32 && dimension >= sizeof(Value) / sizeof(Real32)) [[likely]]
    std::memcpy(to, &value, sizeof(Value));
  else
    convert_entry<Value>(to, type, dimension, value);
}

template <class Element>
struct ElementTraits {  // a tuple of floats
  static constexpr ComponentType component = ComponentType::Float32;
  static constexpr UInt32 dimension = sizeof(Element) / sizeof(Real32);
};
template <class T>
struct ElementTraits<Color3<T>> {
  static constexpr ComponentType component =
      std::is_same_v<T, Real32> ? ComponentType::Float32 : ComponentType::Unsigned8;
  static constexpr UInt32 dimension = 3;
};
template <class T>
struct ElementTraits<Color4<T>> {
  static constexpr ComponentType component =
      std::is_same_v<T, Real32> ? ComponentType::Float32 : ComponentType::Unsigned8;
  static constexpr UInt32 dimension = 4;
};
template <class T>
requires std::is_unsigned_v<T>
struct ElementTraits<T> {
  static constexpr ComponentType component = sizeof(T) == 1   ? ComponentType::Unsigned8
                                             : sizeof(T) == 2 ? ComponentType::Unsigned16
                                                              : ComponentType::Unsigned32;
  static constexpr UInt32 dimension = 1;
};

}  // namespace detail

/// The face that all properties of one purpose share, whatever their storage: values go in and out
/// as `Value`. Indices have to be below the size.
template <ClassName Name, class ValueType>
class OSG_API GeoPropertyFamily
    : public AbstractContainerClass<Name, GeoPropertyFamily<Name, ValueType>, GeoProperty> {
 public:
  using Value = ValueType;

  Value getValue(UInt32 index) const {
    Value value;
    detail::read_entry(this->entry(index), this->getComponentType(), this->getDimension(), value);
    return value;
  }
  /// Components that the storage has beyond those of `Value` stay as they are.
  void setValue(const Value& value, UInt32 index) {
    detail::write_entry(this->entry(index), this->getComponentType(), this->getDimension(), value);
  }
  /// Storage wider than `Value` is filled up: a fourth colour component, alpha, with 1, others
  /// with 0.
  void push_back(const Value& value) {
    const Value copy = value;  // may live in this property's own storage
    std::byte* to = this->append();
    fill_beyond_value(to);
    detail::write_entry(to, this->getComponentType(), this->getDimension(), copy);
  }

 protected:
  GeoPropertyFamily(ComponentType type, UInt32 dimension)
      : AbstractContainerClass<Name, GeoPropertyFamily, GeoProperty>(type, dimension) {}
  GeoPropertyFamily(const GeoPropertyFamily&) = default;
  ~GeoPropertyFamily() override = default;

 private:
  void fill_beyond_value(std::byte* to) const {
    if constexpr (!std::is_integral_v<Value>) {
      if (this->getDimension() <= sizeof(Value) / sizeof(Real32)) return;
      const Vector<Real32, 4> rest{0.0f, 0.0f, 0.0f, 1.0f};
      detail::convert_entry(to, this->getComponentType(), this->getDimension(), rest);
    }
  }
};

/// A property with storage of `Element`s, which `values()` gives as they are.
template <ClassName Name, class Family, class ElementType>
class OSG_API GeoPropertyOf
    : public ContainerClass<Name, GeoPropertyOf<Name, Family, ElementType>, Family> {
 public:
  using Element = ElementType;

  /// As the family's, without a look at the storage where the type tells it.
  typename Family::Value getValue(UInt32 index) const {
    if constexpr (std::is_same_v<Element, typename Family::Value>)
      return values()[index];
    else
      return Family::getValue(index);
  }
  void setValue(const typename Family::Value& value, UInt32 index) {
    if constexpr (std::is_same_v<Element, typename Family::Value>)
      values()[index] = value;
    else
      Family::setValue(value, index);
  }

  /// All entries for bulk work; valid until the size changes.
  std::span<Element> values() {
    return {reinterpret_cast<Element*>(this->editData()), this->size()};
  }
  std::span<const Element> values() const {
    return {reinterpret_cast<const Element*>(this->getData()), this->size()};
  }

 protected:
  friend ContainerClass<Name, GeoPropertyOf, Family>;
  using Traits = detail::ElementTraits<Element>;
  GeoPropertyOf()
      : ContainerClass<Name, GeoPropertyOf, Family>(Traits::component, Traits::dimension) {
    static_assert(sizeof(Element) == componentSize(Traits::component) * Traits::dimension);
  }
  GeoPropertyOf(const GeoPropertyOf&) = default;
  ~GeoPropertyOf() override = default;
};

using GeoPTypes = GeoPropertyFamily<"GeoPTypes", UInt32>;
using GeoPLengths = GeoPropertyFamily<"GeoPLengths", UInt32>;
using GeoPositions = GeoPropertyFamily<"GeoPositions", Point<Real32, 3>>;
using GeoNormals = GeoPropertyFamily<"GeoNormals", Vector<Real32, 3>>;
using GeoColors = GeoPropertyFamily<"GeoColors", Color3<Real32>>;
using GeoTexCoords = GeoPropertyFamily<"GeoTexCoords", Vector<Real32, 2>>;
using GeoIndices = GeoPropertyFamily<"GeoIndices", UInt32>;

using GeoPTypesUI8 = GeoPropertyOf<"GeoPTypesUI8", GeoPTypes, UInt8>;
using GeoPLengthsUI32 = GeoPropertyOf<"GeoPLengthsUI32", GeoPLengths, UInt32>;
using GeoPLengthsUI16 = GeoPropertyOf<"GeoPLengthsUI16", GeoPLengths, UInt16>;
using GeoPositions3f = GeoPropertyOf<"GeoPositions3f", GeoPositions, Point<Real32, 3>>;
using GeoNormals3f = GeoPropertyOf<"GeoNormals3f", GeoNormals, Vector<Real32, 3>>;
using GeoColors3f = GeoPropertyOf<"GeoColors3f", GeoColors, Color3<Real32>>;
using GeoColors4f = GeoPropertyOf<"GeoColors4f", GeoColors, Color4<Real32>>;
using GeoColors3ub = GeoPropertyOf<"GeoColors3ub", GeoColors, Color3<UInt8>>;
using GeoColors4ub = GeoPropertyOf<"GeoColors4ub", GeoColors, Color4<UInt8>>;
using GeoTexCoords1f = GeoPropertyOf<"GeoTexCoords1f", GeoTexCoords, Vector<Real32, 1>>;
using GeoTexCoords2f = GeoPropertyOf<"GeoTexCoords2f", GeoTexCoords, Vector<Real32, 2>>;
using GeoTexCoords3f = GeoPropertyOf<"GeoTexCoords3f", GeoTexCoords, Vector<Real32, 3>>;
using GeoIndicesUI32 = GeoPropertyOf<"GeoIndicesUI32", GeoIndices, UInt32>;
using GeoIndicesUI16 = GeoPropertyOf<"GeoIndicesUI16", GeoIndices, UInt16>;

using GeoPTypesPtr = FCPtr<GeoPTypes>;
using GeoPLengthsPtr = FCPtr<GeoPLengths>;
using GeoPositionsPtr = FCPtr<GeoPositions>;
using GeoNormalsPtr = FCPtr<GeoNormals>;
using GeoColorsPtr = FCPtr<GeoColors>;
using GeoTexCoordsPtr = FCPtr<GeoTexCoords>;
using GeoIndicesPtr = FCPtr<GeoIndices>;
using GeoPTypesUI8Ptr = FCPtr<GeoPTypesUI8>;
using GeoPLengthsUI32Ptr = FCPtr<GeoPLengthsUI32>;
using GeoPLengthsUI16Ptr = FCPtr<GeoPLengthsUI16>;
using GeoPositions3fPtr = FCPtr<GeoPositions3f>;
using GeoNormals3fPtr = FCPtr<GeoNormals3f>;
using GeoColors3fPtr = FCPtr<GeoColors3f>;
using GeoColors4fPtr = FCPtr<GeoColors4f>;
using GeoTexCoords1fPtr = FCPtr<GeoTexCoords1f>;
using GeoTexCoords2fPtr = FCPtr<GeoTexCoords2f>;
using GeoIndicesUI32Ptr = FCPtr<GeoIndicesUI32>;
using GeoIndicesUI16Ptr = FCPtr<GeoIndicesUI16>;

}  // namespace osg
