#include "finishing/core_building.h"

#include <osg/geometry_tools.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "finishing/carried_attributes.h"
#include "finishing/index_building.h"
#include "geoset/element.h"
#include "geoset/guard.h"
#include "optimiser/id_map_handler.h"
#include "primitives/crease_angle.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::GeometryPtr;
using ::osg::GeoPropertyPtr;
using ::osg::NodePtr;
using ::osg::UInt16;
using ::osg::UInt32;

using element_numbers = std::span<const std::uint64_t>;

constexpr std::uint64_t wide_entries = 65535;  // from here on 16 bits don't do

/// The run without the elements that the set doesn't have, each of which is told of; `kept` has
/// them if there is such a one.
element_numbers elements_of_run(element_numbers run, std::uint64_t first, std::uint64_t num_objects,
                                std::vector<std::uint64_t>& kept) {
  const auto is_inside = [&](std::uint64_t element) { return element < num_objects; };
  if (std::all_of(run.begin(), run.end(), is_inside)) return run;
  for (std::size_t i = 0; i < run.size(); ++i) {
    if (is_inside(run[i]))
      kept.push_back(run[i]);
    else
      say("Index out of bounce.( Splitmodel )\nI: " + std::to_string(first + i) + " index: " +
          std::to_string(run[i]) + " num_objects: " + std::to_string(num_objects) + '\n');
  }
  return kept;
}

// --- Attributes ----------------------------------------------------------------------------------

/// Copies the corners of elements, `From` floats each; a core's corners have `To`, the rest of
/// which is 0.
template <unsigned Corners, unsigned From, unsigned To>
void copy_corners(const std::byte* from, element_numbers elements, std::byte* to) {
  for (const std::uint64_t element : elements) {
    const std::byte* row = from + element * (Corners * From * sizeof(float));
    if constexpr (From == To) {
      std::memcpy(to, row, sizeof(float[Corners * To]));
    } else {
      float padded[Corners][To] = {};
      for (unsigned k = 0; k < Corners; ++k)
        std::memcpy(padded[k], row + k * sizeof(float[From]), sizeof(float[From]));
      std::memcpy(to, padded, sizeof(padded));
    }
    to += sizeof(float[Corners * To]);
  }
}

/// The same for any class of property.
template <class Set>
void convert_corners(const attribute_row& row, const ::osg::GeoProperty& from,
                     element_numbers elements, std::byte* to, std::size_t stride) {
  for (const std::uint64_t element : elements) {
    for (unsigned k = 0; k < corners_of<Set>; ++k, to += stride) {
      const attribute_value value =
          row.read(from, static_cast<UInt32>(element * corners_of<Set>) + k);
      std::memcpy(to, value.data(), stride);
    }
  }
}

/// A new property with the elements' values, exactly as long as they are.
template <class Set>
GeoPropertyPtr gathered(const attribute_row& row, const ::osg::GeoProperty& from,
                        element_numbers elements) {
  constexpr unsigned corners = corners_of<Set>;
  GeoPropertyPtr property = make_property(row.attribute);
  property->resize(elements.size() * corners);
  const std::byte* const values = from.getData();
  std::byte* const to = property->editData();
  const bool is_usual = from.getComponentType() == ::osg::ComponentType::Float32 &&
                        from.getDimension() == row.components;
  if (!is_usual)
    convert_corners<Set>(row, from, elements, to, property->getStride());
  else if (row.components == 3)
    copy_corners<corners, 3, 3>(values, elements, to);
  else if (row.components == 2)
    copy_corners<corners, 2, 2>(values, elements, to);
  else
    copy_corners<corners, 1, 2>(values, elements, to);
  return property;
}

// --- Primitives and indices ----------------------------------------------------------------------

template <class Property>
auto property_of_one(UInt32 value) {
  auto property = Property::create();
  property->resize(1);
  property->setValue(value, 0);
  return property;
}

/// One primitive of `corners` corners; the width of its length goes by what was asked for.
void set_primitive(::osg::Geometry& geometry, UInt32 type, std::uint64_t corners,
                   std::uint64_t asked) {
  geometry.setTypes(property_of_one<::osg::GeoPTypesUI8>(type));
  const auto length = static_cast<UInt32>(corners);
  if (asked * 3 >= wide_entries)
    geometry.setLengths(property_of_one<::osg::GeoPLengthsUI32>(length));
  else
    geometry.setLengths(property_of_one<::osg::GeoPLengthsUI16>(length));
}

void make_single_index(const GeometryPtr& geometry) {
  ::osg::createSharedIndex(geometry);
  ::osg::createSingleIndex(geometry);
}

void renew_normals(const GeometryPtr& geometry) {
  geometry->setNormals(::osg::NullFC);
  make_single_index(geometry);
  ::osg::calcVertexNormals(geometry, crease_angle);
}

/// Our own builders know triangles only.
template <class Set>
void apply_level(const GeometryPtr& geometry, unsigned level) {
  constexpr bool is_triangles = element_of<Set>::kind == in_triangles;
  switch (level) {
    case 0:
      break;
    case 1:
      if constexpr (is_triangles)
        build_single_index(*geometry, carried_attributes<Set>());
      else
        make_single_index(geometry);
      break;
    case 2:
      if constexpr (is_triangles)
        build_shared_index(*geometry, carried_attributes<Set>());
      else
        ::osg::createSharedIndex(geometry);
      break;
    case 3:
      make_single_index(geometry);
      ::osg::createOptimizedPrimitives(geometry, 1, true, false, 16, false, true, false);
      break;
    default:
      say("Splitmodel: OutputLevel " + std::to_string(level) + " not supported\n");
  }
}

/// Halves the indices where that loses nothing.
void narrow_indices(::osg::Geometry& geometry) {
  const ::osg::GeoIndices* wide = geometry.getIndices().get();
  if (!wide || wide->size() >= wide_entries) return;
  const auto narrow = ::osg::GeoIndicesUI16::create();
  narrow->resize(wide->size());
  for (UInt32 i = 0; i < wide->size(); ++i) {
    const UInt32 index = wide->getValue(i);
    if (index > std::numeric_limits<UInt16>::max()) return;
    narrow->values()[i] = static_cast<UInt16>(index);
  }
  geometry.setIndices(narrow);
}

// --- Cores ---------------------------------------------------------------------------------------

template <class Set>
void fill_core(::osg::Geometry& geometry, const Set& set, element_numbers elements,
               std::uint64_t asked) {
  const std::uint64_t corners = elements.size() * corners_of<Set>;
  for (const attribute_row& row : rows_of<Set>) {
    const auto* property = row.of(set);
    if (property && !property->empty() && property->size() >= set.num_objects * corners_of<Set>)
      geometry.setAttribute(row.attribute, gathered<Set>(row, *property, elements));
  }
  set_primitive(geometry, element_of<Set>::primitive, corners, asked);
  if (set.geometry) geometry.setMaterial(set.geometry->getMaterial());
}

NodePtr node_with(const GeometryPtr& geometry, const std::string& name) {
  const NodePtr node = ::osg::Node::create();
  ::osg::beginEditCP(node);
  node->setCore(geometry);
  ::osg::setName(node, name);
  ::osg::setName(geometry, name);
  ::osg::endEditCP(node);
  return node;
}

/// What stays of a core that has failed; null if there is no memory for it.
template <class Set>
NodePtr empty_core(const Set& set, std::string& name) {
  try {
    const GeometryPtr geometry = createEmptyGeometry();
    if (set.geometry) geometry->setMaterial(set.geometry->getMaterial());
    if (name.empty()) name = getIdMapHandler().nextMergedName();
    return node_with(geometry, name);
  } catch (...) {
    return ::osg::NullFC;
  }
}

}  // namespace

GeometryPtr createEmptyGeometry() {
  const GeometryPtr geometry = ::osg::Geometry::create();
  geometry->setTypes(property_of_one<::osg::GeoPTypesUI8>(::osg::kTriangles));
  geometry->setLengths(::osg::GeoPLengthsUI32::create());
  geometry->setPositions(::osg::GeoPositions3f::create());
  return geometry;
}

template <class Set>
NodePtr MakeGeoCore(const kd_tree& tree, const Set& set, unsigned first, unsigned count,
                    unsigned level, bool calcnormals) {
  if (count == 0) return ::osg::NullFC;
  constexpr failure_texts texts{
      "Bad_Alloc caught in MakeGeoCore: ", "Standard exception in MakeGeoCore: ",
      "Error occured in MakeGeoCore."};
  NodePtr node;
  std::string name;
  const auto build = [&] {
    name = getIdMapHandler().nextMergedName();
    const GeometryPtr geometry = ::osg::Geometry::create();
    node = node_with(geometry, name);
    ::osg::beginEditCP(geometry);
    std::vector<std::uint64_t> kept;
    const element_numbers elements =
        elements_of_run({&tree.indices[first], count}, first, set.num_objects, kept);
    fill_core(*geometry, set, elements, count);
    if (calcnormals) renew_normals(geometry);
    apply_level<Set>(geometry, level);
    narrow_indices(*geometry);
    ::osg::endEditCP(geometry);
  };
  guarded(texts, build, [&] { node = empty_core(set, name); });
  return node;
}

template NodePtr MakeGeoCore(const kd_tree&, const osg_geoset&, unsigned, unsigned, unsigned, bool);
template NodePtr MakeGeoCore(const kd_tree&, const osg_line_geoset&, unsigned, unsigned, unsigned,
                             bool);
template NodePtr MakeGeoCore(const kd_tree&, const osg_point_geoset&, unsigned, unsigned, unsigned,
                             bool);

}  // namespace morlu::osg
