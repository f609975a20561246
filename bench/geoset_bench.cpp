// The way out of the scene graph into sets, and what it takes of memory.

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>

#include "bench/figure.h"
#include "bench/sheet.h"
#include "morlu/geoset.h"

namespace {

using morlu::bench::contest;
using morlu::bench::indexed_sheet;
using osg::UInt32;

/// What there is beside positions.
struct extras {
  bool normals = false, coords = false, colors_and_ids = false, to_world = false;
};

/// A node with a sheet, turned and moved.
struct source {
  indexed_sheet sheet;
  extras with;
  osg::GeometryPtr geometry;
  osg::NodePtr root = osg::Node::create(), node = osg::Node::create();

  source(UInt32 side, const extras& extra)
      : sheet{side}, with(extra), geometry(sheet.positions_only()) {
    if (with.normals) indexed_sheet::add_normals(geometry);
    if (with.coords) indexed_sheet::add_coords(geometry);
    if (with.colors_and_ids) indexed_sheet::add_colors(geometry);
    const auto transform = osg::Transform::create();
    transform->setMatrix(osg::Matrix::translation(1, 2, 3) *
                         osg::Matrix::rotation({1, 2, 3}, 0.5f) * osg::Matrix::scale(2));
    root->setCore(transform);
    root->addChild(node);
    node->setCore(geometry);
    osg::setName(node, "sheet");
  }
  int extract_to(morlu::osg::osg_geoset& set) const {
    return morlu::osg::extract(node, set, with.to_world, false, with.colors_and_ids, false, false);
  }
};

std::string fault_of(const source& from, const morlu::osg::osg_geoset& set) {
  const UInt32 corners = 3 * from.sheet.triangles();
  if (set.vertex_count != corners) return "triangles are missing";
  const auto place = from.with.to_world ? from.node->getToWorld() : osg::Matrix();
  for (UInt32 i = 0; i < corners; ++i)
    if (set.geometry->getPositions()->getValue(i) !=
        place * from.sheet.point_of(from.sheet.vertex_of(i)))
      return "corner " + std::to_string(i) + " is wrong";
  if (from.geometry->getNormals().isNull() != set.geometry->getNormals().isNull())
    return "normals are missing";
  if (from.with.colors_and_ids && set.geometry->getTexCoords7()->getValue(corners - 1)[0] != 0)
    return "ids are wrong";
  return "";
}

contest open(UInt32 side, const extras& with) {
  const auto from = std::make_shared<source>(side, with);
  const auto set = std::make_shared<morlu::osg::osg_geoset>();
  return {.ours = {.prepare = [=] { set->clear(); },
                   .run = [=] { from->extract_to(*set); },
                   .fault = [=] { return fault_of(*from, *set); }},
          .work = from->sheet.triangles() * 1e-6};
}

/// One source with normals, then many small ones without.
contest open_many(UInt32 sources) {
  constexpr UInt32 side = 16;
  const auto first = std::make_shared<source>(side, extras{.normals = true});
  const auto other = std::make_shared<source>(side, extras{});
  const auto set = std::make_shared<morlu::osg::osg_geoset>();
  const UInt32 triangles = (sources + 1) * first->sheet.triangles();
  const auto run = [=] {
    first->extract_to(*set);
    for (UInt32 i = 0; i < sources; ++i) other->extract_to(*set);
    set->setup();
  };
  return {.ours = {.prepare = [=] { set->clear(); },
                   .run = run,
                   .fault = [=] { return set->num_objects == triangles ? "" : "wrong elements"; }},
          .work = triangles * 1e-6};
}

/// Bytes, from the kernel's account of this process.
double memory(const std::string& entry) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);)
    if (line.rfind(entry, 0) == 0) return 1024 * std::stod(line.substr(entry.size() + 1));
  return 0;
}

contest open_memory(UInt32 side) {
  const auto from = std::make_shared<source>(side, extras{true, true, true, true});
  const auto set = std::make_shared<morlu::osg::osg_geoset>();
  const auto peak = [=] {
    set->clear();
    std::ofstream("/proc/self/clear_refs") << 5;  // the high-water mark begins anew
    const double before = memory("VmRSS");
    from->extract_to(*set);
    set->setup();
    return (memory("VmHWM") - before) / from->sheet.triangles();
  };
  return {.ours = {.fault = [=] { return from->sheet.triangles() > 0 ? "" : "no triangles"; },
                   .value = peak}};
}

constexpr UInt32 million = indexed_sheet::million;
constexpr UInt32 ten_millions = indexed_sheet::ten_millions;
constexpr extras shaded{.normals = true, .coords = true};
constexpr extras all{.normals = true, .coords = true, .colors_and_ids = true};
constexpr extras moved{.normals = true, .to_world = true};

const morlu::bench::registration figures({
    {"extraction", "indexed 1M", "positions", "Mtri/s", [] { return open(million, {}); }},
    {"extraction", "indexed 10M", "positions", "Mtri/s", [] { return open(ten_millions, {}); }},
    {"extraction", "indexed 1M", "normals, coordinates", "Mtri/s",
     [] { return open(million, shaded); }},
    {"extraction", "indexed 10M", "normals, coordinates", "Mtri/s",
     [] { return open(ten_millions, shaded); }},
    {"extraction", "indexed 1M", "normals, coordinates, colours, ids", "Mtri/s",
     [] { return open(million, all); }},
    {"extraction", "indexed 10M", "normals, coordinates, colours, ids", "Mtri/s",
     [] { return open(ten_millions, all); }},
    {"extraction", "indexed 1M", "normals, to world", "Mtri/s",
     [] { return open(million, moved); }},
    {"extraction", "indexed 10M", "normals, to world", "Mtri/s",
     [] { return open(ten_millions, moved); }},
    {"extraction", "200 sources", "normals made at set-up", "Mtri/s",
     [] { return open_many(200); }},
    {"extraction", "2000 sources", "normals made at set-up", "Mtri/s",
     [] { return open_many(2000); }},
    {"extraction", "indexed 1M", "peak, of a set of 168", "byte/tri",
     [] { return open_memory(million); }},
    {"extraction", "indexed 10M", "peak, of a set of 168", "byte/tri",
     [] { return open_memory(ten_millions); }},
});

}  // namespace
