#include "osg/index_layout.h"

#include <bit>

#include "osg/geometry.h"

namespace osg {

IndexLayout::IndexLayout(const GeoProperty* positions, const GeoProperty* indices,
                         const std::vector<UInt16>& mapping) {
  properties_[indexOf(Attribute::Positions)] = positions;
  if (!indices) {
    if (positions) vertex_count_ = positions->size();
    return;
  }
  set_columns(mapping);
  indices_ = indices->getData();
  index_type_ = indices->getComponentType();
  vertex_count_ = indices->size() / column_count_;
}

IndexLayout::IndexLayout(const Geometry& geometry)
    : IndexLayout(geometry.getPositions().get(), geometry.getIndices().get(),
                  geometry.getIndexMapping().getValues()) {
  properties_ = {geometry.getPositions().get(),  geometry.getNormals().get(),
                 geometry.getColors().get(),     geometry.getSecondaryColors().get(),
                 geometry.getTexCoords().get(),  geometry.getTexCoords1().get(),
                 geometry.getTexCoords2().get(), geometry.getTexCoords3().get(),
                 geometry.getTexCoords4().get(), geometry.getTexCoords5().get(),
                 geometry.getTexCoords6().get(), geometry.getTexCoords7().get()};
}

void IndexLayout::set_columns(const std::vector<UInt16>& mapping) {
  column_count_ = std::max(1u, static_cast<UInt32>(mapping.size()));
  if (mapping.size() < 2) return;
  UInt32 mapped = 0;  // flags met so far: the first entry with a flag counts
  for (UInt32 column = 0; column < column_count_; ++column) {
    UInt32 fresh = mapping[column] & ~mapped & ((1u << kAttributeCount) - 1);
    mapped |= fresh;
    for (; fresh; fresh &= fresh - 1) columns_[std::countr_zero(fresh)] = column;
  }
  for (UInt32 i = 1; i < kAttributeCount; ++i)
    if (!(mapped & mappingFlag(attributeAt(i)))) columns_[i] = columns_[0];
}

}  // namespace osg
