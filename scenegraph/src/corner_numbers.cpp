#include "corner_numbers.h"

#include <cstring>
#include <numeric>

#include "key_table.h"

namespace osg::detail {

UInt32 reached_vertex_count(const Geometry& geometry) {
  UInt32 count = 0;
  for (PrimitiveIterator it = geometry.beginPrimitives(); !it.isAtEnd(); ++it)
    count = it.getFirstVertex() + it.getLength();
  return count;
}

std::vector<Attribute> present_attributes(const IndexLayout& layout) {
  std::vector<Attribute> present;
  for (UInt32 i = 0; i < kAttributeCount; ++i)
    if (layout.isPresent(attributeAt(i))) present.push_back(attributeAt(i));
  return present;
}

namespace {

/// Numbers vertices by one key below `key_limit` each: over a plain array where that is in
/// proportion to the vertices, else (a small geometry in a large shared property) over a table.
template <class KeyOf>
Numbering number_by_key(UInt32 vertex_count, std::size_t key_limit, KeyOf key_of) {
  Numbering result;
  result.of_vertex.resize(vertex_count);
  if (key_limit > std::size_t{vertex_count} * 4 + 1024) {
    number_keys(
        std::integral_constant<std::size_t, 1>{}, vertex_count,
        [&](std::size_t vertex, UInt32* key) { *key = key_of(static_cast<UInt32>(vertex)); },
        [&](std::size_t vertex, UInt32 number, bool fresh) {
          result.of_vertex[vertex] = number;
          if (fresh) result.first.push_back(static_cast<UInt32>(vertex));
        });
    return result;
  }
  std::vector<UInt32> number_of_key(key_limit, kNoNumber);
  for (UInt32 vertex = 0; vertex < vertex_count; ++vertex) {
    UInt32& number = number_of_key[key_of(vertex)];
    if (number == kNoNumber) {
      number = result.size();
      result.first.push_back(vertex);
    }
    result.of_vertex[vertex] = number;
  }
  return result;
}

/// The bytes of an entry as words, filled up with zeros; equal values have equal words.
template <class Width>
void load_value(const GeoProperty& property, UInt32 entry, Width width, UInt32* words) {
  const std::byte* from = property.getData() + std::size_t{entry} * property.getStride();
  if (property.getComponentType() != ComponentType::Float32) {
    words[std::size_t{width} - 1] = 0;
    std::memcpy(words, from, property.getStride());
    return;
  }
  std::memcpy(words, from, 4 * std::size_t{width});
  for (std::size_t k = 0; k < std::size_t{width}; ++k)
    if (words[k] == 0x80000000) words[k] = 0;  // -0.0
}

/// Numbers the values of `entries`; `first` holds entries.
Numbering number_values(const GeoProperty& property, std::span<const UInt32> entries) {
  Numbering result;
  result.of_vertex.resize(entries.size());
  with_key_width((property.getStride() + 3u) / 4u, [&](auto width) {
    number_keys(
        width, entries.size(),
        [&](std::size_t i, UInt32* key) { load_value(property, entries[i], width, key); },
        [&](std::size_t i, UInt32 number, bool fresh) {
          result.of_vertex[i] = number;
          if (fresh) result.first.push_back(entries[i]);
        });
  });
  return result;
}

/// A column of indices that present attributes use.
struct Column {
  UInt32 place;
  UInt32 last;  // entry that larger indices mean, in the longest of these attributes

  UInt32 index(const IndexLayout& layout, UInt32 vertex) const {
    return std::min(layout.getStoredIndex(place, vertex), last);
  }
};

std::vector<Column> used_columns(const IndexLayout& layout) {
  std::vector<Column> columns;
  for (const Attribute attribute : present_attributes(layout)) {
    const UInt32 place = layout.getColumn(attribute);
    const UInt32 last = layout.getProperty(attribute)->size() - 1;
    const auto known = std::find_if(columns.begin(), columns.end(),
                                    [=](const Column& column) { return column.place == place; });
    if (known == columns.end())
      columns.push_back({place, last});
    else
      known->last = std::max(known->last, last);
  }
  return columns;
}

}  // namespace

Numbering number_by_value(const IndexLayout& layout, Attribute attribute, UInt32 vertex_count) {
  const GeoProperty& property = *layout.getProperty(attribute);
  std::vector<UInt32> entries(vertex_count);
  for (UInt32 vertex = 0; vertex < vertex_count; ++vertex)
    entries[vertex] = static_cast<UInt32>(layout.getIndex(attribute, vertex));
  if (!layout.isIndexed()) return number_values(property, entries);

  // Entries are used several times each: each one's value is looked up once.
  Numbering uses =
      number_by_key(vertex_count, property.size(), [&](UInt32 vertex) { return entries[vertex]; });
  for (UInt32& first : uses.first) first = entries[first];
  Numbering values = number_values(property, uses.first);
  for (UInt32& number : uses.of_vertex) number = values.of_vertex[number];
  return {std::move(uses.of_vertex), std::move(values.first)};
}

Numbering number_by_indices(const IndexLayout& layout, UInt32 vertex_count) {
  const std::vector<Column> columns = used_columns(layout);
  if (columns.size() == 1) {
    const Column column = columns.front();
    return number_by_key(vertex_count, std::size_t{column.last} + 1,
                         [&](UInt32 vertex) { return column.index(layout, vertex); });
  }
  Numbering result;
  result.of_vertex.resize(vertex_count);
  with_key_width(columns.size(), [&](auto width) {
    number_keys(
        width, vertex_count,
        [&](std::size_t vertex, UInt32* key) {
          for (std::size_t k = 0; k < std::size_t{width}; ++k)
            key[k] = columns[k].index(layout, static_cast<UInt32>(vertex));
        },
        [&](std::size_t vertex, UInt32 number, bool fresh) {
          result.of_vertex[vertex] = number;
          if (fresh) result.first.push_back(static_cast<UInt32>(vertex));
        });
  });
  return result;
}

GeoPropertyPtr fresh_like(const GeoProperty& property) {
  GeoPropertyPtr fresh = GeoProperty::dcast(property.getType().createContainer());
  for (const auto& entry : property.getAttachments())
    fresh->addAttachment(entry.attachment, entry.binding);
  return fresh;
}

GeoPropertyPtr gathered(const GeoProperty& property, std::span<const UInt32> entries) {
  GeoPropertyPtr fresh = fresh_like(property);
  fresh->resize(entries.size());
  const std::byte* from = property.getData();
  std::byte* to = fresh->editData();
  const UInt32 last = property.size() - 1;
  const auto copy = [&](auto stride) {
    for (const UInt32 entry : entries) {
      std::memcpy(to, from + std::min(entry, last) * std::size_t{stride}, std::size_t{stride});
      to += std::size_t{stride};
    }
  };
  if (property.getStride() == 12)
    copy(std::integral_constant<std::size_t, 12>{});
  else if (property.getStride() == 8)
    copy(std::integral_constant<std::size_t, 8>{});
  else
    copy(property.getStride());
  return fresh;
}

}  // namespace osg::detail
