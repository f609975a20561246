// Index building over flat geometry: positions, normals, texture coordinates and an id in texture
// coordinates 7, as sets hold them. The peers get the same values; meshoptimizer finds the
// vertices, and writes neither indices nor values, which the others do in the time that is
// measured.

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/figure.h"
#include "bench/index_peer.h"
#include "morlu/finishing.h"

#ifdef MORLU_BENCH_MESHOPTIMIZER
#include <meshoptimizer.h>
#endif

namespace {

using morlu::bench::contender;
using morlu::bench::contest;
using osg::UInt32;

constexpr UInt32 floats = morlu::bench::flat_corners::floats;

/// A hilly sheet of `side` x `side` squares, whose vertices are used six times each.
struct sheet {
  UInt32 side;

  UInt32 row() const { return side + 1; }
  UInt32 vertices() const { return row() * row(); }
  UInt32 corners() const { return 6 * side * side; }
  UInt32 vertex_of(UInt32 corner) const {
    const UInt32 offsets[] = {0, 1, row() + 1, 0, row() + 1, row()};
    const UInt32 square = corner / 6;
    return square / side * row() + square % side + offsets[corner % 6];
  }
  osg::Pnt3f point_of(UInt32 vertex) const {
    const UInt32 x = vertex % row(), y = vertex / row();
    return {x, y, 2 * std::sin(0.05f * x) * std::cos(0.07f * y)};
  }
  osg::Vec3f normal_of(UInt32 vertex) const {
    const UInt32 x = vertex % row(), y = vertex / row();
    osg::Vec3f normal(-0.1f * std::cos(0.05f * x) * std::cos(0.07f * y),
                      0.14f * std::sin(0.05f * x) * std::sin(0.07f * y), 1);
    normal.normalize();
    return normal;
  }
  osg::Vec2f coords_of(UInt32 vertex) const {
    const UInt32 column = vertex % row(), line = vertex / row();
    return {static_cast<float>(column) / side, static_cast<float>(line) / side};
  }
};

/// The sheet with three corners a triangle and no indices, or with one index a corner.
struct scene {
  sheet of;
  bool indexed;
  osg::GeoPTypesUI8Ptr types = osg::GeoPTypesUI8::create();
  osg::GeoPLengthsUI32Ptr lengths = osg::GeoPLengthsUI32::create();
  osg::GeoPositions3fPtr positions = osg::GeoPositions3f::create();
  osg::GeoNormals3fPtr normals = osg::GeoNormals3f::create();
  osg::GeoTexCoords2fPtr coords = osg::GeoTexCoords2f::create();
  osg::GeoTexCoords2fPtr ids = osg::GeoTexCoords2f::create();
  osg::GeoIndicesUI32Ptr indices = osg::GeoIndicesUI32::create();

  scene(UInt32 side, bool with_indices) : of{side}, indexed(with_indices) {
    types->push_back(osg::kTriangles);
    lengths->push_back(of.corners());
    const UInt32 entries = indexed ? of.vertices() : of.corners();
    for (UInt32 i = 0; i < entries; ++i) {
      const UInt32 vertex = indexed ? i : of.vertex_of(i);
      positions->push_back(of.point_of(vertex));
      normals->push_back(of.normal_of(vertex));
      coords->push_back(of.coords_of(vertex));
      ids->push_back({7, 0});
    }
    for (UInt32 i = 0; indexed && i < of.corners(); ++i) indices->push_back(of.vertex_of(i));
  }
  osg::GeometryPtr geometry() const {
    osg::GeometryPtr made = osg::Geometry::create();
    made->setTypes(types);
    made->setLengths(lengths);
    made->setPositions(positions);
    made->setNormals(normals);
    made->setTexCoords(coords);
    made->setTexCoords7(ids);
    if (indexed) made->setIndices(indices);
    return made;
  }
  /// All values of an entry side by side.
  std::vector<float> rows() const {
    std::vector<float> all(std::size_t{positions->size()} * floats);
    for (UInt32 i = 0; i < positions->size(); ++i) {
      float* to = &all[std::size_t{i} * floats];
      std::memcpy(to, &positions->values()[i], 12);
      std::memcpy(to + 3, &normals->values()[i], 12);
      std::memcpy(to + 6, &coords->values()[i], 8);
      std::memcpy(to + 8, &ids->values()[i], 8);
    }
    return all;
  }
};

std::string fault_of(const osg::Geometry& geometry, const sheet& of, std::size_t columns) {
  if (geometry.getIndices()->size() != of.corners() * columns) return "indices are missing";
  if (geometry.getPositions()->size() != of.vertices())
    return "positions are there twice, or missing";
  if (geometry.getTexCoords7()->size() != (columns == 1 ? of.vertices() : 1))
    return "ids are there twice, or missing";
  UInt32 corner = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    for (UInt32 k = 0; k < 3; ++k, ++corner) {
      const UInt32 vertex = of.vertex_of(corner);
      if (it.getPosition(k) != of.point_of(vertex) || it.getNormal(k) != of.normal_of(vertex) ||
          it.getTexCoords(k) != of.coords_of(vertex) || it.getTexCoords7(k)[0] != 7)
        return "corner " + std::to_string(corner) + " is wrong";
    }
  return corner == of.corners() ? "" : "triangles are missing";
}

#ifdef MORLU_BENCH_MESHOPTIMIZER
contender remap_peer(const scene& from) {
  struct state {
    std::vector<float> rows;
    std::vector<UInt32> indices;
    std::vector<UInt32> remap;
    std::size_t vertices = 0;
  };
  const auto held = std::make_shared<state>();
  held->rows = from.rows();
  if (from.indexed)
    held->indices.assign(from.indices->values().begin(), from.indices->values().end());
  held->remap.resize(held->rows.size() / floats);
  const sheet of = from.of;
  return {.name = "meshoptimizer",
          .run =
              [=] {
                held->vertices = meshopt_generateVertexRemap(
                    held->remap.data(), held->indices.empty() ? nullptr : held->indices.data(),
                    of.corners(), held->rows.data(), held->remap.size(), floats * sizeof(float));
              },
          .fault = [=] { return held->vertices == of.vertices() ? "" : "other vertices"; }};
}
#endif

contest open(UInt32 side, bool indexed, bool single) {
  const auto from = std::make_shared<scene>(side, indexed);
  const auto geometry = std::make_shared<osg::GeometryPtr>();
  contest opened{.ours = {.prepare = [=] { *geometry = from->geometry(); },
                          .run =
                              [=] {
                                if (single)
                                  morlu::osg::createSingleIndex(*geometry);
                                else
                                  morlu::osg::createSharedIndex(*geometry);
                              },
                          .fault = [=] { return fault_of(**geometry, from->of, single ? 1 : 4); }},
                 .work = from->of.corners() * 1e-6};
#ifdef MORLU_BENCH_MESHOPTIMIZER
  if (single) opened.peer = remap_peer(*from);
#endif
  return opened;
}

constexpr UInt32 million = 707;  // squares a side: two triangles each
constexpr UInt32 ten_millions = 2236;

/// The single index over flat triangles beside a peer that does all of it.
contest open_beside(decltype(morlu::bench::joining_peer)* peer) {
  contest opened = open(million, false, true);
  const scene from(million, false);
  opened.peer = peer(std::make_shared<morlu::bench::flat_corners>(
      morlu::bench::flat_corners{from.rows(), from.of.vertices()}));
  return opened;
}

const morlu::bench::registration figures({
    {"index building", "flat 1M", "single index", "Mcorner/s",
     [] { return open(million, false, true); }},
    {"index building", "flat 1M", "single index beside assimp", "Mcorner/s",
     [] { return open_beside(morlu::bench::joining_peer); }},
    {"index building", "flat 1M", "single index beside osgUtil", "Mcorner/s",
     [] { return open_beside(morlu::bench::index_visitor_peer); }},
    {"index building", "flat 10M", "single index", "Mcorner/s",
     [] { return open(ten_millions, false, true); }},
    {"index building", "indexed 1M", "single index", "Mcorner/s",
     [] { return open(million, true, true); }},
    {"index building", "indexed 10M", "single index", "Mcorner/s",
     [] { return open(ten_millions, true, true); }},
    {"index building", "flat 1M", "shared index", "Mcorner/s",
     [] { return open(million, false, false); }},
    {"index building", "flat 10M", "shared index", "Mcorner/s",
     [] { return open(ten_millions, false, false); }},
});

}  // namespace
