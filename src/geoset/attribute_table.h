#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "morlu/geoset.h"

/// What sets carry. Every loop over attributes runs over this table.
namespace morlu::osg {

/// Kinds of element, as flags.
enum set_kind : unsigned { in_triangles = 1, in_lines = 2, in_points = 4, in_all = 7 };

/// How the pieces of a cut get their values: positions are given; others are interpolated, or taken
/// from the parent corner by corner.
enum class on_cut : unsigned char { given, interpolate, keep };

/// A value with all its components; the row says how many there are.
using attribute_value = std::array<float, 3>;

struct attribute_row {
  using property = ::osg::GeoProperty;

  ::osg::Attribute attribute;
  unsigned carried;  // by which kinds of set
  on_cut rule;
  unsigned char components;  // of a value that sets care for
  attribute_value fallback;  // for sources without it

  ::osg::GeoPropertyPtr (*create)();
  attribute_value (*read)(const property& from, std::uint32_t index);
  void (*write)(property& to, std::uint32_t index, const attribute_value& value);
  float* (*slots)(prepared_element& element);  // corner after corner, `components` each

  /// The set's property, null if absent.
  template <class Set>
  property* of(const Set& set) const {
    return set.geometry ? set.geometry->getAttribute(attribute) : nullptr;
  }
};

namespace detail {

template <class Family, class Class, class Slot>
struct attribute_access {
  using value = typename Family::Value;
  static constexpr unsigned components = sizeof(Slot) / sizeof(float);
  static_assert(components <= sizeof(value) / sizeof(float));

  static ::osg::GeoPropertyPtr create() { return Class::create(); }
  static attribute_value read(const ::osg::GeoProperty& from, std::uint32_t index) {
    const value in = static_cast<const Family&>(from).getValue(index);
    attribute_value out{};
    std::copy_n(in.getValues(), components, out.begin());
    return out;
  }
  static void write(::osg::GeoProperty& to, std::uint32_t index, const attribute_value& in) {
    value out;
    std::copy_n(in.begin(), components, out.getValues());
    static_cast<Family&>(to).setValue(out, index);
  }
};

template <class Family, class Class, auto Slots>
constexpr attribute_row make_row(::osg::Attribute attribute, unsigned carried, on_cut rule,
                                 const attribute_value& fallback) {
  using slot = std::remove_extent_t<
      std::remove_reference_t<decltype(std::declval<prepared_element&>().*Slots)>>;
  using access = attribute_access<Family, Class, slot>;
  return {attribute,
          carried,
          rule,
          static_cast<unsigned char>(access::components),
          fallback,
          access::create,
          access::read,
          access::write,
          [](prepared_element& element) { return reinterpret_cast<float*>(element.*Slots); }};
}

}  // namespace detail

/// In the order in which sets resize them.
inline constexpr std::array<attribute_row, 9> attribute_table = [] {
  using ::osg::Attribute;
  using element = prepared_element;
  constexpr attribute_value up{0, 1, 0}, white{1, 1, 1}, zero{0, 0, 0}, nobody{-1, 0, 0};
  return std::array{
      detail::make_row<::osg::GeoPositions, ::osg::GeoPositions3f, &element::position>(
          Attribute::Positions, in_all, on_cut::given, zero),
      detail::make_row<::osg::GeoNormals, ::osg::GeoNormals3f, &element::normal>(
          Attribute::Normals, in_all, on_cut::keep, up),
      detail::make_row<::osg::GeoColors, ::osg::GeoColors3f, &element::color>(
          Attribute::Colors, in_all, on_cut::interpolate, white),
      detail::make_row<::osg::GeoColors, ::osg::GeoColors3f, &element::secondary_color>(
          Attribute::SecondaryColors, in_triangles | in_lines, on_cut::interpolate, white),
      detail::make_row<::osg::GeoTexCoords, ::osg::GeoTexCoords2f, &element::tex_coord0>(
          Attribute::TexCoords, in_triangles, on_cut::interpolate, zero),
      detail::make_row<::osg::GeoTexCoords, ::osg::GeoTexCoords2f, &element::tex_coord1>(
          Attribute::TexCoords1, in_triangles, on_cut::interpolate, zero),
      detail::make_row<::osg::GeoTexCoords, ::osg::GeoTexCoords2f, &element::tex_coord2>(
          Attribute::TexCoords2, in_triangles, on_cut::interpolate, zero),
      detail::make_row<::osg::GeoTexCoords, ::osg::GeoTexCoords2f, &element::tex_coord3>(
          Attribute::TexCoords3, in_triangles, on_cut::interpolate, zero),
      detail::make_row<::osg::GeoTexCoords, ::osg::GeoTexCoords1f, &element::id>(
          Attribute::TexCoords7, in_all, on_cut::keep, nobody),
  };
}();

/// The rows that sets of `Kind` carry.
template <set_kind Kind>
inline constexpr auto attributes_of = [] {
  constexpr auto carries = [](const attribute_row& row) { return (row.carried & Kind) != 0; };
  constexpr auto count = std::count_if(attribute_table.begin(), attribute_table.end(), carries);
  std::array<attribute_row, count> rows{};
  std::copy_if(attribute_table.begin(), attribute_table.end(), rows.begin(), carries);
  return rows;
}();

}  // namespace morlu::osg
