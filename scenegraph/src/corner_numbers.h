#pragma once

#include <span>
#include <vector>

#include "osg/geometry.h"

/// Numbers for the running vertices of a geometry: equal number, equal value or equal indices.
namespace osg::detail {

/// Running vertices that the primitives reach: all below the result.
UInt32 reached_vertex_count(const Geometry& geometry);

/// Attributes that have entries, in their order.
std::vector<Attribute> present_attributes(const IndexLayout& layout);

/// Numbers in first-use order, without gaps.
struct Numbering {
  std::vector<UInt32> of_vertex;
  std::vector<UInt32> first;  // of each number: where it was first met, see the makers

  UInt32 size() const { return static_cast<UInt32>(first.size()); }
};

/// Vertices that use the same value of `attribute` have the same number: -0.0 equals 0.0, NaN goes
/// by its bits. `first` holds entries of the property. The attribute must be present.
Numbering number_by_value(const IndexLayout& layout, Attribute attribute, UInt32 vertex_count);

/// Vertices that use the same entries of all present attributes have the same number. `first` holds
/// running vertices.
Numbering number_by_indices(const IndexLayout& layout, UInt32 vertex_count);

/// A new, empty property of the same class with the same attachments.
GeoPropertyPtr fresh_like(const GeoProperty& property);

/// Such a property whose entry i is a copy of entry `entries[i]`; past the end means the last one.
/// `property` must not be empty.
GeoPropertyPtr gathered(const GeoProperty& property, std::span<const UInt32> entries);

}  // namespace osg::detail
