#pragma once

#include <algorithm>
#include <array>
#include <cstring>

#include <osg/index_layout.h>

#include "geoset/extract_traits.h"

namespace morlu::osg {

/// A run of elements on its way from a source into a set: their running vertices, and the values of
/// one attribute at a time, gathered for all of them at once. Small enough for the first cache.
template <class Set>
class corner_block {
 public:
  static constexpr std::size_t room = 256;  // elements

  corner_block(const ::osg::Geometry& source, const placement& place)
      : layout_(source), place_(place), next_(source_of<Set>::begin(source)) {}

  /// Takes the next elements and leaves out those that are refused, which may be all; false at the
  /// end.
  bool next() {
    elements_ = 0;
    column_ = no_column;
    for (; elements_ < room && !next_.isAtEnd(); ++next_, ++elements_)
      for (unsigned k = 0; k < corners_of<Set>; ++k)
        vertices_[elements_ * corners_of<Set> + k] = next_.getVertex(k);
    if (elements_ == 0) return false;
    place_positions();
    drop_refused();
    return true;
  }

  std::size_t elements() const { return elements_; }
  std::size_t corners() const { return elements_ * corners_of<Set>; }
  /// Elements refused so far.
  std::uint64_t refused() const { return refused_; }
  /// Leaves only the first elements.
  void keep(std::size_t elements) { elements_ = elements; }

  /// The attribute's values at the corners, as many floats each as the row cares for, normals as
  /// they are in the space of the set. The source must have the attribute. The next call overwrites
  /// them, but not the positions.
  const float* values(const attribute_row& row) {
    if (row.attribute == ::osg::Attribute::Positions) return positions_[0].getValues();
    gather(row.attribute, row.components, values_[0].getValues());
    if (row.attribute == ::osg::Attribute::Normals && place_.moves())
      source_of<Set>::place_normals(place_, {values_.data(), corners()});
    return values_[0].getValues();
  }

 private:
  static constexpr std::uint32_t no_column = ~std::uint32_t{0};

  void place_positions() {
    gather(::osg::Attribute::Positions, 3, positions_[0].getValues());
    if (place_.moves()) place_.move({positions_.data(), corners()});
  }

  void drop_refused() {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < elements_; ++i) {
      const std::size_t from = i * corners_of<Set>;
      if (source_of<Set>::is_refused(&positions_[from])) continue;
      if (kept != i) {
        std::copy_n(&positions_[from], corners_of<Set>, &positions_[kept * corners_of<Set>]);
        std::copy_n(&vertices_[from], corners_of<Set>, &vertices_[kept * corners_of<Set>]);
      }
      ++kept;
    }
    if (kept == elements_) return;
    refused_ += elements_ - kept;
    elements_ = kept;
    column_ = no_column;
  }

  /// The corners' indices in a column, read once for all attributes that go by it.
  const std::uint32_t* indices(std::uint32_t column) {
    if (!layout_.isIndexed()) return vertices_.data();
    if (column != column_) {
      const ::osg::IndexLayout layout = layout_;  // nothing that is written can be part of it
      for (std::size_t i = 0; i < corners(); ++i)
        indices_[i] = layout.getStoredIndex(column, vertices_[i]);
      column_ = column;
    }
    return indices_.data();
  }

  void gather(::osg::Attribute attribute, unsigned components, float* to) {
    if (components == 3)
      gather_to<3>(attribute, to);
    else if (components == 2)
      gather_to<2>(attribute, to);
    else
      gather_to<1>(attribute, to);
  }

  template <unsigned Components>
  void gather_to(::osg::Attribute attribute, float* to) {
    using value = ::osg::Vector<float, Components>;
    const ::osg::GeoProperty& property = *layout_.getProperty(attribute);
    const std::uint32_t* index = indices(layout_.getColumn(attribute));
    const std::uint32_t last = property.size() - 1;
    const std::byte* const data = property.getData();
    const std::size_t stride = property.getStride();
    const std::size_t count = corners();
    if (property.getComponentType() == ::osg::ComponentType::Float32 &&
        property.getDimension() >= Components) {
      for (std::size_t i = 0; i < count; ++i)
        std::memcpy(to + i * Components, data + std::min(index[i], last) * stride, sizeof(value));
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      value read;
      ::osg::detail::read_entry(data + std::min(index[i], last) * stride,
                                property.getComponentType(), property.getDimension(), read);
      std::copy_n(read.getValues(), Components, to + i * Components);
    }
  }

  const ::osg::IndexLayout layout_;
  const placement place_;
  decltype(source_of<Set>::begin(std::declval<const ::osg::Geometry&>())) next_;
  std::size_t elements_ = 0;
  std::uint64_t refused_ = 0;
  std::uint32_t column_ = no_column;  // that `indices_` are of

  std::array<std::uint32_t, room * corners_of<Set>> vertices_;
  std::array<std::uint32_t, room * corners_of<Set>> indices_;
  std::array<point, room * corners_of<Set>> positions_;
  std::array<::osg::Vec3f, room * corners_of<Set>> values_;
};

}  // namespace morlu::osg
