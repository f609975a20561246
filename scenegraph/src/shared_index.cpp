#include "corner_numbers.h"
#include "osg/geometry_tools.h"

namespace osg {

namespace {

/// Writes `numbers` to every `columns`-th of the indices, from `column` on.
void write_column(GeoIndicesUI32& indices, std::size_t columns, std::size_t column,
                  const std::vector<UInt32>& numbers) {
  UInt32* to = indices.values().data() + column;
  for (const UInt32 number : numbers) {
    *to = number;
    to += columns;
  }
}

}  // namespace

Int32 createSharedIndex(const GeometryPtr& geometry) {
  if (!geometry) return 0;
  const UInt32 vertex_count = detail::reached_vertex_count(*geometry);
  if (vertex_count == 0) return 0;

  const IndexLayout layout(*geometry);
  const std::vector<Attribute> attributes = detail::present_attributes(layout);
  const GeoIndicesUI32Ptr indices = GeoIndicesUI32::create();
  indices->resize(std::size_t{vertex_count} * attributes.size());
  std::vector<UInt16> mapping;
  std::vector<GeoPropertyPtr> properties;
  for (const Attribute attribute : attributes) {
    const detail::Numbering values = detail::number_by_value(layout, attribute, vertex_count);
    write_column(*indices, attributes.size(), mapping.size(), values.of_vertex);
    properties.push_back(detail::gathered(*layout.getProperty(attribute), values.first));
    mapping.push_back(mappingFlag(attribute));
  }

  for (std::size_t k = 0; k < attributes.size(); ++k)
    geometry->setAttribute(attributes[k], properties[k]);
  geometry->getIndexMapping().getValues() = std::move(mapping);
  geometry->setIndices(indices);
  endEditCP(geometry);
  return static_cast<Int32>(vertex_count);
}

}  // namespace osg
