// Kd trees over sets of triangles: a sheet, whose rows share their coordinates, and a soup, where
// triangles of all sizes lie over one another.

#include <memory>
#include <random>
#include <vector>

#include "bench/figure.h"
#include "bench/memory.h"
#include "bench/sheet.h"
#include "kd/compile_tree.h"
#include "kd/strategies.h"
#include "morlu/geoset.h"

namespace {

using morlu::bench::contest;
using morlu::bench::figure;
using morlu::bench::indexed_sheet;
using osg::UInt32;

struct state {
  osg::NodePtr node = osg::Node::create();
  morlu::osg::osg_geoset set;
  morlu::kd_build_setup setup;
  bool by_area = false;
  morlu::kd_tree tree;

  void fill() {
    set.clear();
    morlu::osg::extract(node, set, false, false, false, true, false);
  }
  void compile() {
    if (by_area)
      morlu::compile_tree(set, tree, setup, morlu::kd_strategy_SurfaceArea{});
    else
      morlu::compile_tree(set, tree, setup, morlu::kd_strategy_ObjMedian{});
  }
  std::string fault() const {
    std::vector<bool> met(set.size());
    for (std::uint64_t i = 0; i < tree.index_count; ++i) {
      if (met[tree.indices[i]]) return "an element is there twice";
      met[tree.indices[i]] = true;
    }
    if (tree.index_count != set.size()) return "elements are missing";
    if (tree.count_elements(0) != set.size()) return "leaves do not cover the elements";
    const double leaves = static_cast<double>(set.size()) / setup.leaf_size;
    if (static_cast<double>(tree.stats.leaves) < leaves) return "leaves are too large";
    return "";
  }
};

osg::GeometryPtr sheet(UInt32 side) {
  return indexed_sheet{side}.positions_only();
}

/// As many triangles as a sheet has, most of them small.
osg::GeometryPtr soup(UInt32 side) {
  const osg::GeometryPtr geometry = sheet(side);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> anywhere(0, 1);
  const auto point = [&](float reach) {
    const auto one = [&] { return reach * anywhere(random); };
    return osg::Vec3f(one(), one(), one());
  };
  const auto positions = osg::GeoPositions3f::create();
  const auto indices = osg::GeoIndicesUI32::create();
  for (UInt32 i = 0; i < 6 * side * side; i += 3) {
    const osg::Vec3f corner = point(1);
    const float size = 0.02f / (1 + 100 * anywhere(random));
    for (UInt32 k = 0; k < 3; ++k) {
      const osg::Vec3f p = corner + point(size);
      positions->push_back({p[0], p[1], p[2]});
      indices->push_back(i + k);
    }
  }
  geometry->setPositions(positions);
  geometry->setIndices(indices);
  return geometry;
}

struct wanted {
  osg::GeometryPtr (*make)(UInt32 side);
  UInt32 side;
  UInt32 leaf_size;
  bool cuts = false;
  bool by_area = false;

  std::shared_ptr<state> open() const {
    const auto opened = std::make_shared<state>();
    opened->node->setCore(make(side));
    opened->setup.leaf_size = leaf_size;
    opened->setup.max_depth = 100;
    opened->setup.strategy = cuts ? 1 : 3;
    opened->by_area = by_area;
    opened->fill();
    return opened;
  }
};

contest open(const wanted& what) {
  const auto of = what.open();
  return {.ours = {.prepare =
                       [=] {
                         if (what.cuts) of->fill();
                         of->tree.release();
                       },
                   .run = [=] { of->compile(); },
                   .fault = [=] { return of->fault(); }},
          .work = 2e-6 * what.side * what.side};
}

contest open_memory(const wanted& what) {
  const auto of = what.open();
  const double triangles = static_cast<double>(of->set.size());
  const auto peak = [=] {
    of->tree.release();
    return morlu::bench::peak_bytes([&] { of->compile(); }) / triangles;
  };
  const auto fault = [=] {
    of->compile();
    return of->fault();
  };
  return {.ours = {.fault = fault, .value = peak}};
}

constexpr UInt32 million = indexed_sheet::million;
constexpr UInt32 ten_millions = indexed_sheet::ten_millions;
constexpr UInt32 hundred_thousand = 224;

figure speed(const char* scene, const char* metric, const wanted& what) {
  return {"kd trees", scene, metric, "Mtri/s", [=] { return open(what); }};
}
figure peak(const char* scene, const char* metric, const wanted& what) {
  return {"kd trees", scene, metric, "byte/tri", [=] { return open_memory(what); }};
}

const morlu::bench::registration figures({
    speed("sheet 1M", "median, leaf 5000", {sheet, million, 5000}),
    speed("sheet 10M", "median, leaf 5000", {sheet, ten_millions, 5000}),
    speed("sheet 1M", "median, leaf 50", {sheet, million, 50}),
    speed("sheet 10M", "median, leaf 50", {sheet, ten_millions, 50}),
    speed("soup 1M", "median, leaf 5000", {soup, million, 5000}),
    speed("soup 1M", "median, leaf 50", {soup, million, 50}),
    speed("soup 1M", "median, leaf 5000, cut", {soup, million, 5000, true}),
    speed("sheet 100k", "surface area, leaf 5", {sheet, hundred_thousand, 5, false, true}),
    speed("soup 100k", "surface area, leaf 5", {soup, hundred_thousand, 5, false, true}),
    peak("sheet 1M", "peak, median, leaf 50", {sheet, million, 50}),
    peak("sheet 10M", "peak, median, leaf 50", {sheet, ten_millions, 50}),
});

}  // namespace
