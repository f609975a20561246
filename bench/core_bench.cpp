// The way back from sets into the scene: cores of at most 5000 triangles with positions, normals,
// texture coordinates and ids, at each output level.

#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>
#include <string>

#include "bench/figure.h"
#include "bench/sheet.h"
#include "finishing/core_building.h"
#include "kd/compile_tree.h"
#include "kd/strategies.h"
#include "morlu/geoset.h"

namespace {

using morlu::bench::contest;
using morlu::bench::indexed_sheet;
using osg::UInt32;

constexpr UInt32 limit = 5000;

/// Bytes of one line of the process's figures.
double memory(const std::string& of) {
  std::ifstream figures("/proc/self/status");
  for (std::string word; figures >> word;)
    if (word == of + ":") {
      double kilobytes = 0;
      figures >> kilobytes;
      return kilobytes * 1024;
    }
  return 0;
}

struct state {
  indexed_sheet sheet;
  osg::NodePtr source = osg::Node::create();
  morlu::osg::osg_geoset set;
  morlu::kd_tree tree;
  osg::NodePtr result;

  explicit state(UInt32 side) : sheet{side} {
    const osg::GeometryPtr geometry = sheet.positions_only();
    indexed_sheet::add_normals(geometry);
    indexed_sheet::add_coords(geometry);
    source->setCore(geometry);
    osg::setName(source, "sheet");
  }
  void fill() {
    morlu::osg::extract(source, set, false, false, true, true, false);
    compile_tree(set, tree, {.leaf_size = limit, .strategy = 3}, morlu::kd_strategy_ObjMedian{});
  }
  void build(unsigned level, bool calcnormals) {
    result = morlu::osg::Splitmodel(tree, set, 0, limit, osg::NullFC, level, calcnormals);
  }
};

/// What corners show, summed up over triangles so that their order doesn't count.
class corner_sum {
 public:
  std::uint64_t triangles = 0;
  double of_positions = 0, of_coords = 0, of_ids = 0;

  void add(const osg::Geometry& geometry) {
    for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it, ++triangles)
      for (UInt32 k = 0; k < 3; ++k) {
        const osg::Pnt3f p = it.getPosition(k);
        of_positions += static_cast<double>(p[0]) * p[1] + p[2];
        of_coords += static_cast<double>(it.getTexCoords(k)[0]) * it.getTexCoords(k)[1];
        of_ids += it.getTexCoords7(k)[0];
      }
  }
  void add_cores(const osg::NodePtr& node, std::uint64_t& largest) {
    if (const auto core = osg::Geometry::dcast(node->getCore())) {
      const std::uint64_t before = triangles;
      add(*core);
      largest = std::max(largest, triangles - before);
    }
    for (const osg::NodePtr& child : node->getChildren()) add_cores(child, largest);
  }
};

bool about(double a, double b) {
  return std::abs(a - b) <= 1e-9 * std::max(std::abs(a), std::abs(b));
}

std::string fault_of(const state& of) {
  corner_sum before, after;
  std::uint64_t largest = 0;
  before.add(*osg::Geometry::dcast(of.source->getCore()));
  after.add_cores(of.result, largest);
  if (before.triangles != after.triangles) return "triangles are missing";
  if (largest > limit) return "a core is too large";
  if (!about(before.of_positions, after.of_positions)) return "positions differ";
  if (!about(before.of_coords, after.of_coords)) return "coordinates differ";
  return after.of_ids == 0 ? "" : "ids differ";
}

contest open(UInt32 side, unsigned level, bool calcnormals) {
  const auto of = std::make_shared<state>(side);
  of->fill();
  return {.ours = {.prepare = [=] { of->result = osg::NullFC; },
                   .run = [=] { of->build(level, calcnormals); },
                   .fault = [=] { return fault_of(*of); }},
          .work = of->sheet.triangles() * 1e-6};
}

/// From the source to the cores, beyond what the source takes.
contest open_memory(UInt32 side, unsigned level) {
  const auto of = std::make_shared<state>(side);
  const auto peak = [=] {
    of->set.clear();
    of->tree.release();
    of->result = osg::NullFC;
    malloc_trim(0);                               // what was freed counts no more
    std::ofstream("/proc/self/clear_refs") << 5;  // the high-water mark begins anew
    const double before = memory("VmRSS");
    of->fill();
    of->build(level, false);
    return (memory("VmHWM") - before) / of->sheet.triangles();
  };
  return {.ours = {.fault = [=] { return of->sheet.triangles() > 0 ? "" : "no triangles"; },
                   .value = peak}};
}

constexpr UInt32 million = indexed_sheet::million;
constexpr UInt32 ten_millions = indexed_sheet::ten_millions;

const morlu::bench::registration figures({
    {"core building", "sheet 1M", "level 0", "Mtri/s", [] { return open(million, 0, false); }},
    {"core building", "sheet 1M", "level 1", "Mtri/s", [] { return open(million, 1, false); }},
    {"core building", "sheet 1M", "level 2", "Mtri/s", [] { return open(million, 2, false); }},
    {"core building", "sheet 1M", "level 3", "Mtri/s", [] { return open(million, 3, false); }},
    {"core building", "sheet 1M", "level 1, new normals", "Mtri/s",
     [] { return open(million, 1, true); }},
    {"core building", "sheet 10M", "level 0", "Mtri/s",
     [] { return open(ten_millions, 0, false); }},
    {"core building", "sheet 10M", "level 1", "Mtri/s",
     [] { return open(ten_millions, 1, false); }},
    {"core building", "sheet 10M", "level 2", "Mtri/s",
     [] { return open(ten_millions, 2, false); }},
    {"core building", "sheet 10M", "level 3", "Mtri/s",
     [] { return open(ten_millions, 3, false); }},
    {"core building", "sheet 1M", "peak from source to level 0, 108 in the set", "byte/tri",
     [] { return open_memory(million, 0); }},
    {"core building", "sheet 10M", "peak from source to level 0, 108 in the set", "byte/tri",
     [] { return open_memory(ten_millions, 0); }},
    {"core building", "sheet 10M", "peak from source to level 1, 108 in the set", "byte/tri",
     [] { return open_memory(ten_millions, 1); }},
});

}  // namespace
