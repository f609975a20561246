#pragma once

#include <algorithm>
#include <array>

#include "osg/attribute.h"
#include "osg/geo_property.h"

namespace osg {

class Geometry;

/// Which entry of each property a running vertex uses: a geometry's index layout, resolved once.
///
/// Running vertices count over all primitives of a geometry, from 0. There are three layouts:
/// - without indices, vertex v uses entry v of every property;
/// - with one column of indices (an empty mapping) it uses entry `Indices[v]`;
/// - with a mapping of n entries it uses `Indices[v * n + k]`, k being the first mapping entry with
///   the attribute's flag. An attribute in no entry uses the position's column, positions in no
///   entry column 0.
/// An index past a property's end means its last entry. A property without entries counts as
/// absent.
///
/// The layout points into the geometry's properties: it is good as long as these live and the
/// indices keep their size. Making one takes no lock and allocates nothing.
class OSG_API IndexLayout {
 public:
  /// What an attribute that is absent has in place of an index.
  static constexpr Int32 kAbsent = -1;

  IndexLayout() = default;
  explicit IndexLayout(const Geometry& geometry);
  /// Of positions alone; `indices` may be null.
  IndexLayout(const GeoProperty* positions, const GeoProperty* indices,
              const std::vector<UInt16>& mapping);

  /// Null if absent.
  const GeoProperty* getProperty(Attribute attribute) const {
    return properties_[indexOf(attribute)];
  }
  bool isPresent(Attribute attribute) const {
    const GeoProperty* property = getProperty(attribute);
    return property && !property->empty();
  }

  bool isIndexed() const { return column_count_ > 0; }
  /// Indices a vertex takes: 0 without indices, else 1 or the entries of the mapping.
  UInt32 getColumnCount() const { return column_count_; }
  /// The attribute's place among these, whether or not it is present; 0 without indices.
  UInt32 getColumn(Attribute attribute) const { return columns_[indexOf(attribute)]; }
  /// Running vertices that there are positions or indices for; primitives that reach past them are
  /// cut there.
  UInt32 getVertexCount() const { return vertex_count_; }

  /// The index as it stands in column `column` of the indices, or the vertex itself without
  /// indices. `vertex` < getVertexCount(), `column` < max(1, getColumnCount()).
  UInt32 getStoredIndex(UInt32 column, UInt32 vertex) const {
    if (column_count_ == 0) return vertex;
    const std::size_t place = std::size_t{vertex} * column_count_ + column;
    UInt32 index;
    detail::read_entry(indices_ + place * componentSize(index_type_), index_type_, 1, index);
    return index;
  }
  /// The entry of the attribute's property that the vertex uses, always below the property's size;
  /// kAbsent for an absent or empty one. `vertex` < getVertexCount().
  Int32 getIndex(Attribute attribute, UInt32 vertex) const {
    if (!isPresent(attribute)) return kAbsent;
    return static_cast<Int32>(entry_of(*getProperty(attribute), getColumn(attribute), vertex));
  }
  /// The value at that entry; zeros for an absent or empty property. `Value` is a tuple of floats.
  template <class Value>
  Value getValue(Attribute attribute, UInt32 vertex) const {
    Value value;
    if (!isPresent(attribute)) return value;
    const GeoProperty& property = *getProperty(attribute);
    const std::size_t entry = entry_of(property, getColumn(attribute), vertex);
    detail::read_entry(property.getData() + entry * property.getStride(),
                       property.getComponentType(), property.getDimension(), value);
    return value;
  }

 private:
  UInt32 entry_of(const GeoProperty& property, UInt32 column, UInt32 vertex) const {
    return std::min(getStoredIndex(column, vertex), property.size() - 1);
  }
  void set_columns(const std::vector<UInt16>& mapping);

  std::array<const GeoProperty*, kAttributeCount> properties_{};
  std::array<UInt32, kAttributeCount> columns_{};
  const std::byte* indices_ = nullptr;
  ComponentType index_type_ = ComponentType::Unsigned32;
  UInt32 column_count_ = 0;
  UInt32 vertex_count_ = 0;
};

}  // namespace osg
