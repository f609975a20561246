#pragma once

#include <osg/geometry.h>

#include <array>
#include <bit>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

/// Index building the slow way, step by step over ordered maps.
namespace morlu::tests {

/// Bits of floats, which compare equal where the values are the very same.
using bits = std::vector<std::uint32_t>;

/// Index data and values of a geometry, of the attributes of a list.
struct plain_index {
  std::vector<std::uint16_t> mapping;
  std::vector<std::uint32_t> indices;
  std::map<::osg::Attribute, std::vector<bits>> values;

  bool operator==(const plain_index&) const = default;
};

inline std::size_t width_of(::osg::Attribute attribute) {
  return attribute < ::osg::Attribute::TexCoords ? 3 : 2;
}

inline bits key_of(bits value) {
  for (auto& component : value)
    if (std::bit_cast<float>(component) == 0) component = 0;
  return value;
}

/// What the triangle iterator delivers, corner by corner; empty for an attribute without values.
inline std::vector<bits> corner_values(const ::osg::Geometry& geometry,
                                       ::osg::Attribute attribute) {
  std::vector<bits> values;
  const auto* property = geometry.getAttribute(attribute);
  if (!property || property->empty()) return values;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it) {
    for (::osg::UInt32 corner = 0; corner < 3; ++corner) {
      const auto value = it.getValue<::osg::Vec3f>(attribute, corner);
      bits& to = values.emplace_back();
      for (::osg::UInt32 k = 0; k < width_of(attribute); ++k)
        to.push_back(std::bit_cast<std::uint32_t>(value[k]));
    }
  }
  return values;
}

inline plain_index plain_shared_index(const ::osg::Geometry& geometry,
                                      std::span<const ::osg::Attribute> attributes) {
  plain_index result;
  std::vector<std::vector<bits>> columns;
  const bool has_triangles = !(geometry.beginTriangles() == geometry.endTriangles());
  for (const auto attribute : attributes) {
    const auto* property = geometry.getAttribute(attribute);
    if (!property || (property->empty() && has_triangles)) continue;
    columns.push_back(corner_values(geometry, attribute));
    result.mapping.push_back(::osg::mappingFlag(attribute));
    result.values[attribute];
  }
  std::map<::osg::UInt16, std::map<bits, std::uint32_t>> numbers;
  const std::size_t corners = columns.empty() ? 0 : columns.front().size();
  for (std::size_t corner = 0; corner < corners; ++corner) {
    for (std::size_t k = 0; k < columns.size(); ++k) {
      auto& values = result.values[::osg::attributeAt(
          static_cast<::osg::UInt32>(std::countr_zero(result.mapping[k])))];
      const bits& value = columns[k][corner];
      const auto next = static_cast<std::uint32_t>(values.size());
      const auto [entry, fresh] = numbers[result.mapping[k]].try_emplace(key_of(value), next);
      if (fresh) values.push_back(value);
      result.indices.push_back(entry->second);
    }
  }
  return result;
}

inline plain_index plain_single_index(const ::osg::Geometry& geometry,
                                      std::span<const ::osg::Attribute> attributes) {
  const plain_index shared = plain_shared_index(geometry, attributes);
  plain_index result;
  for (const auto& [attribute, values] : shared.values) result.values[attribute];
  const std::size_t columns = shared.mapping.size();
  std::map<std::vector<std::uint32_t>, std::uint32_t> numbers;
  for (std::size_t at = 0; columns > 0 && at < shared.indices.size(); at += columns) {
    const std::vector key(shared.indices.begin() + at, shared.indices.begin() + at + columns);
    const auto [entry, fresh] =
        numbers.try_emplace(key, static_cast<std::uint32_t>(numbers.size()));
    result.indices.push_back(entry->second);
    for (std::size_t k = 0; fresh && k < columns; ++k) {
      const auto attribute =
          ::osg::attributeAt(static_cast<::osg::UInt32>(std::countr_zero(shared.mapping[k])));
      result.values[attribute].push_back(shared.values.at(attribute)[key[k]]);
    }
  }
  return result;
}

}  // namespace morlu::tests
