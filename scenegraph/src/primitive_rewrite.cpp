#include "primitive_rewrite.h"

#include <cstring>

#include "corner_numbers.h"

namespace osg::detail {

namespace {

GeoPTypesPtr make_types(const Geometry& geometry, const std::vector<UInt32>& types) {
  GeoPTypesPtr fresh = GeoPTypes::dcast(fresh_like(*geometry.getTypes()));
  fresh->resize(types.size());
  for (UInt32 i = 0; i < fresh->size(); ++i) fresh->setValue(types[i], i);
  return fresh;
}

GeoPLengthsPtr make_lengths(const std::vector<UInt32>& lengths) {
  GeoPLengthsUI32Ptr fresh = GeoPLengthsUI32::create();
  fresh->resize(lengths.size());
  std::copy(lengths.begin(), lengths.end(), fresh->values().begin());
  return fresh;
}

GeoIndicesPtr make_indices(const IndexLayout& layout, const GeoIndices& indices,
                           const std::vector<UInt32>& vertices) {
  const std::size_t row = std::size_t{layout.getColumnCount()} * indices.getStride();
  GeoIndicesPtr fresh = GeoIndices::dcast(fresh_like(indices));
  fresh->resize(vertices.size() * layout.getColumnCount());
  std::byte* to = fresh->editData();
  for (const UInt32 vertex : vertices) {
    std::memcpy(to, indices.getData() + vertex * row, row);
    to += row;
  }
  return fresh;
}

}  // namespace

void rewrite_primitives(Geometry& geometry, const PrimitiveList& primitives) {
  const IndexLayout layout(geometry);
  const GeoPTypesPtr types = make_types(geometry, primitives.types);
  const GeoPLengthsPtr lengths = make_lengths(primitives.lengths);
  if (layout.isIndexed()) {
    geometry.setIndices(make_indices(layout, *geometry.getIndices(), primitives.vertices));
  } else {
    const std::vector<Attribute> attributes = present_attributes(layout);
    std::vector<GeoPropertyPtr> properties;
    properties.reserve(attributes.size());
    for (const Attribute attribute : attributes)
      properties.push_back(gathered(*layout.getProperty(attribute), primitives.vertices));
    for (std::size_t k = 0; k < attributes.size(); ++k)
      geometry.setAttribute(attributes[k], properties[k]);
  }
  geometry.setTypes(types);
  geometry.setLengths(lengths);
}

}  // namespace osg::detail
