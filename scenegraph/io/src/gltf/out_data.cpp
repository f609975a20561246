#include "gltf/out_data.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "gltf/feature_id_names.h"
#include "gltf/meshes.h"
#include "osg/io/feature_ids.h"

namespace osg::io {
namespace {

constexpr UInt32 kArrayBuffer = 34962;
constexpr UInt32 kElementArrayBuffer = 34963;
constexpr UInt32 kUnsignedInt = 5125;

std::string attribute_name(Attribute attribute) {
  switch (attribute) {
    case Attribute::Positions:
      return "POSITION";
    case Attribute::Normals:
      return "NORMAL";
    case Attribute::Colors:
      return "COLOR_0";
    case Attribute::SecondaryColors:
      return kSecondaryColors;
    default:
      return "TEXCOORD_" + std::to_string(indexOf(attribute) - indexOf(Attribute::TexCoords));
  }
}

bool is_tex_coords(const GeoProperty& property) {
  return property.getType().isDerivedFrom(GeoTexCoords::getClassType());
}

UInt32 written_components(const GeoProperty& property) {
  return is_tex_coords(property) ? 2 : property.getDimension();
}

/// Bytes from entry to entry in the file: a multiple of four, as glTF wants it.
UInt32 written_stride(const GeoProperty& property) {
  const auto size = written_components(property) * componentSize(property.getComponentType());
  return static_cast<UInt32>((size + 3) / 4 * 4);
}

}  // namespace

void OutData::announce(const PreparedGeometry& geometry) {
  for (UInt32 i = 0; i < kAttributeCount; ++i) {
    const Attribute attribute = attributeAt(i);
    if (!geometry.layout.isPresent(attribute)) continue;
    UInt32& needed = needed_[geometry.layout.getProperty(attribute)->getSerial()];
    needed = std::max(needed, geometry.vertices);
  }
}

void OutData::write_primitive(const PreparedGeometry& geometry, const OutPrimitive& primitive,
                              JsonText& json) {
  json.key("attributes").begin_object();
  for (UInt32 i = 0; i < kAttributeCount; ++i) {
    const Attribute attribute = attributeAt(i);
    if (geometry.layout.isPresent(attribute) && attribute != geometry.feature_ids)
      json.member(attribute_name(attribute), attribute_accessor(geometry, attribute));
  }
  if (geometry.feature_ids) json.member(kFeatureIds, feature_ids(geometry).accessor);
  json.end_object();
  if (needs_indices(geometry, primitive))
    json.member("indices", index_accessor(geometry, primitive));
  if (geometry.feature_ids) write_feature_ids(feature_ids(geometry), json);
}

void OutData::write_feature_ids(const FeatureIds& ids, JsonText& json) {
  json.key("extensions").begin_object().key(kMeshFeatures).begin_object();
  json.key("featureIds").begin_array().begin_object();
  json.member("featureCount", std::max<std::size_t>(ids.count, 1));  // 0 is against the rules
  json.member("attribute", 0);
  if (ids.has_none) json.member("nullFeatureId", kNullFeatureId);
  json.end_object().end_array().end_object().end_object();
}

std::size_t OutData::add_bytes(const void* bytes, std::size_t size) {
  const std::size_t view = begin_view(0, 0);
  append(bytes, size);
  end_view();
  return view;
}

std::size_t OutData::begin_view(UInt32 stride, UInt32 target) {
  bytes_.resize((bytes_.size() + 3) / 4 * 4);
  views_.push_back({bytes_.size(), 0, stride, target});
  return views_.size() - 1;
}

void OutData::append(const void* bytes, std::size_t size) {
  const auto* first = static_cast<const std::byte*>(bytes);
  bytes_.insert(bytes_.end(), first, first + size);
}

std::size_t OutData::attribute_accessor(const PreparedGeometry& geometry, Attribute attribute) {
  const GeoProperty& property = *geometry.layout.getProperty(attribute);
  const auto [found, fresh] =
      attribute_accessors_.try_emplace({property.getSerial(), geometry.vertices}, 0);
  if (!fresh) return found->second;
  found->second = accessors_.size();
  Accessor accessor{};
  accessor.view = property_view(property, geometry.vertices);
  const bool bytes = property.getComponentType() == ComponentType::Unsigned8;
  accessor.component_type = bytes ? gl::kUnsignedByte : gl::kFloat;
  accessor.components = written_components(property);
  accessor.count = geometry.vertices;
  accessor.normalized = bytes;
  if (attribute == Attribute::Positions) set_bounds(accessor, property);
  accessors_.push_back(std::move(accessor));
  return found->second;
}

const OutData::FeatureIds& OutData::feature_ids(const PreparedGeometry& geometry) {
  const GeoProperty& property = *geometry.layout.getProperty(*geometry.feature_ids);
  const auto [found, fresh] = feature_ids_.try_emplace({property.getSerial(), geometry.vertices});
  if (fresh) found->second = add_feature_ids(property, geometry.vertices);
  return found->second;
}

/// As floats: vertex attributes begin at multiples of four bytes, so that narrower numbers would
/// save nothing.
OutData::FeatureIds OutData::add_feature_ids(const GeoProperty& property, UInt32 entries) {
  std::vector<Real32> values(entries);
  std::vector<Int32> ids;  // they come in long runs
  for (UInt32 i = 0; i < entries; ++i) {
    Vec2f value;
    const UInt32 entry = std::min(i, property.size() - 1);
    detail::read_entry(property.getData() + std::size_t{entry} * property.getStride(),
                       property.getComponentType(), property.getDimension(), value);
    const Int32 id = featureIdOf(value[0]);
    values[i] = static_cast<Real32>(id < 0 ? kNullFeatureId : id);
    if (ids.empty() || ids.back() != id) ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  const bool has_none = ids.front() < 0;
  const std::size_t view = begin_view(0, kArrayBuffer);
  append(values.data(), values.size() * sizeof(Real32));
  end_view();
  accessors_.push_back({view, 0, gl::kFloat, 1, entries, false, {}, {}});
  return {accessors_.size() - 1, ids.size() - has_none, has_none};
}

std::size_t OutData::property_view(const GeoProperty& property, UInt32 entries) {
  // A property that is too short for one of its users has a longer copy of its own there.
  if (entries <= property.size())
    entries = std::min(property.size(), needed_.at(property.getSerial()));
  const auto [found, fresh] = property_views_.try_emplace({property.getSerial(), entries}, 0);
  if (!fresh) return found->second;
  const UInt32 stride = written_stride(property);
  found->second = begin_view(property.getComponentType() == ComponentType::Unsigned8 ? stride : 0,
                             kArrayBuffer);
  append_entries(property, entries);
  end_view();
  return found->second;
}

void OutData::append_entries(const GeoProperty& property, UInt32 entries) {
  const UInt32 stride = written_stride(property);
  const UInt32 own = std::min(entries, property.size());
  const std::size_t begin = bytes_.size();
  if (property.getStride() == stride) {
    append(property.getData(), std::size_t{own} * stride);
  } else {
    const std::size_t kept = std::min<std::size_t>(stride, property.getStride());
    bytes_.resize(begin + std::size_t{own} * stride);
    for (std::size_t i = 0; i < own; ++i)
      std::memcpy(bytes_.data() + begin + i * stride, property.getData() + i * property.getStride(),
                  kept);
    if (is_tex_coords(property) && property.getDimension() > 2)
      warnings_.add("texture coordinates keep two of their components");
  }
  const std::vector<std::byte> last(bytes_.end() - stride, bytes_.end());
  for (UInt32 i = own; i < entries; ++i) bytes_.insert(bytes_.end(), last.begin(), last.end());
}

void OutData::set_bounds(Accessor& accessor, const GeoProperty& positions) {
  constexpr Real32 largest = std::numeric_limits<Real32>::max();
  accessor.low.assign(3, largest);
  accessor.high.assign(3, -largest);
  bool all_finite = true;
  const UInt32 count = std::min(accessor.count, positions.size());
  for (UInt32 i = 0; i < count; ++i) {
    Pnt3f point;
    detail::read_entry(positions.getData() + std::size_t{i} * positions.getStride(),
                       positions.getComponentType(), positions.getDimension(), point);
    for (UInt32 k = 0; k < 3; ++k) {
      if (point[k] < accessor.low[k]) accessor.low[k] = std::max(point[k], -largest);
      if (point[k] > accessor.high[k]) accessor.high[k] = std::min(point[k], largest);
      all_finite = all_finite && std::abs(point[k]) <= largest;
    }
  }
  for (UInt32 k = 0; k < 3; ++k)  // nothing but NaN
    if (accessor.low[k] > accessor.high[k]) accessor.low[k] = accessor.high[k] = 0.0f;
  if (!all_finite)
    warnings_.count("positions that are no finite numbers are against glTF's rules", "property");
}

bool OutData::needs_indices(const PreparedGeometry& geometry, const OutPrimitive& primitive) const {
  return geometry.layout.isIndexed() || !primitive.vertices.empty() || primitive.first != 0 ||
         primitive.length != geometry.vertices;
}

std::size_t OutData::index_accessor(const PreparedGeometry& geometry,
                                    const OutPrimitive& primitive) {
  const GeoIndicesPtr& indices = geometry.core->getIndices();
  // 65535 in 16 bits would restart a strip, and an index past the end means the last here only.
  const bool narrow = indices && indices->getComponentType() == ComponentType::Unsigned16;
  const bool as_stored = geometry.layout.isIndexed() && primitive.vertices.empty() &&
                         geometry.largest_index < geometry.vertices &&
                         !(narrow && geometry.largest_index == 0xffff);
  if (!as_stored) return add_indices(geometry, primitive);
  const auto [found, fresh] = index_accessors_.try_emplace(
      {indices->getSerial(), primitive.first, primitive.length}, accessors_.size());
  if (!fresh) return found->second;
  const auto [view, fresh_view] = index_views_.try_emplace(indices->getSerial(), 0);
  if (fresh_view) {
    view->second = begin_view(0, kElementArrayBuffer);
    append(indices->getData(), std::size_t{indices->size()} * indices->getStride());
    end_view();
  }
  accessors_.push_back({view->second,
                        std::size_t{primitive.first} * indices->getStride(),
                        narrow ? gl::kUnsignedShort : kUnsignedInt,
                        1,
                        primitive.length,
                        false,
                        {},
                        {}});
  return found->second;
}

std::size_t OutData::add_indices(const PreparedGeometry& geometry, const OutPrimitive& primitive) {
  const bool narrow = geometry.vertices <= 0xffff;
  const std::size_t view = begin_view(0, kElementArrayBuffer);
  if (narrow)
    append_indices<UInt16>(geometry, primitive);
  else
    append_indices<UInt32>(geometry, primitive);
  end_view();
  accessors_.push_back(
      {view, 0, narrow ? gl::kUnsignedShort : kUnsignedInt, 1, primitive.count(), false, {}, {}});
  return accessors_.size() - 1;
}

template <class Index>
void OutData::append_indices(const PreparedGeometry& geometry, const OutPrimitive& primitive) {
  std::vector<Index> indices(primitive.count());
  for (UInt32 i = 0; i < primitive.count(); ++i) {
    const UInt32 vertex = primitive.vertices.empty() ? primitive.first + i : primitive.vertices[i];
    indices[i] = static_cast<Index>(index_of_vertex(geometry, vertex));
  }
  append(indices.data(), indices.size() * sizeof(Index));
}

void OutData::write_views(JsonText& json) const {
  for (const View& view : views_) {
    json.begin_object().member("buffer", 0).member("byteLength", view.length);
    if (view.offset > 0) json.member("byteOffset", view.offset);
    if (view.stride > 0) json.member("byteStride", view.stride);
    if (view.target > 0) json.member("target", view.target);
    json.end_object();
  }
}

void OutData::write_accessors(JsonText& json) const {
  constexpr const char* types[] = {"", "SCALAR", "VEC2", "VEC3", "VEC4"};
  for (const Accessor& accessor : accessors_) {
    json.begin_object().member("bufferView", accessor.view);
    if (accessor.offset > 0) json.member("byteOffset", accessor.offset);
    json.member("componentType", accessor.component_type).member("count", accessor.count);
    if (accessor.normalized) json.key("normalized").raw("true");
    json.key("type").string(types[accessor.components]);
    if (!accessor.low.empty()) json.key("min").numbers(accessor.low);
    if (!accessor.high.empty()) json.key("max").numbers(accessor.high);
    json.end_object();
  }
}

}  // namespace osg::io
