#include "finishing/corner_list.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace morlu::osg {

namespace {

using ::osg::Attribute;
using ::osg::IndexLayout;
using ::osg::UInt32;

constexpr std::size_t widest_key_pairs = 14;  // 4 attributes of 3 words, 8 of 2: 28 words

/// The layout is a copy, which nothing that is written can be part of: what is the same for every
/// vertex is found out before the loop.
template <class Value>
void read_values(const IndexLayout layout, Attribute attribute, std::span<const UInt32> vertices,
                 UInt32* to, std::size_t stride) {
  const ::osg::GeoProperty* property = layout.getProperty(attribute);
  if (property && !property->empty() && property->getStride() >= sizeof(Value) &&
      property->getComponentType() == ::osg::ComponentType::Float32) {
    const std::byte* const data = property->getData();
    const std::size_t step = property->getStride();
    const UInt32 last = property->size() - 1;
    const UInt32 column = layout.getColumn(attribute);
    for (const UInt32 vertex : vertices) {
      const UInt32 entry = std::min(layout.getStoredIndex(column, vertex), last);
      std::memcpy(to, data + entry * step, sizeof(Value));
      to += stride;
    }
    return;
  }
  for (const UInt32 vertex : vertices) {
    const auto value = layout.getValue<Value>(attribute, vertex);
    std::memcpy(to, &value, sizeof(value));
    to += stride;
  }
}

}  // namespace

corner_list::corner_list(const ::osg::Geometry& geometry) : layout_(geometry) {
  std::size_t triangles = 0;
  for (auto primitive = geometry.beginPrimitives(); !primitive.isAtEnd(); ++primitive)
    triangles += ::osg::triangleCount(primitive.getType(), primitive.getLength());
  if (triangles * 3 >= no_number) throw std::length_error("too many triangles for 32-bit indices");
  vertices_.reserve(triangles * 3);
  for (auto triangle = geometry.beginTriangles(); !triangle.isAtEnd(); ++triangle)
    for (UInt32 corner = 0; corner < 3; ++corner) vertices_.push_back(triangle.getVertex(corner));
}

void corner_list::read(Attribute attribute, std::span<const UInt32> vertices, UInt32* to,
                       std::size_t stride) const {
  if (words_of(attribute) == 3)
    read_values<::osg::Vec3f>(layout_, attribute, vertices, to, stride);
  else
    read_values<::osg::Vec2f>(layout_, attribute, vertices, to, stride);
}

first_use_numbers corner_list::number(std::span<const Attribute> by) const {
  const std::size_t limit = index_limit(by);
  constexpr std::size_t usual_uses = 6;  // of a vertex of a closed mesh
  if (limit >= size()) return number_values(by, vertices_, size() / usual_uses);

  // Corners use an index several times: each one's values are looked at once.
  first_use_numbers uses = number_indices(layout_.getColumn(by.front()), limit);
  first_use_numbers values = number_values(by, uses.first, uses.first.size());
  for (UInt32& number : uses.of_item) number = values.of_item[number];
  return {std::move(uses.of_item), std::move(values.first)};
}

/// If the attributes go by one column of indices, the number of indices that differ in effect, else
/// as many as there are corners.
std::size_t corner_list::index_limit(std::span<const Attribute> by) const {
  std::size_t limit = 0;
  for (const Attribute attribute : by) {
    if (layout_.getColumn(attribute) != layout_.getColumn(by.front())) return size();
    limit = std::max<std::size_t>(limit, layout_.getProperty(attribute)->size());
  }
  return by.empty() ? size() : std::min(limit, size());
}

first_use_numbers corner_list::number_indices(UInt32 column, std::size_t limit) const {
  first_use_numbers result;
  result.of_item.resize(size());
  std::vector<UInt32> number_of_index(limit, no_number);
  const auto last = static_cast<UInt32>(limit - 1);  // what larger indices mean
  for (std::size_t corner = 0; corner < size(); ++corner) {
    const UInt32 vertex = vertices_[corner];
    UInt32& number = number_of_index[std::min(layout_.getStoredIndex(column, vertex), last)];
    if (number == no_number) {
      number = static_cast<UInt32>(result.first.size());
      result.first.push_back(vertex);
    }
    result.of_item[corner] = number;
  }
  return result;
}

/// Of any row of vertices, of which about `expected` differ in value.
first_use_numbers corner_list::number_values(std::span<const Attribute> by,
                                             std::span<const UInt32> vertices,
                                             std::size_t expected) const {
  std::size_t width = 0;
  for (const Attribute attribute : by) width += words_of(attribute);
  first_use_numbers numbers = number_keys<widest_key_pairs>(
      width, vertices.size(), expected,
      [&](std::size_t begin, std::size_t end, UInt32* rows, std::size_t stride) {
        UInt32* to = rows;
        for (const Attribute attribute : by) {
          read(attribute, vertices.subspan(begin, end - begin), to, stride);
          to += words_of(attribute);
        }
        make_keys({rows, (end - begin) * stride});
      });
  for (UInt32& first : numbers.first) first = vertices[first];
  return numbers;
}

}  // namespace morlu::osg
