#pragma once

#include <random>
#include <vector>

#include "morlu/geoset.h"

namespace morlu::tests {

using osg::osg_geoset;
using osg::osg_line_geoset;
using osg::osg_point_geoset;

template <class Set>
constexpr unsigned corners = std::is_base_of_v<osg_geoset, Set>        ? 3
                             : std::is_base_of_v<osg_line_geoset, Set> ? 2
                                                                       : 1;

template <class Property>
auto random_property(std::size_t entries, std::mt19937& random) {
  std::uniform_real_distribution<float> anything(-1, 1);
  auto property = Property::create();
  for (std::size_t i = 0; i < entries; ++i) {
    typename Property::Element value;
    for (unsigned k = 0; k < Property::Element::dimension; ++k) value[k] = anything(random);
    property->push_back({});
    property->values()[i] = value;
  }
  return property;
}

/// As a fill leaves a set, with every attribute that its kind carries.
template <class Set>
void fill(Set& set, std::size_t elements, std::mt19937& random) {
  const std::size_t n = elements * corners<Set>;
  auto& geometry = *set.geometry;
  const auto types = ::osg::GeoPTypesUI8::create();
  types->push_back(corners<Set> == 3 ? 4 : corners<Set> - 1);
  geometry.setTypes(types);
  const auto lengths = ::osg::GeoPLengthsUI32::create();
  lengths->push_back(static_cast<unsigned>(n));
  geometry.setLengths(lengths);
  geometry.setPositions(random_property<::osg::GeoPositions3f>(n, random));
  geometry.setNormals(random_property<::osg::GeoNormals3f>(n, random));
  geometry.setColors(random_property<::osg::GeoColors3f>(n, random));
  if (corners < Set >> 1)
    geometry.setSecondaryColors(random_property<::osg::GeoColors3f>(n, random));
  if (corners < Set >> 2)
    for (unsigned which = 0; which < 4; ++which)
      geometry.setTexCoordsSet(which, random_property<::osg::GeoTexCoords2f>(n, random));
  geometry.setTexCoords7(random_property<::osg::GeoTexCoords1f>(n, random));
  set.vertex_count = set.vertex_capacity = n;
}

/// What the elements show: all attributes of all corners, in order.
template <class Set>
std::vector<float> content(const Set& set) {
  std::vector<float> all;
  for (unsigned a = 0; a < ::osg::kAttributeCount; ++a) {
    const auto* property = set.geometry->getAttribute(::osg::attributeAt(a));
    if (!property) continue;
    const auto* from = reinterpret_cast<const float*>(property->getData());
    all.insert(all.end(), from, from + set.num_objects * corners<Set> * property->getDimension());
  }
  return all;
}

}  // namespace morlu::tests
