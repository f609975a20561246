// Which elements of a model stay in its hull, and their copy.

#include "occlusion/hull.h"

#include <osg/geometry_tools.h>
#include <osg/material.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "geoset/guard.h"
#include "primitives/node_moves.h"
#include "primitives/primitive_count.h"

namespace morlu::osg {

using ::osg::Attribute;
using ::osg::GeometryPtr;
using ::osg::IndexLayout;
using ::osg::NodePtr;
using ::osg::UInt32;

namespace {

// --- Elements ------------------------------------------------------------------------------------

struct element {
  ::osg::PrimitiveType type;
  UInt32 vertices;  // how many of the three
  std::array<UInt32, 3> running;
};

template <class Visit>
void for_each_element(const ::osg::Geometry& geometry, const Visit& visit) {
  auto line = geometry.beginLines();
  auto triangle = geometry.beginTriangles();
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    const auto is_here = [&it](const auto& walk) {
      return !walk.isAtEnd() && walk.getPrimitive() == it.getPrimitive();
    };
    if (it.getType() == ::osg::kPoints)
      for (UInt32 i = 0; i < it.getLength(); ++i)
        visit(element{::osg::kPoints, 1, {it.getVertex(i)}});
    for (; is_here(line); ++line)
      visit(element{::osg::kLines, 2, {line.getVertex(0), line.getVertex(1)}});
    for (; is_here(triangle); ++triangle)
      visit(element{::osg::kTriangles,
                    3,
                    {triangle.getVertex(0), triangle.getVertex(1), triangle.getVertex(2)}});
  }
}

/// What makes an element worth keeping: the mean over so many components of the attribute at each
/// of its vertices. What is not a number is worth more than any.
struct measure {
  Attribute attribute;
  unsigned components;

  bool applies_to(const GeometryPtr& geometry) const {
    return geometry && geometry->getAttribute(attribute);
  }
  double worth(const IndexLayout& layout, const element& of) const {
    double sum = 0;
    for (UInt32 i = 0; i < of.vertices; ++i) {
      const auto value = layout.getValue<::osg::Vec3f>(attribute, of.running[i]);
      for (unsigned k = 0; k < components; ++k) sum += value[k];
    }
    return std::isnan(sum) ? std::numeric_limits<double>::infinity()
                           : sum / (of.vertices * components);
  }
};
constexpr measure by_occlusion{Attribute::TexCoords6, 1};
constexpr measure by_color{Attribute::Colors, 3};

void append_worths(const NodePtr& node, const measure& by, std::vector<double>& worths) {
  const GeometryPtr geometry = geometry_at(node);
  if (!by.applies_to(geometry)) return;
  const IndexLayout layout(*geometry);
  for_each_element(*geometry,
                   [&](const element& each) { worths.push_back(by.worth(layout, each)); });
}

// --- Copies --------------------------------------------------------------------------------------

/// The entries of some running vertices, in a property of the same class.
::osg::GeoPropertyPtr gathered(const IndexLayout& layout, Attribute attribute,
                               std::span<const UInt32> vertices) {
  const ::osg::GeoProperty& from = *layout.getProperty(attribute);
  auto to = ::osg::GeoProperty::dcast(from.getType().createContainer());
  to->resize(vertices.size());
  const std::size_t stride = from.getStride();
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    const auto entry = static_cast<std::size_t>(layout.getIndex(attribute, vertices[i]));
    std::memcpy(to->editData() + i * stride, from.getData() + entry * stride, stride);
  }
  return to;
}

GeometryPtr copy_kept(const ::osg::Geometry& source, const measure& by, hull_cut& cut) {
  const auto types = ::osg::GeoPTypesUI8::create();
  const auto lengths = ::osg::GeoPLengthsUI32::create();
  std::vector<UInt32> vertices;
  const IndexLayout layout(source);
  for_each_element(source, [&](const element& each) {
    if (!cut.keeps(by.worth(layout, each))) return;
    types->push_back(each.type);
    lengths->push_back(each.vertices);
    vertices.insert(vertices.end(), each.running.begin(), each.running.begin() + each.vertices);
  });
  const GeometryPtr copy = ::osg::Geometry::create();
  copy->setTypes(types);
  copy->setLengths(lengths);
  copy->setPositions(::osg::GeoPositions3f::create());
  for (UInt32 i = 0; i < ::osg::kAttributeCount; ++i)
    if (const Attribute each = ::osg::attributeAt(i);
        each != by.attribute && layout.isPresent(each))
      copy->setAttribute(each, gathered(layout, each, vertices));
  copy->setMaterial(source.getMaterial());
  ::osg::createSharedIndex(copy);  // equal values are one, so that vertices are shared
  ::osg::createSingleIndex(copy);
  return copy;
}

GeometryPtr copy_or_null(const NodePtr& node, const measure& by, hull_cut& cut) {
  constexpr failure_texts texts{
      "bad_alloc caught in Extract geometry in copyPrimitivesWithAOThreshold(): t: ",
      "Exception in Geoset.AddObject(): ", "Error occured in Geoset.AddObject()."};
  const GeometryPtr source = geometry_at(node);
  GeometryPtr copy;
  if (by.applies_to(source))
    guarded(
        texts, [&] { copy = copy_kept(*source, by, cut); }, [] {});
  return copy;
}

}  // namespace

std::uint32_t countPrimitives(const NodePtr& node) {
  const GeometryPtr geometry = geometry_at(node);
  return geometry ? static_cast<std::uint32_t>(count_primitives(*geometry)) : 0;
}

bool storeOcclusion(const NodePtr& node, occlusion_scene& scene, const occlusion_query& query) {
  const GeometryPtr geometry = geometry_at(node);
  if (!geometry->getPositions()) {
    say_without_positions();
    return false;
  }
  const auto values = values_by_position(scene, placed_vertices(node), rays_lean::nowhere, query);
  const auto coords = ::osg::GeoTexCoords1f::create();
  coords->resize(values.size());
  for (UInt32 i = 0; i < values.size(); ++i)
    coords->values()[i] = ::osg::Vector<float, 1>(values[i]);
  geometry->setTexCoords6(coords);
  return true;
}

void append_occlusion_worths(const NodePtr& node, std::vector<double>& worths) {
  append_worths(node, by_occlusion, worths);
}

void append_color_worths(const NodePtr& node, std::vector<double>& worths) {
  append_worths(node, by_color, worths);
}

hull_cut cut_for(std::vector<double>& worths, unsigned target) {
  if (target == 0 || target >= worths.size()) return {};
  std::sort(worths.begin(), worths.end());
  std::size_t next = worths.size() - target;
  hull_cut cut{static_cast<float>(worths[next]), 0};
  for (++next; next < worths.size() && worths[next] == cut.threshold; ++next) ++cut.ties;
  return cut;
}

GeometryPtr copyPrimitivesWithAOThreshold(const NodePtr& node, hull_cut& cut) {
  return copy_or_null(node, by_occlusion, cut);
}

GeometryPtr copyTrianglesWithColorThreshold(const NodePtr& node, hull_cut& cut) {
  return copy_or_null(node, by_color, cut);
}

NodePtr make_hull(std::span<const NodePtr> nodes,
                  const std::function<::osg::NodeCorePtr(const NodePtr&)>& core_of) {
  const NodePtr hull = makeGroup();
  for (const NodePtr& node : nodes) {
    node->setCore(core_of(node));
    moveInPlace(node, hull);
  }
  return hull;
}

}  // namespace morlu::osg
