#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <iostream>
#include <limits>
#include <stdexcept>

#include "geoset/element.h"
#include "geoset/guard.h"

/// The properties of a set: their common size, and the single entry of its lengths.
namespace morlu::osg {

template <class Set>
std::uint32_t entries_of_positions(const Set& set) {
  const auto* positions = set.geometry ? set.geometry->getPositions().get() : nullptr;
  return positions ? positions->size() : 0;
}

inline void resize_property(::osg::GeoProperty& property, std::size_t entries) {
  const ::osg::GeoPropertyPtr held(&property);
  ::osg::beginEditCP(held);
  property.resize(entries);
  ::osg::endEditCP(held);
}

/// `resizeFields` for any number: what doesn't fit a property fails as a lack of memory does.
/// Elements that lose their vertices are elements no more.
template <class Set>
bool resize_fields(Set& set, std::uint64_t elements) {
  constexpr std::uint64_t corners = corners_of<Set>;
  if (set.not_enlargeable) return false;
  const std::size_t old_entries = entries_of_positions(set) / corners * corners;
  const bool done = guarded("Error while resizing FieldContainers.", std::cout, [&] {
    if (elements > std::numeric_limits<std::uint32_t>::max() / corners)
      throw std::length_error("morlu::osg: too many vertices");
    for (const attribute_row& row : rows_of<Set>)
      if (auto* property = row.of(set)) resize_property(*property, elements * corners);
  });
  if (done) {
    set.num_objects = std::min(set.num_objects, elements);
    set.object_capacity = std::min(set.object_capacity, elements);
    return true;
  }
  for (const attribute_row& row : rows_of<Set>) {
    auto* property = row.of(set);
    if (!property) continue;
    try {
      resize_property(*property, old_entries);
    } catch (...) {  // one that was shorter before; whoever reads looks at the sizes
    }
  }
  set.not_enlargeable = true;
  return false;
}

template <class Set>
void set_vertex_capacity(Set& set, std::size_t vertices) {
  set.vertex_capacity = vertices;
  if (resize_fields(set, vertices))
    set.vertex_count = std::min<std::uint64_t>(set.vertex_count, vertices);
}

/// Vertices stored, as the geometry's lengths say; 0 without an entry.
template <class Set>
std::uint32_t stored_vertices(const Set& set) {
  const auto* lengths = set.geometry ? set.geometry->getLengths().get() : nullptr;
  return lengths && !lengths->empty() ? lengths->getValue(0) : 0;
}

/// Adds to the entry of the lengths, which is made if it is missing; a set without lengths stays.
template <class Set>
void add_stored_vertices(Set& set, std::int64_t vertices) {
  if (!set.geometry || !set.geometry->getLengths()) return;
  const ::osg::GeoPLengthsPtr& lengths = set.geometry->getLengths();
  ::osg::beginEditCP(lengths);
  if (lengths->empty()) lengths->push_back(0);
  lengths->setValue(static_cast<std::uint32_t>(lengths->getValue(0) + vertices), 0);
  ::osg::endEditCP(lengths);
}

}  // namespace morlu::osg
