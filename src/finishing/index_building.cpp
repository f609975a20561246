// Shared values and shared vertices of a geometry's triangles, by exact keys in first-use order.
//
// One numbering serves both layouts: of one attribute's values it gives a column of indices, of the
// values of all attributes together the vertices. Vertices that differ in a value differ in a
// column and the other way round, so a single index needs no columns first.
#include "finishing/index_building.h"

#include <algorithm>
#include <array>
#include <vector>

#include "finishing/corner_list.h"

namespace morlu::osg {

namespace {

using ::osg::Attribute;
using ::osg::UInt32;

constexpr std::array stated_attributes{Attribute::Positions, Attribute::Normals, Attribute::Colors,
                                       Attribute::TexCoords, Attribute::TexCoords7};

/// What goes to the geometry in the end, when nothing can fail any more.
struct new_index {
  ::osg::GeoPTypesUI8Ptr types = ::osg::GeoPTypesUI8::create();
  ::osg::GeoPLengthsUI32Ptr lengths = ::osg::GeoPLengthsUI32::create();
  ::osg::GeoIndicesUI32Ptr indices = ::osg::GeoIndicesUI32::create();
  std::vector<::osg::UInt16> mapping;
  std::vector<Attribute> attributes;
  std::vector<::osg::GeoPropertyPtr> properties;  // of each attribute

  new_index(const ::osg::Geometry& geometry, std::span<const Attribute> wanted,
            const corner_list& corners) {
    types->push_back(::osg::kTriangles);
    lengths->push_back(static_cast<UInt32>(corners.size()));
    for (const Attribute attribute : wanted) {
      const auto* property = geometry.getAttribute(attribute);
      if (property && (!property->empty() || corners.size() == 0)) attributes.push_back(attribute);
    }
  }

  void install(::osg::Geometry& geometry) {
    geometry.getIndexMapping().getValues() = std::move(mapping);
    for (std::size_t k = 0; k < attributes.size(); ++k)
      geometry.setAttribute(attributes[k], properties[k]);
    geometry.setIndices(indices);
    geometry.setTypes(types);
    geometry.setLengths(lengths);
    ::osg::endEditCP(::osg::GeometryPtr(&geometry));
  }
};

UInt32* words(::osg::GeoProperty& property) {
  return reinterpret_cast<UInt32*>(property.editData());
}

/// The values at these running vertices, in their order.
::osg::GeoPropertyPtr gathered(const corner_list& corners, Attribute attribute,
                               std::span<const UInt32> vertices) {
  ::osg::GeoPropertyPtr property = make_property(attribute);
  property->resize(vertices.size());
  corners.read(attribute, vertices, words(*property), words_of(attribute));
  return property;
}

/// Gives entries that are equal the bits of the first of them: vertices that differ elsewhere may
/// have 0.0 and -0.0 for one value.
void unify_zeros(::osg::GeoProperty& property) {
  constexpr UInt32 negative_zero = 0x80000000;
  const std::size_t width = property.getDimension();
  const std::span values(words(property), property.size() * width);
  if (std::find(values.begin(), values.end(), negative_zero) == values.end()) return;

  std::vector<UInt32> with_zero;  // entries
  for (std::size_t at = 0; at < values.size(); ++at)
    if ((values[at] | negative_zero) == negative_zero) {
      with_zero.push_back(static_cast<UInt32>(at / width));
      at += width - 1 - at % width;  // on to the next entry
    }
  std::vector<UInt32> numbers(with_zero.size());
  const std::vector<UInt32> first = number_keys<2>(
      width, with_zero.size(), with_zero.size(), {numbers.data()},
      [&](std::size_t begin, std::size_t end, UInt32* rows, std::size_t stride) {
        for (std::size_t item = begin; item < end; ++item)
          std::copy_n(&values[with_zero[item] * width], width, rows + (item - begin) * stride);
        make_keys({rows, (end - begin) * stride});
      });
  for (std::size_t item = 0; item < with_zero.size(); ++item)
    std::copy_n(&values[with_zero[first[numbers[item]]] * width], width,
                &values[with_zero[item] * width]);
}

}  // namespace

::osg::GeoPropertyPtr make_property(Attribute attribute) {
  if (attribute == Attribute::Positions) return ::osg::GeoPositions3f::create();
  if (attribute == Attribute::Normals) return ::osg::GeoNormals3f::create();
  if (attribute < Attribute::TexCoords) return ::osg::GeoColors3f::create();
  return ::osg::GeoTexCoords2f::create();
}

void build_shared_index(::osg::Geometry& geometry, std::span<const Attribute> attributes) {
  const corner_list corners(geometry);
  new_index result(geometry, attributes, corners);
  const std::size_t columns = result.attributes.size();
  result.indices->resize(corners.size() * columns);
  for (std::size_t column = 0; column < columns; ++column) {
    const Attribute attribute = result.attributes[column];
    const std::vector<UInt32> first =
        corners.number({&attribute, 1}, {words(*result.indices), column, columns});
    result.properties.push_back(gathered(corners, attribute, first));
    result.mapping.push_back(::osg::mappingFlag(attribute));
  }
  result.install(geometry);
}

void build_single_index(::osg::Geometry& geometry, std::span<const Attribute> attributes) {
  const corner_list corners(geometry);
  new_index result(geometry, attributes, corners);
  result.indices->resize(corners.size());
  const std::vector<UInt32> first = corners.number(result.attributes, {words(*result.indices)});
  for (const Attribute attribute : result.attributes) {
    result.properties.push_back(gathered(corners, attribute, first));
    unify_zeros(*result.properties.back());
  }
  result.install(geometry);
}

void createSharedIndex(::osg::GeometryPtr geometry) {
  if (geometry) build_shared_index(*geometry, stated_attributes);
}

void createSingleIndex(::osg::GeometryPtr geometry) {
  if (geometry) build_single_index(*geometry, stated_attributes);
}

}  // namespace morlu::osg
