#pragma once

#include <random>
#include <vector>

#include "morlu/geoset.h"
#include "support/scene_parts.h"

namespace morlu::tests {

using osg::osg_geoset;
using osg::osg_line_geoset;
using osg::osg_point_geoset;

template <class Set>
constexpr unsigned corners = std::is_base_of_v<osg_geoset, Set>        ? 3
                             : std::is_base_of_v<osg_line_geoset, Set> ? 2
                                                                       : 1;

inline ::osg::Vec3d wide(const ::osg::Pnt3f& p) {
  return {p[0], p[1], p[2]};
}

/// Across the triangle, as long as it is large.
inline ::osg::Vec3d area_vector(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b,
                                const ::osg::Pnt3f& c) {
  return (wide(b) - wide(a)).cross(wide(c) - wide(a)) * 0.5;
}

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
  geometry.setTypes(property_of<::osg::GeoPTypesUI8>({corners<Set> == 3 ? 4 : corners<Set> - 1}));
  geometry.setLengths(property_of<::osg::GeoPLengthsUI32>({static_cast<unsigned>(n)}));
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

/// A set of so many elements, set up.
template <class Set>
struct ready : Set {
  explicit ready(std::size_t elements, unsigned seed = 7) {
    std::mt19937 random(seed);
    fill<Set>(*this, elements, random);
    this->setup();
  }
};

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
