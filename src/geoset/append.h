#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "geoset/fields.h"
#include "geoset/interpolate.h"
#include "geoset/setup.h"

/// Elements one by one: unpacked, appended, made smaller.
namespace morlu::osg {

template <class Set>
void prepare(const Set& set, prepared_element& out, std::uint64_t element) {
  if (element >= set.num_objects) {
    std::cout << element_of<Set>::index_error << std::endl;
    if (set.num_objects == 0) return;
    element = set.num_objects - 1;
  }
  for (const attribute_row& row : rows_of<Set>) {
    const auto* property = row.of(set);
    if (!property) continue;
    float* slot = row.slots(out);
    for (const attribute_value& value : values_of(set, row, *property, element))
      slot = std::copy_n(value.begin(), row.components, slot);
  }
}

/// As it is stored, with components that sets don't care for.
inline void copy_entry(::osg::GeoProperty& property, std::uint32_t from, std::uint32_t to) {
  const std::size_t stride = property.getStride();
  std::memmove(property.editData() + to * stride, property.getData() + from * stride, stride);
}

/// Makes element `to` a piece of `parent`, which may be the same: everything is read of the parent
/// before it changes. Without such a parent there are defaults.
template <class Set>
void write_piece(Set& set, std::uint64_t to, const corner_points<Set>& corners,
                 std::uint64_t parent) {
  const bool has_parent = parent < set.num_objects;
  std::array<corner_blend<corners_of<Set>>, corners_of<Set>> blends;
  if (has_parent) {
    const blender<corners_of<Set>> parent_blends(positions_of(set, parent));
    for (unsigned k = 0; k < corners_of<Set>; ++k) blends[k] = parent_blends.at(corners[k]);
  }

  for (const attribute_row& row : rows_of<Set>) {
    auto* property = row.of(set);
    if (!property) continue;
    const ::osg::GeoPropertyPtr held(property);
    ::osg::beginEditCP(held);
    std::array<attribute_value, corners_of<Set>> old;
    if (has_parent) old = values_of(set, row, *property, parent);
    for (unsigned k = 0; k < corners_of<Set>; ++k) {
      const std::uint32_t vertex = first_vertex(set, to) + k;
      if (row.rule == on_cut::given)
        row.write(*property, vertex, {corners[k][0], corners[k][1], corners[k][2]});
      else if (!has_parent)
        row.write(*property, vertex, row.fallback);
      else if (row.rule == on_cut::keep)
        copy_entry(*property, first_vertex(set, parent) + k, vertex);
      else
        row.write(*property, vertex, blends[k].of(old));
    }
    ::osg::endEditCP(held);
  }
}

/// Bounds and record of an element whose positions have changed.
template <class Set>
void follow_positions(Set& set, std::uint64_t element) {
  update_bounds(set, element, element);
  if constexpr (has_triangles<Set>)
    if (set.triangles) copy_record(set, set.triangles.get(), element);
}

/// By 2, from 1000 elements on by 1.3, and never by nothing.
template <class Set>
std::uint64_t grown_capacity(const Set& set) {
  const std::uint64_t grown =
      set.num_objects < 1000
          ? set.object_capacity * 2
          : static_cast<std::uint64_t>(static_cast<double>(set.object_capacity) * 1.3);
  return std::max(grown, set.num_objects + 1);
}

inline void take_over(bounds_rows& to, bounds_rows&& from, std::uint64_t kept) {
  for (int axis = 0; axis < 3 && to; ++axis) std::copy_n(to[axis].get(), kept, from[axis].get());
  to = std::move(from);
}

/// All that can fail comes before the first change but the one that undoes itself.
template <class Set>
bool grow(Set& set) {
  constexpr failure_texts texts{
      "bad_alloc caught in Extract geometry in Geoset.AddObject(): t: ",
      "Exception in Geoset.AddObject(): ", "Error occured in Geoset.AddObject()."};
  const std::uint64_t old_capacity = set.object_capacity;
  const auto work = [&] {
    const std::uint64_t capacity = grown_capacity(set);
    set.object_capacity = capacity;
    bounds_rows low = make_bounds(capacity), high = make_bounds(capacity);
    if constexpr (has_triangles<Set>) {
      auto records = set.triangles ? make_triangles(set, capacity) : nullptr;
      if (!resize_fields(set, capacity)) throw "FieldContainers are not enlargeable";
      set.triangles = std::move(records);
    } else {
      if (!resize_fields(set, capacity)) throw "FieldContainers are not enlargeable";
    }
    take_over(set.min_bounds, std::move(low), set.num_objects);
    take_over(set.max_bounds, std::move(high), set.num_objects);
  };
  return guarded(texts, work, [&] { set.object_capacity = old_capacity; });
}

/// One slot always stays free.
template <class Set>
bool append_piece(Set& set, const corner_points<Set>& corners, std::uint64_t parent) {
  if (!set.geometry || !set.geometry->getPositions()) return false;
  if (set.num_objects + 1 >= set.object_capacity && !grow(set)) return false;
  return guarded(element_of<Set>::write_error, std::cerr, [&] {
    write_piece(set, set.num_objects, corners, parent);
    add_stored_vertices(set, corners_of<Set>);
    ++set.num_objects;
    follow_positions(set, set.num_objects - 1);
  });
}

/// Takes the element appended last away again.
template <class Set>
void drop_last_piece(Set& set) {
  --set.num_objects;
  add_stored_vertices(set, -static_cast<std::int64_t>(corners_of<Set>));
}

template <class Set>
void replace_by_piece(Set& set, const corner_points<Set>& corners, std::uint64_t element) {
  if (element >= set.num_objects) return;
  write_piece(set, element, corners, element);
  follow_positions(set, element);
}

}  // namespace morlu::osg
