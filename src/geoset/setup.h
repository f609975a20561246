#pragma once

#include <cmath>
#include <memory>

#include <osg/geometry_tools.h>

#include "geoset/fields.h"
#include "primitives/crease_angle.h"
#include "ray/triangle_set.h"

/// Elements over the vertices of a set: bounds, box and records.
namespace morlu::osg {

inline bounds_rows make_bounds(std::uint64_t elements) {
  auto rows = std::make_unique<std::unique_ptr<float[]>[]>(3);
  for (int axis = 0; axis < 3; ++axis)
    rows[axis] = std::make_unique_for_overwrite<float[]>(elements);
  return rows;
}

/// Elements `first` to `last`, both included, as far as they exist. No margin.
template <class Set>
void update_bounds(Set& set, std::uint64_t first, std::uint64_t last) {
  if (!set.min_bounds) return;
  for (std::uint64_t i = first; i <= last && i < set.num_objects; ++i) {
    const corner_points<Set> corners = positions_of(set, i);
    for (unsigned axis = 0; axis < 3; ++axis) {
      float low = corners[0][axis], high = low;
      for (const point& corner : corners) {
        low = corner[axis] < low ? corner[axis] : low;
        high = corner[axis] > high ? corner[axis] : high;
      }
      set.min_bounds[axis][i] = low;
      set.max_bounds[axis][i] = high;
    }
  }
}

/// A coordinate that is no number counts only where there is no other.
template <class Set>
void compute_box(Set& set) {
  set.box = {};
  if (set.num_objects == 0) return;
  const ::osg::GeoPositions& positions = *set.geometry->getPositions();
  const std::uint32_t end = first_vertex(set, set.num_objects);
  point low = positions.getValue(0), high = low;
  for (std::uint32_t i = 1; i < end; ++i) {
    const point p = positions.getValue(i);
    for (unsigned axis = 0; axis < 3; ++axis) {
      if (p[axis] < low[axis] || std::isnan(low[axis])) low[axis] = p[axis];
      if (p[axis] > high[axis] || std::isnan(high[axis])) high[axis] = p[axis];
    }
  }
  osg::set(set.box.min, low);
  osg::set(set.box.max, high);
  set.box.update_size();
}

template <class Set>
void copy_record(Set& set, triangle* records, std::uint64_t element) {
  const corner_points<Set> corners = positions_of(set, element);
  for (unsigned k = 0; k < 3; ++k) osg::set(records[element].corners[k], corners[k]);
}

/// Records of all elements, with room for `capacity`.
template <class Set>
std::unique_ptr<triangle[]> make_triangles(Set& set, std::uint64_t capacity) {
  auto records = std::make_unique_for_overwrite<triangle[]>(capacity);
  for (std::uint64_t i = 0; i < set.num_objects; ++i) copy_record(set, records.get(), i);
  return records;
}

template <class Set>
void build_triangles(Set& set) {
  if (set.object_capacity == 0) return;
  set.triangles.reset();
  set.triangles = make_triangles(set, set.object_capacity);
}

/// Normals that sources lacked. Each fill without normals would have all normals of the set made
/// anew, but only the last time shows: so fills note how far it would reach, and `setup` does it.
struct late_normals {
  /// Vertices before this one are concerned; 0 for none.
  static std::uint64_t& end(osg_geoset& set) { return set.vertices_to_smooth_; }

  /// The set must have normals, and no more entries than it needs: each one costs.
  static void make(osg_geoset& set) {
    const auto vertices = std::min<std::uint64_t>(end(set), entries_of_positions(set));
    end(set) = 0;
    if (vertices == 0) return;
    const auto types = ::osg::GeoPTypesUI8::create();
    types->push_back(element_of<osg_geoset>::primitive);
    const auto lengths = ::osg::GeoPLengthsUI32::create();
    lengths->push_back(static_cast<std::uint32_t>(vertices));

    const auto concerned = ::osg::Geometry::create();
    concerned->setTypes(types);
    concerned->setLengths(lengths);
    concerned->setPositions(set.geometry->getPositions());
    concerned->setNormals(set.geometry->getNormals());
    ::osg::calcVertexNormals(concerned, crease_angle);
    set.geometry->setNormals(concerned->getNormals());
  }
};

/// Never throws. Without memory for a new geometry the set has none.
template <class Set>
void clear_set(Set& set) {
  if constexpr (has_bounds<Set>) {
    set.min_bounds.reset();
    set.max_bounds.reset();
  }
  if constexpr (has_triangles<Set>) set.triangles.reset();
  if constexpr (has_split_cache<Set>) {
    set.split_cache.clear();
    set.split_axis = -1;
    set.split_plane = 0;
  }
  if constexpr (element_of<Set>::makes_normals) late_normals::end(set) = 0;
  set.num_objects = set.object_capacity = set.vertex_count = 0;
  set.vertex_capacity = 500000;
  set.not_enlargeable = false;
  set.box = {};
  set.geometry = ::osg::NullFC;
  try {
    set.geometry = ::osg::Geometry::create();
  } catch (...) {  // whoever fills the set finds that it has no geometry
    ++ended_failures;
  }
}

/// Gives up attributes that a failed resize left too short for the vertices.
template <class Set>
void drop_short_attributes(Set& set, std::uint64_t vertices) {
  for (const attribute_row& row : rows_of<Set>) {
    const auto* property = row.of(set);
    if (property && property->size() < vertices)
      set.geometry->setAttribute(row.attribute, ::osg::NullFC);
  }
}

template <class Set>
void make_elements(Set& set) {
  constexpr std::uint64_t corners = corners_of<Set>;
  set.num_objects = set.object_capacity = 0;
  if (!set.geometry || !set.geometry->getPositions()) return;

  // What `AddObject` has appended since the last time stays stored.
  const std::uint64_t used_elements =
      (std::max<std::uint64_t>(set.vertex_count, stored_vertices(set)) + corners - 1) / corners;
  if constexpr (element_of<Set>::makes_normals) {
    // Entries behind those in use have no normals to compute and none to store.
    resize_fields(set, used_elements);
    const auto& normals = set.geometry->getNormals();
    if (normals && normals->size() == entries_of_positions(set)) {
      late_normals::make(set);
    } else {
      late_normals::end(set) = 0;
      ::osg::calcVertexNormals(set.geometry);
    }
  }
  resize_fields(set, std::max(set.vertex_count, used_elements));
  const std::uint64_t elements =
      std::min<std::uint64_t>(set.vertex_count, entries_of_positions(set)) / corners;
  drop_short_attributes(set, elements * corners);

  if constexpr (has_bounds<Set>) {
    set.min_bounds.reset();
    set.max_bounds.reset();
    set.min_bounds = make_bounds(elements);
    set.max_bounds = make_bounds(elements);
  }
  set.num_objects = set.object_capacity = elements;
  if constexpr (has_bounds<Set>) update_bounds(set, 0, elements);
  compute_box(set);
  if constexpr (has_triangles<Set>)
    if (set.triangles) build_triangles(set);
}

template <class Set>
void set_up(Set& set) {
  constexpr failure_texts texts{
      "bad_alloc caught in Geoset.setup(): ", "Standard exception in Geoset.setup(): ",
      "Error occured in Geoset.setup()."};
  guarded(
      texts, [&] { make_elements(set); }, [&] { clear_set(set); });
}

}  // namespace morlu::osg
