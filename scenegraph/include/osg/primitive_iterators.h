#pragma once

#include "osg/index_layout.h"
#include "osg/primitive_type.h"

namespace osg {

namespace detail {

/// What the three iterators share: the walk over primitives and over the elements in each, and the
/// getters of corner values. `Self` gives `element_count(type, length)`, `enter_element(k)`,
/// `has_corner(corner)` and `getVertex(corner)`.
template <class Self>
class PrimitiveWalker {
 public:
  Self& operator++() {
    ++number_;
    ++place_;
    if (element() < element_count_) [[likely]]
      self().enter_element(element());
    else
      enter_primitive(primitive() + 1);
    return self();
  }
  Self operator++(int) {
    Self before = self();
    ++*this;
    return before;
  }

  bool isAtEnd() const { return place_ == kEnd; }
  /// Iterators of one geometry are equal at the same element.
  friend bool operator==(const PrimitiveWalker& a, const PrimitiveWalker& b) {
    return a.place_ == b.place_;
  }

  /// Running number of the element, from 0.
  UInt32 getIndex() const { return number_; }
  /// Type of the primitive that the element is of, as it stands in Types.
  UInt32 getType() const { return type_; }
  /// Vertices of that primitive; where Lengths reach past the data, those that there are.
  UInt32 getLength() const { return length_; }
  /// Which entry of Types and Lengths the primitive is.
  UInt32 getPrimitive() const { return primitive(); }
  /// Running vertex that the primitive begins with.
  UInt32 getFirstVertex() const { return first_; }
  const IndexLayout& getLayout() const { return layout_; }

  // Values and indices of a corner of the element. An absent attribute and an empty one have zeros
  // and the index -1; indices are always below the property's size.

  /// Any attribute's value as a tuple of floats: `getValue<Color4f>(Attribute::Colors, 0)`.
  template <class Value>
  Value getValue(Attribute attribute, UInt32 corner) const {
    if (!self().has_corner(corner)) return Value();
    return layout_.template getValue<Value>(attribute, self().getVertex(corner));
  }
  Pnt3f getPosition(UInt32 corner) const { return getValue<Pnt3f>(Attribute::Positions, corner); }
  Vec3f getNormal(UInt32 corner) const { return getValue<Vec3f>(Attribute::Normals, corner); }
  Color3f getColor(UInt32 corner) const { return getValue<Color3f>(Attribute::Colors, corner); }
  Color3f getSecondaryColor(UInt32 corner) const {
    return getValue<Color3f>(Attribute::SecondaryColors, corner);
  }
  Vec2f getTexCoords(UInt32 corner) const { return getTexCoordsOfSet(0, corner); }
  Vec2f getTexCoords1(UInt32 corner) const { return getTexCoordsOfSet(1, corner); }
  Vec2f getTexCoords2(UInt32 corner) const { return getTexCoordsOfSet(2, corner); }
  Vec2f getTexCoords3(UInt32 corner) const { return getTexCoordsOfSet(3, corner); }
  Vec2f getTexCoords4(UInt32 corner) const { return getTexCoordsOfSet(4, corner); }
  Vec2f getTexCoords5(UInt32 corner) const { return getTexCoordsOfSet(5, corner); }
  Vec2f getTexCoords6(UInt32 corner) const { return getTexCoordsOfSet(6, corner); }
  Vec2f getTexCoords7(UInt32 corner) const { return getTexCoordsOfSet(7, corner); }
  /// `set` < kTexCoordSets.
  Vec2f getTexCoordsOfSet(UInt32 set, UInt32 corner) const {
    return getValue<Vec2f>(texCoordsAttribute(set), corner);
  }

  /// Which entry of the attribute's property the corner uses.
  Int32 getAttributeIndex(Attribute attribute, UInt32 corner) const {
    if (!self().has_corner(corner)) return IndexLayout::kAbsent;
    return layout_.getIndex(attribute, self().getVertex(corner));
  }
  Int32 getPositionIndex(UInt32 corner) const {
    return getAttributeIndex(Attribute::Positions, corner);
  }
  Int32 getNormalIndex(UInt32 corner) const {
    return getAttributeIndex(Attribute::Normals, corner);
  }
  Int32 getColorIndex(UInt32 corner) const { return getAttributeIndex(Attribute::Colors, corner); }
  Int32 getSecondaryColorIndex(UInt32 corner) const {
    return getAttributeIndex(Attribute::SecondaryColors, corner);
  }
  Int32 getTexCoordsIndex(UInt32 corner) const { return getTexCoordsIndexOfSet(0, corner); }
  Int32 getTexCoordsIndex1(UInt32 corner) const { return getTexCoordsIndexOfSet(1, corner); }
  Int32 getTexCoordsIndex2(UInt32 corner) const { return getTexCoordsIndexOfSet(2, corner); }
  Int32 getTexCoordsIndex3(UInt32 corner) const { return getTexCoordsIndexOfSet(3, corner); }
  Int32 getTexCoordsIndex4(UInt32 corner) const { return getTexCoordsIndexOfSet(4, corner); }
  Int32 getTexCoordsIndex5(UInt32 corner) const { return getTexCoordsIndexOfSet(5, corner); }
  Int32 getTexCoordsIndex6(UInt32 corner) const { return getTexCoordsIndexOfSet(6, corner); }
  Int32 getTexCoordsIndex7(UInt32 corner) const { return getTexCoordsIndexOfSet(7, corner); }
  Int32 getTexCoordsIndexOfSet(UInt32 set, UInt32 corner) const {
    return getAttributeIndex(texCoordsAttribute(set), corner);
  }

 protected:
  /// At the end of every geometry.
  PrimitiveWalker() = default;
  /// At no element yet; `types` and `lengths` may be null.
  PrimitiveWalker(const GeoPTypes* types, const GeoPLengths* lengths, const IndexLayout& layout)
      : layout_(layout) {
    if (!types || !lengths || !layout.isPresent(Attribute::Positions)) return;
    types_ = types->getData();
    type_component_ = types->getComponentType();
    lengths_ = lengths->getData();
    length_component_ = lengths->getComponentType();
    primitive_count_ = std::min(types->size(), lengths->size());
  }
  /// Goes to the first element.
  void begin() { enter_primitive(0); }

 private:
  static constexpr UInt64 kEnd = ~UInt64{0};

  Self& self() { return static_cast<Self&>(*this); }
  const Self& self() const { return static_cast<const Self&>(*this); }
  UInt32 primitive() const { return static_cast<UInt32>(place_ >> 32); }
  UInt32 element() const { return static_cast<UInt32>(place_); }

  /// Goes to the first element at or after the beginning of `primitive`.
  void enter_primitive(UInt32 primitive) {
    for (; primitive < primitive_count_; ++primitive) {
      first_ += length_;
      type_ = read(types_, type_component_, primitive);
      length_ =
          std::min(read(lengths_, length_component_, primitive), layout_.getVertexCount() - first_);
      element_count_ = Self::element_count(type_, length_);
      if (element_count_ == 0) continue;
      place_ = UInt64{primitive} << 32;
      self().enter_element(0);
      return;
    }
    place_ = kEnd;
  }
  static UInt32 read(const std::byte* entries, ComponentType component, UInt32 index) {
    UInt32 value;
    read_entry(entries + index * componentSize(component), component, 1, value);
    return value;
  }

  UInt64 place_ = kEnd;  // primitive in the high half, element in it in the low half
  UInt32 number_ = 0;
  UInt32 element_count_ = 0;  // of the primitive
  UInt32 type_ = 0;
  UInt32 length_ = 0;
  UInt32 first_ = 0;
  UInt32 primitive_count_ = 0;
  ComponentType type_component_ = ComponentType::Unsigned8;
  ComponentType length_component_ = ComponentType::Unsigned32;
  const std::byte* types_ = nullptr;
  const std::byte* lengths_ = nullptr;
  IndexLayout layout_;
};

}  // namespace detail

/// Walks all triangles of a geometry, strips, fans, quads and polygons among them, in order.
///
/// The iterator reads the properties that the geometry has when the walk begins. To change their
/// size, or the indices, during a walk is outside of the contract; nothing is allocated, locked or
/// counted on the way. Types and Lengths are read side by side up to the shorter; primitives that
/// reach past the data are cut, so that no walk reads outside. Left-over vertices make no element,
/// unknown types neither. A geometry without types, lengths or positions has no elements.
class OSG_API TriangleIterator : public detail::PrimitiveWalker<TriangleIterator> {
 public:
  /// At the end of every geometry.
  TriangleIterator() = default;
  /// At the first element; `types` and `lengths` may be null.
  TriangleIterator(const GeoPTypes* types, const GeoPLengths* lengths, const IndexLayout& layout)
      : PrimitiveWalker(types, lengths, layout) {
    begin();
  }

  /// Running vertex of corner 0, 1 or 2. The winding is that of the primitive.
  UInt32 getVertex(UInt32 corner) const { return corners_[corner]; }

 private:
  friend PrimitiveWalker;
  static UInt32 element_count(UInt32 type, UInt32 length) { return triangleCount(type, length); }
  static constexpr bool has_corner(UInt32) { return true; }

  void enter_element(UInt32 k) {
    switch (getType()) {
      case kTriangles:
        return set_corners(3 * k, 3 * k + 1, 3 * k + 2);
      case kTriangleFan:
      case kPolygon:
        return set_corners(0, k + 1, k + 2);
      case kQuads: {  // (0, 1, 2) and (0, 2, 3) of each four
        const UInt32 quad = k / 2 * 4;
        return set_corners(quad, quad + 1 + k % 2, quad + 2 + k % 2);
      }
      default:  // a strip: every other triangle would face the other way
        return set_corners(k + k % 2, k + 1 - k % 2, k + 2);
    }
  }
  void set_corners(UInt32 a, UInt32 b, UInt32 c) {
    corners_[0] = getFirstVertex() + a;
    corners_[1] = getFirstVertex() + b;
    corners_[2] = getFirstVertex() + c;
  }

  UInt32 corners_[3] = {};
};

/// Walks all lines of a geometry, those of strips and loops among them. See `TriangleIterator`.
class OSG_API LineIterator : public detail::PrimitiveWalker<LineIterator> {
 public:
  /// At the end of every geometry.
  LineIterator() = default;
  /// At the first element; `types` and `lengths` may be null.
  LineIterator(const GeoPTypes* types, const GeoPLengths* lengths, const IndexLayout& layout)
      : PrimitiveWalker(types, lengths, layout) {
    begin();
  }

  /// Running vertex of end 0 or 1.
  UInt32 getVertex(UInt32 corner) const { return ends_[corner]; }

 private:
  friend PrimitiveWalker;
  static UInt32 element_count(UInt32 type, UInt32 length) { return lineCount(type, length); }
  static constexpr bool has_corner(UInt32) { return true; }

  void enter_element(UInt32 k) {
    const UInt32 begin = getType() == kLines ? 2 * k : k;
    const bool closing = begin + 1 == getLength();  // only a loop's last line gets there
    ends_[0] = getFirstVertex() + begin;
    ends_[1] = getFirstVertex() + (closing ? 0 : begin + 1);
  }

  UInt32 ends_[2] = {};
};

/// Walks the primitives themselves, of all types and lengths, with the corners 0 to getLength() - 1
/// of each. A corner past the length is absent. See `TriangleIterator`.
class OSG_API PrimitiveIterator : public detail::PrimitiveWalker<PrimitiveIterator> {
 public:
  /// At the end of every geometry.
  PrimitiveIterator() = default;
  /// At the first element; `types` and `lengths` may be null.
  PrimitiveIterator(const GeoPTypes* types, const GeoPLengths* lengths, const IndexLayout& layout)
      : PrimitiveWalker(types, lengths, layout) {
    begin();
  }

  /// Running vertex of `corner`, which must be below getLength().
  UInt32 getVertex(UInt32 corner) const { return getFirstVertex() + corner; }

 private:
  friend PrimitiveWalker;
  static UInt32 element_count(UInt32, UInt32) { return 1; }
  bool has_corner(UInt32 corner) const { return corner < getLength(); }
  void enter_element(UInt32) {}
};

}  // namespace osg
