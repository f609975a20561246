#include "finishing/cache_chunks.h"

#include <osg/geometry_tools.h>

#include <algorithm>
#include <array>

#include "finishing/first_use_numbers.h"
#include "finishing/index_building.h"
#include "primitives/rogue.h"

namespace morlu::osg {

namespace {

using ::osg::Attribute;
using ::osg::UInt32;

/// The corners of what `iterator` walks over, but for what `is_out` says.
template <unsigned Corners, class Iterator, class Test>
cache_source read(Iterator iterator, std::initializer_list<Attribute> wanted, const Test& is_out) {
  cache_source source{Corners, iterator.getLayout(), {}, {}, {}};
  for (; !iterator.isAtEnd(); ++iterator)
    if (!is_out(iterator))
      for (UInt32 k = 0; k < Corners; ++k) source.vertices.push_back(iterator.getVertex(k));

  for (const Attribute attribute : wanted) {
    if (attribute != Attribute::Positions && !source.layout.isPresent(attribute)) continue;
    source.attributes.push_back(attribute);
    auto& entries = source.entries.emplace_back(source.vertices.size());
    std::transform(source.vertices.begin(), source.vertices.end(), entries.begin(),
                   [&](UInt32 vertex) {
                     return static_cast<UInt32>(source.layout.getIndex(attribute, vertex));
                   });
  }
  return source;
}

/// The attribute's values at these running vertices, in their order.
template <class Value>
void copy_values(const ::osg::IndexLayout& layout, Attribute attribute,
                 std::span<const UInt32> vertices, ::osg::GeoProperty& to) {
  auto* out = reinterpret_cast<Value*>(to.editData());
  for (const UInt32 vertex : vertices) *out++ = layout.getValue<Value>(attribute, vertex);
}

::osg::GeoPropertyPtr values_at(const ::osg::IndexLayout& layout, Attribute attribute,
                                std::span<const UInt32> vertices) {
  ::osg::GeoPropertyPtr property = make_property(attribute);
  property->resize(vertices.size());
  if (property->getDimension() == 3)
    copy_values<::osg::Vec3f>(layout, attribute, vertices, *property);
  else
    copy_values<::osg::Vec2f>(layout, attribute, vertices, *property);
  return property;
}

}  // namespace

std::vector<std::uint32_t> cache_source::sizes() const {
  std::vector<std::uint32_t> sizes;
  for (const Attribute attribute : attributes) {
    const auto* property = layout.getProperty(attribute);
    sizes.push_back(property ? property->size() : 0);
  }
  return sizes;
}

cache_source triangles_to_order(const ::osg::Geometry& geometry) {
  return read<3>(geometry.beginTriangles(),
                 {Attribute::Positions, Attribute::Normals, Attribute::Colors, Attribute::TexCoords,
                  Attribute::TexCoords7},
                 [](const ::osg::TriangleIterator& triangle) {
                   return rogue_filter::is_rogue(triangle.getPosition(0), triangle.getPosition(1),
                                                 triangle.getPosition(2));
                 });
}

cache_source lines_to_order(const ::osg::Geometry& geometry) {
  return read<2>(
      geometry.beginLines(),
      {Attribute::Positions, Attribute::Normals, Attribute::Colors, Attribute::TexCoords7},
      [](const ::osg::LineIterator&) { return false; });
}

// --- Chunks --------------------------------------------------------------------------------------

cache_chunks::cache_chunks(const cache_source& source, unsigned limit, bool multi_index)
    : cache_chunks(source, source.sizes(), limit, multi_index) {}

cache_chunks::cache_chunks(const cache_source& source, std::span<const std::uint32_t> sizes,
                           unsigned limit, bool multi_index)
    : corners_each_(source.corners_each), limit_(limit) {
  const std::size_t corners = source.vertices.size();
  order_.reserve(corners / corners_each_);
  if (multi_index) {
    for (std::size_t k = 0; k < sizes.size(); ++k) add_column(source.entries[k].data(), sizes[k]);
    return;
  }
  constexpr std::size_t most_pairs = 3;  // five attributes at most
  combinations_.resize(corners);
  const auto first = number_keys<most_pairs>(
      source.entries.size(), corners, corners / 6, {combinations_.data()},
      [&](std::size_t begin, std::size_t end, UInt32* rows, std::size_t stride) {
        for (std::size_t corner = begin; corner < end; ++corner, rows += stride)
          for (std::size_t k = 0; k < source.entries.size(); ++k)
            rows[k] = source.entries[k][corner];
      });
  add_column(combinations_.data(), first.size());
}

void cache_chunks::add_column(const std::uint32_t* numbers, std::size_t count) {
  columns_.push_back({numbers, std::vector<std::uint32_t>(count)});
}

bool cache_chunks::is_full() const {
  return std::any_of(columns_.begin(), columns_.end(),
                     [&](const column& each) { return each.met >= limit_; });
}

void cache_chunks::open() {
  begins_.push_back(order_.size());
  for (column& each : columns_) each.met = 0;
}

void cache_chunks::add(std::uint32_t element) {
  order_.push_back(element);
  const auto chunk = static_cast<std::uint32_t>(begins_.size());
  for (column& each : columns_)
    for (unsigned k = 0; k < corners_each_; ++k) {
      std::uint32_t& last = each.last_chunk[each.numbers[element * corners_each_ + k]];
      each.met += last != chunk;
      last = chunk;
    }
}

std::span<const std::uint32_t> cache_chunks::operator[](std::size_t chunk) const {
  const std::size_t end = chunk + 1 < begins_.size() ? begins_[chunk + 1] : order_.size();
  return std::span(order_).subspan(begins_[chunk], end - begins_[chunk]);
}

// --- Cores ---------------------------------------------------------------------------------------

chunk_builder::chunk_builder(const cache_source& source, UInt32 primitive,
                             ::osg::MaterialPtr material)
    : source_(source), primitive_(primitive), material_(std::move(material)) {
  for (const std::uint32_t size : source.sizes()) number_of_entry_.emplace_back(size, no_number);
}

::osg::GeometryPtr chunk_builder::build(std::span<const std::uint32_t> elements) {
  const std::size_t columns = source_.attributes.size();
  const std::size_t corners = elements.size() * source_.corners_each;
  const auto core = ::osg::Geometry::create();
  const auto types = ::osg::GeoPTypesUI8::create();
  const auto lengths = ::osg::GeoPLengthsUI32::create();
  const auto indices = ::osg::GeoIndicesUI32::create();
  types->push_back(primitive_);
  lengths->push_back(static_cast<UInt32>(corners));
  indices->resize(corners * columns);

  ::osg::beginEditCP(core);
  for (std::size_t k = 0; k < columns; ++k) {
    write_column(k, elements, reinterpret_cast<UInt32*>(indices->editData()) + k, *core);
    core->getIndexMapping().getValues().push_back(::osg::mappingFlag(source_.attributes[k]));
  }
  core->setTypes(types);
  core->setLengths(lengths);
  core->setIndices(indices);
  core->setMaterial(material_);
  ::osg::endEditCP(core);
  if (!core->getNormals()) ::osg::calcVertexNormals(core);
  return core;
}

void chunk_builder::write_column(std::size_t attribute, std::span<const std::uint32_t> elements,
                                 UInt32* indices, ::osg::Geometry& core) {
  const std::vector<std::uint32_t>& entries = source_.entries[attribute];
  std::vector<std::uint32_t>& numbers = number_of_entry_[attribute];
  std::vector<UInt32> first_corners;  // of each number
  for (const std::uint32_t element : elements)
    for (unsigned k = 0; k < source_.corners_each; ++k, indices += source_.attributes.size()) {
      const std::size_t corner = std::size_t{element} * source_.corners_each + k;
      std::uint32_t& number = numbers[entries[corner]];
      if (number == no_number) {
        number = static_cast<std::uint32_t>(first_corners.size());
        first_corners.push_back(static_cast<UInt32>(corner));
      }
      *indices = number;
    }
  for (UInt32& corner : first_corners) {
    numbers[entries[corner]] = no_number;
    corner = source_.vertices[corner];
  }
  core.setAttribute(source_.attributes[attribute],
                    values_at(source_.layout, source_.attributes[attribute], first_corners));
}

}  // namespace morlu::osg
