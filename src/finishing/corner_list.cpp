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
    for (std::size_t i = 0; i < vertices.size(); ++i) {
      const UInt32 entry = std::min(layout.getStoredIndex(column, vertices[i]), last);
      std::memcpy(to + i * stride, data + entry * step, sizeof(Value));
    }
    return;
  }
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    const auto value = layout.getValue<Value>(attribute, vertices[i]);
    std::memcpy(to + i * stride, &value, sizeof(value));
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

std::vector<UInt32> corner_list::number(std::span<const Attribute> by, number_column out) const {
  const std::size_t limit = index_limit(by);
  constexpr std::size_t usual_uses = 6;  // of a vertex of a closed mesh
  if (limit >= size()) return number_values(by, vertices_, size() / usual_uses, out);

  // Corners use an index several times: each one's values are looked at once.
  const std::vector<UInt32> used = number_indices(layout_.getColumn(by.front()), limit, out);
  std::vector<UInt32> number_of_use(used.size());
  std::vector<UInt32> first = number_values(by, used, used.size(), {number_of_use.data()});
  if (first.size() < used.size())
    for (std::size_t corner = 0; corner < size(); ++corner)
      out[corner] = number_of_use[out[corner]];
  return first;
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

std::vector<UInt32> corner_list::number_indices(UInt32 column, std::size_t limit,
                                                number_column out) const {
  std::vector<UInt32> first;
  std::vector<UInt32> number_of_index(limit, no_number);
  const auto last = static_cast<UInt32>(limit - 1);  // what larger indices mean
  const IndexLayout layout = layout_;
  for (std::size_t corner = 0; corner < size(); ++corner) {
    const UInt32 vertex = vertices_[corner];
    UInt32& number = number_of_index[std::min(layout.getStoredIndex(column, vertex), last)];
    if (number == no_number) {
      number = static_cast<UInt32>(first.size());
      first.push_back(vertex);
    }
    out[corner] = number;
  }
  return first;
}

/// Of any row of vertices, of which about `expected` differ in value.
std::vector<UInt32> corner_list::number_values(std::span<const Attribute> by,
                                               std::span<const UInt32> vertices,
                                               std::size_t expected, number_column out) const {
  std::size_t width = 0;
  for (const Attribute attribute : by) width += words_of(attribute);
  std::vector<UInt32> first = number_keys<widest_key_pairs>(
      width, vertices.size(), expected, out,
      [&](std::size_t begin, std::size_t end, UInt32* rows, std::size_t stride) {
        UInt32* to = rows;
        for (const Attribute attribute : by) {
          read(attribute, vertices.subspan(begin, end - begin), to, stride);
          to += words_of(attribute);
        }
        make_keys({rows, (end - begin) * stride});
      });
  for (UInt32& item : first) item = vertices[item];
  return first;
}

}  // namespace morlu::osg
