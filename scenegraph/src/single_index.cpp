#include "corner_numbers.h"
#include "osg/geometry_tools.h"

namespace osg {

Int32 createSingleIndex(const GeometryPtr& geometry) {
  if (!geometry) return 0;
  const UInt32 vertex_count = detail::reached_vertex_count(*geometry);
  if (vertex_count == 0) return 0;

  const IndexLayout layout(*geometry);
  const std::vector<Attribute> attributes = detail::present_attributes(layout);
  const detail::Numbering vertices = detail::number_by_indices(layout, vertex_count);
  const GeoIndicesUI32Ptr indices = GeoIndicesUI32::create();
  indices->resize(vertex_count);
  std::copy(vertices.of_vertex.begin(), vertices.of_vertex.end(), indices->values().begin());
  std::vector<GeoPropertyPtr> properties;
  std::vector<UInt32> entries(vertices.size());
  for (const Attribute attribute : attributes) {
    for (std::size_t i = 0; i < entries.size(); ++i)
      entries[i] = static_cast<UInt32>(layout.getIndex(attribute, vertices.first[i]));
    properties.push_back(detail::gathered(*layout.getProperty(attribute), entries));
  }

  for (std::size_t k = 0; k < attributes.size(); ++k)
    geometry->setAttribute(attributes[k], properties[k]);
  geometry->getIndexMapping().clear();
  geometry->setIndices(indices);
  endEditCP(geometry);
  return static_cast<Int32>(vertices.size());
}

}  // namespace osg
