#include "gltf/out_geometry.h"

#include <numeric>

#include "osg/geometry_tools.h"
#include "osg/io/feature_ids.h"

namespace osg::io {
namespace {

constexpr std::size_t kMaxLonePrimitives = 16;

bool is_lone(UInt32 type) {
  return type == kLineLoop || type == kLineStrip || type == kTriangleStrip || type == kTriangleFan;
}

/// The list that elements of the type can stand in.
UInt32 list_of(UInt32 type) {
  if (type == kPoints) return kPoints;
  return type == kLines || type == kLineLoop || type == kLineStrip ? kLines : kTriangles;
}

/// The last primitive, if it is a list of that kind and no lone one of the kind came after it.
OutPrimitive& open_list(std::vector<OutPrimitive>& primitives, UInt32 list, UInt32 first) {
  for (std::size_t i = primitives.size(); i-- > 0;) {
    if (list_of(primitives[i].mode) != list) continue;
    if (primitives[i].mode == list) return primitives[i];
    break;
  }
  primitives.push_back({list, first, 0, {}});
  return primitives.back();
}

void make_explicit(OutPrimitive& primitive) {
  if (!primitive.vertices.empty() || primitive.length == 0) return;
  primitive.vertices.resize(primitive.length);
  std::iota(primitive.vertices.begin(), primitive.vertices.end(), primitive.first);
}

void append_range(std::vector<OutPrimitive>& primitives, UInt32 list, UInt32 first, UInt32 length) {
  OutPrimitive& open = open_list(primitives, list, first);
  if (open.vertices.empty() && open.first + open.length == first) {
    open.length += length;
    return;
  }
  make_explicit(open);
  for (UInt32 i = 0; i < length; ++i) open.vertices.push_back(first + i);
}

/// Corners of triangle `k`, as the layer's own iterator has them.
std::array<UInt32, 3> triangle_corners(UInt32 type, UInt32 k) {
  if (type == kTriangleFan || type == kPolygon) return {0, k + 1, k + 2};
  if (type == kQuads) return {k / 2 * 4, k / 2 * 4 + 1 + k % 2, k / 2 * 4 + 2 + k % 2};
  return {k + k % 2, k + 1 - k % 2, k + 2};
}

void append_converted(std::vector<OutPrimitive>& primitives, UInt32 type, UInt32 first,
                      UInt32 length) {
  OutPrimitive& open = open_list(primitives, list_of(type), first);
  make_explicit(open);
  if (open.mode == kLines) {
    for (UInt32 k = 0; k < lineCount(type, length); ++k) {
      open.vertices.push_back(first + k);
      open.vertices.push_back(first + (k + 1) % length);
    }
    return;
  }
  for (UInt32 k = 0; k < triangleCount(type, length); ++k)
    for (const UInt32 corner : triangle_corners(type, k)) open.vertices.push_back(first + corner);
}

std::size_t count_lone(const Geometry& geometry) {
  std::size_t count = 0;
  for (auto at = geometry.beginPrimitives(); !at.isAtEnd(); ++at)
    if (is_lone(at.getType())) ++count;
  return count;
}

void collect_primitives(const Geometry& geometry, std::vector<OutPrimitive>& primitives) {
  const bool keep_lone = count_lone(geometry) <= kMaxLonePrimitives;
  for (auto at = geometry.beginPrimitives(); !at.isAtEnd(); ++at) {
    const UInt32 type = at.getType();
    const UInt32 first = at.getFirstVertex();
    const UInt32 length = usedVertexCount(type, at.getLength());
    if (length == 0) continue;
    if (type == list_of(type))
      append_range(primitives, type, first, length);
    else if (keep_lone && is_lone(type))
      primitives.push_back({type, first, length, {}});
    else
      append_converted(primitives, type, first, length);
  }
}

std::optional<Attribute> feature_ids_of(const Geometry& geometry, const IndexLayout& layout) {
  const Int32 set = getFeatureIdSet(geometry);
  if (set < 0) return std::nullopt;
  const Attribute attribute = texCoordsAttribute(static_cast<UInt32>(set));
  return layout.isPresent(attribute) ? std::optional(attribute) : std::nullopt;
}

template <class Visit>
void visit_vertices(const OutPrimitive& primitive, Visit&& visit) {
  for (const UInt32 vertex : primitive.vertices) visit(vertex);
  if (!primitive.vertices.empty()) return;
  for (UInt32 i = 0; i < primitive.length; ++i) visit(primitive.first + i);
}

}  // namespace

PreparedGeometry prepare_geometry(const GeometryPtr& geometry) {
  PreparedGeometry prepared;
  prepared.core = geometry;
  prepared.layout = IndexLayout(*geometry);
  if (prepared.layout.getColumnCount() > 1) {
    prepared.core = geometry->clone();
    createSingleIndex(prepared.core);
    prepared.layout = IndexLayout(*prepared.core);
  }
  collect_primitives(*prepared.core, prepared.primitives);
  UInt32 largest = 0;
  for (const OutPrimitive& primitive : prepared.primitives)
    visit_vertices(primitive, [&](UInt32 vertex) {
      largest = std::max(largest, prepared.layout.getStoredIndex(0, vertex));
    });
  UInt32 entries = 0;
  for (UInt32 i = 0; i < kAttributeCount; ++i)
    if (const GeoProperty* property = prepared.layout.getProperty(attributeAt(i)))
      entries = std::max(entries, property->size());
  prepared.feature_ids = feature_ids_of(*geometry, prepared.layout);
  prepared.largest_index = largest;
  prepared.vertices = prepared.primitives.empty() ? 0 : std::min(largest, entries - 1) + 1;
  return prepared;
}

}  // namespace osg::io
