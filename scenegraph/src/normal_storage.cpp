#include "normal_storage.h"

#include <cstring>

#include "corner_numbers.h"
#include "key_table.h"

namespace osg::detail {

namespace {

/// Indices of the class of `old`, or wider ones where `largest` does not fit.
GeoIndicesPtr indices_for(const GeoIndices& old, std::size_t largest) {
  const std::size_t bits = 8 * componentSize(old.getComponentType());
  if (largest >> bits == 0) return GeoIndices::dcast(fresh_like(old));
  return GeoIndicesUI32::create();
}

// --- A column of the normals' own ----------------------------------------------------------------

struct DistinctNormals {
  std::vector<Vec3f> values;      // in first-use order
  std::vector<UInt32> of_vertex;  // index into them
};

DistinctNormals distinct_normals(const std::vector<Vec3f>& values) {
  DistinctNormals result;
  result.of_vertex.resize(values.size());
  number_keys(
      std::integral_constant<std::size_t, 3>{}, values.size(),
      [&](std::size_t vertex, UInt32* key) { std::memcpy(key, &values[vertex], sizeof(Vec3f)); },
      [&](std::size_t vertex, UInt32 number, bool fresh) {
        result.of_vertex[vertex] = number;
        if (fresh) result.values.push_back(values[vertex]);
      });
  return result;
}

bool has_column_of_its_own(const IndexLayout& layout) {
  for (UInt32 i = 0; i < kAttributeCount; ++i)
    if (attributeAt(i) != Attribute::Normals &&
        layout.getColumn(attributeAt(i)) == layout.getColumn(Attribute::Normals))
      return false;
  return true;
}

/// The rows of indices with `numbers` in `column`, which may be one behind those that there are.
GeoIndicesPtr with_column(const IndexLayout& layout, const GeoIndices& old, UInt32 column,
                          const DistinctNormals& normals) {
  const UInt32 before = layout.getColumnCount();
  const UInt32 columns = std::max(before, column + 1);
  GeoIndicesPtr fresh = indices_for(old, normals.values.size());
  fresh->resize(std::size_t{layout.getVertexCount()} * columns);
  UInt32 at = 0;
  for (UInt32 vertex = 0; vertex < layout.getVertexCount(); ++vertex)
    for (UInt32 k = 0; k < columns; ++k)
      fresh->setValue(k == column ? normals.of_vertex[vertex] : layout.getStoredIndex(k, vertex),
                      at++);
  return fresh;
}

// --- Split vertices ------------------------------------------------------------------------------

/// Which vertices each index has become.
struct SplitVertices {
  std::vector<UInt32> indices;  // of each running vertex
  std::vector<UInt32> sources;  // index before, of each index after
  std::vector<Vec3f> normals;   // of each index after
  bool any = false;
};

/// Entries that indices tell apart: those of the longest property, where the normals, which are
/// to change, count as far as they are in use.
UInt32 entry_count_of(const IndexLayout& layout) {
  UInt32 count = 0, largest = 0;
  for (const Attribute attribute : present_attributes(layout))
    if (attribute != Attribute::Normals)
      count = std::max(count, layout.getProperty(attribute)->size());
  if (!layout.isPresent(Attribute::Normals)) return count;
  for (UInt32 vertex = 0; vertex < layout.getVertexCount(); ++vertex)
    largest = std::max(largest, layout.getStoredIndex(0, vertex));
  const UInt32 normals = layout.getProperty(Attribute::Normals)->size();
  return normals > largest ? std::max(count, largest + 1) : std::max(count, normals);
}

SplitVertices split(const Geometry& geometry, const IndexLayout& layout, const VertexNormals& from,
                    UInt32 entry_count) {
  SplitVertices result;
  result.indices.resize(layout.getVertexCount());
  for (UInt32 i = 0; i < entry_count; ++i) {
    result.sources.push_back(i);
    result.normals.push_back(normal_at(geometry.getNormals().get(), i));
  }
  std::vector<bool> has_normal(entry_count);
  KeyTable table(std::integral_constant<std::size_t, 4>{});
  for (UInt32 vertex = 0; vertex < layout.getVertexCount(); ++vertex) {
    const UInt32 index = std::min(layout.getStoredIndex(0, vertex), entry_count - 1);
    result.indices[vertex] = index;
    if (!from.is_new[vertex]) continue;
    const Vec3f& normal = from.values[vertex];
    if (!has_normal[index]) {
      has_normal[index] = true;
      result.normals[index] = normal;
    } else if (result.normals[index] != normal) {
      UInt32 key[4] = {index};
      std::memcpy(key + 1, &normal, sizeof normal);
      const UInt32 before = table.size();
      const UInt32 number = table.number(key, table.hash(key));
      result.indices[vertex] = entry_count + number;
      if (number < before) continue;
      result.sources.push_back(index);
      result.normals.push_back(normal);
      result.any = true;
    }
  }
  return result;
}

}  // namespace

VertexNormals::VertexNormals(const IndexLayout& layout)
    : values(layout.getVertexCount()),
      is_new(layout.getVertexCount()),
      differs(layout.getVertexCount()) {
  if (!layout.isPresent(Attribute::Normals)) return;
  for (UInt32 vertex = 0; vertex < values.size(); ++vertex)
    values[vertex] = layout.getValue<Vec3f>(Attribute::Normals, vertex);
}

void VertexNormals::give(UInt32 vertex, const Vec3f& normal) {
  if (is_new[vertex]) {
    if (values[vertex] != normal) differs[vertex] = true;
    return;
  }
  is_new[vertex] = true;
  values[vertex] = normal;
}

Vec3f normal_at(const GeoNormals* normals, UInt32 index) {
  if (!normals || normals->empty()) return {};
  return normals->getValue(std::min(index, normals->size() - 1));
}

void store_entries(Geometry& geometry, GeoNormals3fPtr object, const std::vector<Vec3f>& values) {
  if (!object) object = GeoNormals3f::create();
  object->resize(values.size());
  std::copy(values.begin(), values.end(), object->values().begin());
  geometry.setNormals(object);
  endEditCP(object);
}

void store_column(Geometry& geometry, const GeoNormals3fPtr& object,
                  const std::vector<Vec3f>& values) {
  const IndexLayout layout(geometry);
  const DistinctNormals normals = distinct_normals(values);
  const bool own = has_column_of_its_own(layout);
  const UInt32 column = own ? layout.getColumn(Attribute::Normals) : layout.getColumnCount();
  const GeoIndicesPtr indices = with_column(layout, *geometry.getIndices(), column, normals);

  store_entries(geometry, object, normals.values);
  if (!own) {
    for (UInt16& flags : geometry.getIndexMapping())
      flags = static_cast<UInt16>(flags & ~Geometry::MapNormal);
    geometry.getIndexMapping().push_back(Geometry::MapNormal);
  }
  geometry.setIndices(indices);
}

void store_split_vertices(Geometry& geometry, const GeoNormals3fPtr& object,
                          const VertexNormals& normals) {
  const IndexLayout layout(geometry);
  const SplitVertices vertices = split(geometry, layout, normals, entry_count_of(layout));
  if (vertices.any) {
    const GeoIndicesPtr indices = indices_for(*geometry.getIndices(), vertices.sources.size());
    indices->resize(vertices.indices.size());
    for (UInt32 i = 0; i < indices->size(); ++i) indices->setValue(vertices.indices[i], i);
    std::vector<std::pair<Attribute, GeoPropertyPtr>> split_properties;
    for (const Attribute attribute : present_attributes(layout))
      if (attribute != Attribute::Normals)
        split_properties.emplace_back(attribute,
                                      gathered(*layout.getProperty(attribute), vertices.sources));
    for (const auto& [attribute, property] : split_properties)
      geometry.setAttribute(attribute, property);
    geometry.setIndices(indices);
  }
  store_entries(geometry, object, vertices.normals);
}

}  // namespace osg::detail
