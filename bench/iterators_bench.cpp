// The triangle iterator beside typed spans: reads of ten million vertices in each index layout,
// copies into fresh properties, and the cost of a walk's beginning on tiny geometries.

#include <array>
#include <memory>

#include "bench/figure.h"
#include "osg/geometry.h"

namespace {

using morlu::bench::contender;
using morlu::bench::contest;

constexpr osg::UInt32 triangles = 3'333'334;
constexpr osg::UInt32 corners = 3 * triangles;

enum class layout { none, single, multi };

// Whole numbers, small enough for sums in double to be exact in any order.
osg::Pnt3f position_of(osg::UInt32 i) {
  return {i % 1024, i % 511, i % 37};
}
osg::Vec3f normal_of(osg::UInt32 i) {
  return {i % 3, i % 5, i % 7};
}
osg::Vec2f coords_of(osg::UInt32 i) {
  return {i % 128, i % 64};
}

/// Entry of corner c in an indexed layout: each vertex is used by six corners, as in a grid.
osg::UInt32 entry_of(osg::UInt32 corner) {
  return corner / 6 + corner % 6 % 4;
}

struct scene {
  osg::GeometryPtr geometry = osg::Geometry::create();
  osg::GeoPositions3fPtr positions = osg::GeoPositions3f::create();
  osg::GeoNormals3fPtr normals = osg::GeoNormals3f::create();
  osg::GeoTexCoords2fPtr coords = osg::GeoTexCoords2f::create();
  osg::GeoIndicesUI32Ptr indices = osg::GeoIndicesUI32::create();
};

/// `primitive_length` vertices a primitive.
scene make_scene(layout kind, osg::UInt32 vertex_count, osg::UInt32 primitive_length) {
  scene made;
  const osg::UInt32 entries = kind == layout::none ? vertex_count : vertex_count / 6 + 6;
  for (osg::UInt32 i = 0; i < entries; ++i) {
    made.positions->push_back(position_of(i));
    made.normals->push_back(normal_of(i));
    made.coords->push_back(coords_of(i));
  }
  const int columns = kind == layout::none ? 0 : kind == layout::single ? 1 : 3;
  for (osg::UInt32 corner = 0; corner < vertex_count; ++corner)
    for (int column = 0; column < columns; ++column) made.indices->push_back(entry_of(corner));
  const auto types = osg::GeoPTypesUI8::create();
  const auto lengths = osg::GeoPLengthsUI32::create();
  for (osg::UInt32 first = 0; first < vertex_count; first += primitive_length) {
    types->push_back(osg::kTriangles);
    lengths->push_back(primitive_length);
  }
  made.geometry->setTypes(types);
  made.geometry->setLengths(lengths);
  made.geometry->setPositions(made.positions);
  made.geometry->setNormals(made.normals);
  made.geometry->setTexCoords(made.coords);
  if (columns > 0) made.geometry->setIndices(made.indices);
  if (columns > 1)
    for (const auto flag :
         {osg::Geometry::MapPosition, osg::Geometry::MapNormal, osg::Geometry::MapTexCoords})
      made.geometry->getIndexMapping().push_back(flag);
  return made;
}

struct sums {
  double total = 0;

  void add(const osg::Pnt3f& p, const osg::Vec3f& n, const osg::Vec2f& t) {
    total += double{p[0]} + p[1] * 2 + p[2] * 3 + n[0] + n[1] * 2 + n[2] * 3 + t[0] + t[1] * 2;
  }
};

double expected_total(layout kind, osg::UInt32 vertex_count) {
  sums all;
  for (osg::UInt32 corner = 0; corner < vertex_count; ++corner) {
    const osg::UInt32 entry = kind == layout::none ? corner : entry_of(corner);
    all.add(position_of(entry), normal_of(entry), coords_of(entry));
  }
  return all.total;
}

double read_by_iterator(const osg::Geometry& geometry) {
  sums all;
  for (auto it = geometry.beginTriangles(); it != geometry.endTriangles(); ++it)
    for (osg::UInt32 corner = 0; corner < 3; ++corner)
      all.add(it.getPosition(corner), it.getNormal(corner), it.getTexCoords(corner));
  return all.total;
}

double read_by_spans(const scene& from, layout kind, osg::UInt32 vertex_count) {
  const auto positions = from.positions->values();
  const auto normals = from.normals->values();
  const auto coords = from.coords->values();
  const auto indices = from.indices->values();
  sums all;
  for (osg::UInt32 v = 0; v < vertex_count; ++v) {
    if (kind == layout::none)
      all.add(positions[v], normals[v], coords[v]);
    else if (kind == layout::single)
      all.add(positions[indices[v]], normals[indices[v]], coords[indices[v]]);
    else
      all.add(positions[indices[3 * v]], normals[indices[3 * v + 1]], coords[indices[3 * v + 2]]);
  }
  return all.total;
}

contender reader(std::string name, double expected, std::function<double()> read) {
  const auto total = std::make_shared<double>();
  return {.name = std::move(name),
          .run = [=] { *total = read(); },
          .fault = [=] { return *total == expected ? "" : "the sum of the values is wrong"; }};
}

contest open_reads(layout kind, osg::UInt32 primitive_length) {
  const scene made = make_scene(kind, corners, primitive_length);
  const double expected = expected_total(kind, corners);
  return {reader("", expected, [=] { return read_by_iterator(*made.geometry); }),
          reader("typed spans", expected, [=] { return read_by_spans(made, kind, corners); }),
          corners * 1e-6};
}

/// Fresh positions, normals and coordinates.
struct copies {
  osg::GeoPositions3fPtr positions;
  osg::GeoNormals3fPtr normals;
  osg::GeoTexCoords2fPtr coords;

  void renew() {
    positions = osg::GeoPositions3f::create();
    normals = osg::GeoNormals3f::create();
    coords = osg::GeoTexCoords2f::create();
  }
  void resize() {
    positions->resize(corners);
    normals->resize(corners);
    coords->resize(corners);
  }
  std::string fault() const {
    if (positions->size() != corners || normals->size() != corners || coords->size() != corners)
      return "vertices are missing";
    for (osg::UInt32 i = 0; i < corners; ++i)
      if (positions->getValue(i) != position_of(i) || normals->getValue(i) != normal_of(i) ||
          coords->getValue(i) != coords_of(i))
        return "vertex " + std::to_string(i) + " is wrong";
    return {};
  }
};

void copy_by_iterator(const osg::Geometry& geometry, copies& to) {
  to.resize();
  osg::UInt32 slot = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    for (osg::UInt32 corner = 0; corner < 3; ++corner, ++slot) {
      to.positions->setValue(it.getPosition(corner), slot);
      to.normals->setValue(it.getNormal(corner), slot);
      to.coords->setValue(it.getTexCoords(corner), slot);
    }
}

void append_by_iterator(const osg::Geometry& geometry, copies& to) {
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    for (osg::UInt32 corner = 0; corner < 3; ++corner) {
      to.positions->push_back(it.getPosition(corner));
      to.normals->push_back(it.getNormal(corner));
      to.coords->push_back(it.getTexCoords(corner));
    }
}

void copy_by_spans(const scene& from, copies& to) {
  to.resize();
  const auto positions = from.positions->values();
  const auto normals = from.normals->values();
  const auto coords = from.coords->values();
  const auto to_positions = to.positions->values();
  const auto to_normals = to.normals->values();
  const auto to_coords = to.coords->values();
  for (osg::UInt32 i = 0; i < corners; ++i) {
    to_positions[i] = positions[i];
    to_normals[i] = normals[i];
    to_coords[i] = coords[i];
  }
}

void append_by_spans(const scene& from, copies& to) {
  const auto positions = from.positions->values();
  const auto normals = from.normals->values();
  const auto coords = from.coords->values();
  for (osg::UInt32 i = 0; i < corners; ++i) {
    to.positions->push_back(positions[i]);
    to.normals->push_back(normals[i]);
    to.coords->push_back(coords[i]);
  }
}

contender copier(std::string name, std::function<void(copies&)> copy) {
  const auto made = std::make_shared<copies>();
  return {.name = std::move(name),
          .prepare = [=] { made->renew(); },
          .run = [=] { copy(*made); },
          .fault = [=] { return made->fault(); }};
}

contest open_copies(void (*by_iterator)(const osg::Geometry&, copies&),
                    void (*by_spans)(const scene&, copies&)) {
  const scene made = make_scene(layout::none, corners, corners);
  return {copier("", [=](copies& to) { by_iterator(*made.geometry, to); }),
          copier("typed spans", [=](copies& to) { by_spans(made, to); }), corners * 1e-6};
}

constexpr osg::UInt32 tiny_geometries = 1'000'000;

/// A walk over many geometries of one triangle each: the beginning is what counts.
contest open_tiny() {
  const auto scenes = std::make_shared<std::vector<scene>>();
  for (osg::UInt32 i = 0; i < tiny_geometries; ++i)
    scenes->push_back(make_scene(layout::single, 3, 3));
  const double expected = expected_total(layout::single, 3) * tiny_geometries;
  const auto sum_of = [scenes](auto read) {
    double total = 0;
    for (const scene& one : *scenes) total += read(one);
    return total;
  };
  return {reader("", expected,
                 [=] {
                   return sum_of([](const scene& one) { return read_by_iterator(*one.geometry); });
                 }),
          reader("typed spans", expected,
                 [=] {
                   return sum_of(
                       [](const scene& one) { return read_by_spans(one, layout::single, 3); });
                 }),
          tiny_geometries * 1e-6};
}

const morlu::bench::registration figures({
    {"iterators", "soup 10M", "read", "Mcorner/s",
     [] { return open_reads(layout::none, corners); }},
    {"iterators", "single index 10M", "read", "Mcorner/s",
     [] { return open_reads(layout::single, corners); }},
    {"iterators", "multi index 10M", "read", "Mcorner/s",
     [] { return open_reads(layout::multi, corners); }},
    {"iterators", "soup 10M in primitives of one triangle", "read", "Mcorner/s",
     [] { return open_reads(layout::none, 3); }},
    {"iterators", "soup 10M", "copy", "Mcorner/s",
     [] { return open_copies(copy_by_iterator, copy_by_spans); }},
    {"iterators", "soup 10M", "append", "Mcorner/s",
     [] { return open_copies(append_by_iterator, append_by_spans); }},
    {"iterators", "1M geometries of one triangle", "read", "Mgeometry/s", open_tiny},
});

}  // namespace
