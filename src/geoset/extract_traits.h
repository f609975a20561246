#pragma once

#include <osg/primitive_iterators.h>

#include "geoset/element.h"
#include "geoset/guard.h"
#include "geoset/placement.h"
#include "optimiser/scene_queries.h"
#include "primitives/rogue.h"

/// What the ways into triangle, line and point sets differ in.
namespace morlu::osg {

/// Walks the points of a geometry as the iterators of the layer walk triangles and lines.
class point_iterator {
 public:
  explicit point_iterator(const ::osg::Geometry& geometry)
      : primitive_(geometry.beginPrimitives()) {
    skip_others();
  }
  bool isAtEnd() const { return primitive_.isAtEnd(); }
  point_iterator& operator++() {
    if (++point_ == primitive_.getLength()) {
      ++primitive_;
      point_ = 0;
      skip_others();
    }
    return *this;
  }
  std::uint32_t getVertex(unsigned) const { return primitive_.getVertex(point_); }

 private:
  void skip_others() {
    while (!primitive_.isAtEnd() &&
           (primitive_.getType() != ::osg::kPoints || primitive_.getLength() == 0))
      ++primitive_;
  }

  ::osg::PrimitiveIterator primitive_;
  std::uint32_t point_ = 0;
};

template <class Set>
struct source_of;

template <>
struct source_of<osg_geoset> {
  static constexpr const char* prefix = "Morlu_osg_geoset_tools::Extract: ";
  static constexpr failure_texts failures{"bad_alloc caught in Extract geometry in osg_geoset: ",
                                          "Standard exception in Extract geometry in osg_geoset: ",
                                          "Error occured in Extract geometry in osg_geoset."};

  /// Elements that lengths promise. Those of quad strips are no part of the promise.
  static constexpr std::uint64_t promised(std::uint32_t type, std::uint32_t length) {
    if (type == ::osg::kQuads) return length / 2;
    return type == ::osg::kQuadStrip ? 0 : ::osg::triangleCount(type, length);
  }
  static constexpr std::uint64_t delivered(std::uint32_t type, std::uint32_t length) {
    return ::osg::triangleCount(type, length);
  }
  static auto begin(const ::osg::Geometry& source) { return source.beginTriangles(); }
  static bool is_refused(const point* corners) {
    return rogue_filter::is_rogue(corners[0], corners[1], corners[2]);
  }
  static void place_normals(const placement& place, std::span<::osg::Vec3f> normals) {
    place.turn(normals);
  }
  static ::osg::MaterialPtr named_material(const ::osg::NodePtr& node, const osg_geoset&) {
    return getEffectiveMaterial(node);
  }
};

template <>
struct source_of<osg_line_geoset> {
  static constexpr const char* prefix = "Morlu_osg_line_geoset_tools::Extract: ";
  static constexpr failure_texts failures{
      "bad_alloc caught in Extract geometry in morlu::osg_line_geoset: ",
      "Standard exception in Extract geometry in morlu::osg_line_geoset: ",
      "Error occured in Extract geometry in morlu::osg_line_geoset."};

  static constexpr std::uint64_t promised(std::uint32_t type, std::uint32_t length) {
    return ::osg::lineCount(type, length);
  }
  static constexpr std::uint64_t delivered(std::uint32_t type, std::uint32_t length) {
    return ::osg::lineCount(type, length);
  }
  static auto begin(const ::osg::Geometry& source) { return source.beginLines(); }
  static bool is_refused(const point* ends) { return rogue_filter::coincide(ends[0], ends[1]); }
  static void place_normals(const placement& place, std::span<::osg::Vec3f> normals) {
    place.turn(normals);
  }
  static ::osg::MaterialPtr named_material(const ::osg::NodePtr&, const osg_line_geoset& set) {
    return set.geometry->getMaterial();
  }
};

/// Points fail in the words of lines.
template <>
struct source_of<osg_point_geoset> {
  static constexpr const char* prefix = "Morlu_osg_point_geoset_tools::Extract: ";
  static constexpr failure_texts failures = source_of<osg_line_geoset>::failures;

  static constexpr std::uint64_t promised(std::uint32_t type, std::uint32_t length) {
    return type == ::osg::kPoints ? length : 0;
  }
  static constexpr std::uint64_t delivered(std::uint32_t type, std::uint32_t length) {
    return promised(type, length);
  }
  static auto begin(const ::osg::Geometry& source) { return point_iterator(source); }
  static bool is_refused(const point*) { return false; }
  static void place_normals(const placement& place, std::span<::osg::Vec3f> normals) {
    place.transform(normals);
  }
  static ::osg::MaterialPtr named_material(const ::osg::NodePtr&, const osg_point_geoset& set) {
    return set.geometry->getMaterial();
  }
};

}  // namespace morlu::osg
