#pragma once

#include <map>
#include <vector>

#include <osg/geometry_tools.h>
#include <osg/quaternion.h>

#include "geoset/random_sets.h"

namespace morlu::tests {

using ::osg::Attribute;

/// A set as plain rows, filled corner by corner with the public iterators, with all normals made
/// anew after every source that lacks them.
template <class Set>
class plain_set {
 public:
  using value = std::array<float, 3>;

  std::map<Attribute, std::vector<value>> rows;
  std::size_t count = 0;
  int refused = 0;

  struct source {
    ::osg::GeometryPtr geometry;
    bool to_world = false;
    ::osg::Matrix matrix = {};
    bool want_ids = false;
    bool named = true;
    float id = 0;
  };

  void add(const source& from) {
    const ::osg::Geometry& geometry = *from.geometry;
    for (const Attribute attribute : carried()) {
      const bool is_id = attribute == Attribute::TexCoords7;
      const bool brought = has(geometry, attribute) || (is_id && from.want_ids);
      if (brought && (!is_id || from.named))
        rows.try_emplace(attribute, count, fallback(attribute));
    }
    if constexpr (corners<Set> == 3)
      for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it) add_element(from, it, 0);
    else if constexpr (corners<Set> == 2)
      for (auto it = geometry.beginLines(); !it.isAtEnd(); ++it) add_element(from, it, 0);
    else
      for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it)
        for (unsigned k = 0; it.getType() == ::osg::kPoints && k < it.getLength(); ++k)
          add_element(from, it, k);
    if (corners<Set> == 3 && rows.count(Attribute::Normals) && !has(geometry, Attribute::Normals))
      make_normals();
  }

  /// As the elements show it, NaN as NaN.
  std::vector<float> content() const {
    std::vector<float> all;
    for (const auto& [attribute, values] : rows)
      for (const value& one : values)
        all.insert(all.end(), one.begin(), one.begin() + components(attribute));
    return all;
  }

 private:
  static std::vector<Attribute> carried() {
    std::vector<Attribute> all{Attribute::Positions, Attribute::Normals, Attribute::Colors};
    if (corners < Set >> 1) all.push_back(Attribute::SecondaryColors);
    if (corners < Set >> 2)
      for (unsigned i = 0; i < 4; ++i) all.push_back(::osg::texCoordsAttribute(i));
    all.push_back(Attribute::TexCoords7);
    return all;
  }
  static unsigned components(Attribute attribute) {
    return attribute < Attribute::TexCoords ? 3 : attribute == Attribute::TexCoords7 ? 1 : 2;
  }
  static value fallback(Attribute attribute) {
    if (attribute == Attribute::Normals) return {0, 1, 0};
    if (attribute == Attribute::Colors || attribute == Attribute::SecondaryColors) return {1, 1, 1};
    return {attribute == Attribute::TexCoords7 ? -1.0f : 0.0f, 0, 0};
  }
  static bool has(const ::osg::Geometry& geometry, Attribute attribute) {
    return geometry.getAttribute(attribute) && !geometry.getAttribute(attribute)->empty();
  }

  template <class Iterator>
  void add_element(const source& from, const Iterator& it, unsigned first) {
    ::osg::Pnt3f p[3];
    for (unsigned k = 0; k < corners<Set>; ++k)
      p[k] = from.to_world ? from.matrix * it.getPosition(first + k) : it.getPosition(first + k);
    bool bad = corners<Set> == 3 && osg::is_rogue(p[0], p[1], p[2]);
    if (corners<Set> == 2) {
      bad = true;
      for (unsigned axis = 0; axis < 3; ++axis)
        bad = bad && std::abs(p[0][axis] - p[1][axis]) <= 1e-6f;
    }
    if (bad) return void(++refused);
    for (auto& [attribute, values] : rows)
      for (unsigned k = 0; k < corners<Set>; ++k)
        values.push_back(attribute == Attribute::Positions
                             ? value{p[k][0], p[k][1], p[k][2]}
                             : value_of(from, it, attribute, first + k));
    count += corners<Set>;
  }

  template <class Iterator>
  static value value_of(const source& from, const Iterator& it, Attribute attribute, unsigned k) {
    if (attribute == Attribute::TexCoords7 && !from.named) return fallback(attribute);
    if (!has(*from.geometry, attribute))
      return attribute == Attribute::TexCoords7 ? value{from.id} : fallback(attribute);
    if (attribute >= Attribute::TexCoords) {
      const auto v = it.template getValue<::osg::Vec2f>(attribute, k);
      return {v[0], v[1], 0};
    }
    auto v = it.template getValue<::osg::Vec3f>(attribute, k);
    if (attribute == Attribute::Normals && from.to_world) {
      if (corners<Set> == 1) {
        v = from.matrix * v;
      } else {
        v = ::osg::Quaternion(from.matrix.polarDecompose().properRotation()).rotate(v);
        v.normalize();
      }
    }
    return {v[0], v[1], v[2]};
  }

  void make_normals() {
    std::vector<::osg::Pnt3f> corners;
    for (const value& p : rows[Attribute::Positions]) corners.push_back({p[0], p[1], p[2]});
    const auto geometry = triangles(corners);
    geometry->setNormals(::osg::GeoNormals3f::create());
    for (const value& n : rows[Attribute::Normals])
      geometry->getNormals()->push_back({n[0], n[1], n[2]});
    ::osg::calcVertexNormals(geometry, 0.5235988f);
    for (std::size_t i = 0; i < count; ++i) {
      const auto n = geometry->getNormals()->getValue(static_cast<unsigned>(i));
      rows[Attribute::Normals][i] = {n[0], n[1], n[2]};
    }
  }
};

}  // namespace morlu::tests
