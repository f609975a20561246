// Merging a generated assembly: parts under transforms become few cores in world space, cut along a
// kd tree, with a single index.

#include <iostream>
#include <list>
#include <memory>
#include <sstream>

#include "bench/figure.h"
#include "bench/memory.h"
#include "bench/merge_peer.h"
#include "bench/sheet.h"
#include "morlu/finishing.h"
#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "osg/geometry.h"
#include "sample/sample_assembly.h"

namespace {

using morlu::bench::contender;
using morlu::bench::contest;

std::list<osg::NodePtr> geometry_nodes(const osg::NodePtr& root) {
  std::list<osg::NodePtr> nodes;
  morlu::osg::collect_geo_nodes(root, nodes);
  return nodes;
}

std::size_t triangles_of(const osg::NodePtr& root) {
  std::size_t sum = 0;
  for (const osg::NodePtr& node : geometry_nodes(root))
    sum += static_cast<std::size_t>(
        morlu::osg::count_triangles(osg::Geometry::dcast(node->getCore())));
  return sum;
}

std::size_t vertices_of(const osg::NodePtr& root) {
  std::size_t sum = 0;
  for (const osg::NodePtr& node : geometry_nodes(root))
    sum += osg::Geometry::dcast(node->getCore())->getPositions()->size();
  return sum;
}

/// What the library says goes nowhere while this lives.
class silence {
 public:
  silence() : former_(std::cout.rdbuf(nowhere_.rdbuf())) {}
  ~silence() { std::cout.rdbuf(former_); }

 private:
  std::ostringstream nowhere_;
  std::streambuf* former_;
};

struct way {
  int numthreads = 1;
  bool cacheopt = false;  // triangles in cache order besides
};

struct assembly {
  osg::NodePtr root, result;
  std::size_t parts, triangles;

  explicit assembly(unsigned count)
      : root(morlu::sample::make_sample_assembly({.parts = count})),
        parts(count),
        triangles(triangles_of(root)) {}

  void merge(const way& how) {
    const silence quiet;
    morlu::kd_build_setup kd;
    kd.leaf_size = 5000;
    kd.max_depth = 100;
    morlu::osg::mergeGeo_setup setup;
    setup.silent = true;
    setup.alphageometry = true;  // else it would move out of the source
    setup.numthreads = how.numthreads;
    setup.cacheopt = how.cacheopt;
    result = morlu::osg::mergeGeo(root, kd, setup);
  }
  std::string fault() const {
    // Texture coordinates may cut some in two.
    if (triangles_of(result) < triangles) return "triangles are lost";
    return geometry_nodes(result).size() < parts / 10 ? "" : "parts are not merged";
  }
};

using shared_assembly = std::shared_ptr<assembly>;

shared_assembly make_assembly(unsigned parts) {
  return std::make_shared<assembly>(parts);
}

contender merging(const shared_assembly& of, const way& how, const std::string& name = "") {
  return {.name = name,
          .prepare = [=] { of->result = osg::NullFC; },
          .run = [=] { of->merge(how); },
          .fault = [=] { return of->fault(); }};
}

contest open_alone(unsigned parts) {
  return {.ours = merging(make_assembly(parts), {})};
}

contest open_beside_assimp(unsigned parts) {
  const auto of = make_assembly(parts);
  return {.ours = merging(of, {}),
          .peer = morlu::bench::merging_steps_peer(of->root, of->triangles)};
}

/// Theirs neither cuts by place nor joins the vertices of parts: their indices count as done. Bare
/// of cache order it is little more than copying, which ours isn't.
contest open_beside_osgutil(unsigned parts, bool our_cache_order, bool their_cache_order) {
  const auto of = make_assembly(parts);
  return {.ours = merging(of, {.cacheopt = our_cache_order}),
          .peer = morlu::bench::merging_visitors_peer(of->root, their_cache_order)};
}

/// Two threads beside one.
contest open_threads(unsigned parts) {
  const auto of = make_assembly(parts);
  return {.ours = merging(of, {.numthreads = 2}), .peer = merging(of, {}, "one thread")};
}

// --- One large geometry in pieces ----------------------------------------------------------------

constexpr unsigned piece_size = 65536;

/// A sheet with normals below a group, and it in pieces.
struct large_sheet {
  osg::GeometryPtr whole = make_whole();
  osg::NodePtr root, result;

  static osg::GeometryPtr make_whole() {
    const auto made = morlu::bench::indexed_sheet{morlu::bench::indexed_sheet::million};
    const auto geometry = made.positions_only();
    morlu::bench::indexed_sheet::add_normals(geometry);
    return geometry;
  }
  void prepare() {
    result = osg::NullFC;
    root = osg::Node::create();
    root->setCore(osg::Group::create());
    const auto node = osg::Node::create();
    node->setCore(whole);
    root->addChild(node);
  }
  void split() {
    morlu::osg::split_Geometries(root, piece_size, false, 1);
    result = root;
  }
  void merge(bool new_normals) {
    const silence quiet;
    morlu::kd_build_setup kd;
    kd.leaf_size = piece_size;
    morlu::osg::mergeGeo_setup setup;
    setup.silent = true;
    setup.calcnormals = new_normals;
    result = morlu::osg::mergeGeo(root, kd, setup);
  }
  std::string fault() const {
    std::size_t sum = 0;
    for (const osg::NodePtr& node : geometry_nodes(result)) {
      const auto count = static_cast<std::size_t>(
          morlu::osg::count_triangles(osg::Geometry::dcast(node->getCore())));
      if (count > piece_size) return "a piece is too large";
      sum += count;
    }
    return sum == static_cast<std::size_t>(morlu::osg::count_triangles(whole)) ? ""
                                                                               : "triangles differ";
  }
};

/// Splitting makes new normals, as a merge does only if it is asked to.
contest open_split(bool merge_makes_normals) {
  const auto of = std::make_shared<large_sheet>();
  const auto side = [&of](const std::string& name, const std::function<void()>& run) {
    return contender{.name = name,
                     .prepare = [of] { of->prepare(); },
                     .run = run,
                     .fault = [of] { return of->fault(); }};
  };
  return {.ours = side("", [of] { of->split(); }),
          .peer = side(merge_makes_normals ? "merge, new normals" : "merge",
                       [=] { of->merge(merge_makes_normals); })};
}

/// The most bytes beyond the source, a vertex of the result.
contest open_memory(unsigned parts) {
  const auto of = make_assembly(parts);
  const auto peak = [=] {
    of->result = osg::NullFC;
    const double bytes = morlu::bench::peak_bytes([&] { of->merge({}); });
    return bytes / static_cast<double>(vertices_of(of->result));
  };
  const auto fault = [=] {
    if (!of->result) of->merge({});
    return of->fault();
  };
  return {.ours = {.fault = fault, .value = peak}};
}

const morlu::bench::registration figures({
    {"merge", "assembly 10k parts", "merge", "s", [] { return open_beside_assimp(10'000); }},
    {"merge", "assembly 10k parts", "merge beside osgUtil", "s",
     [] { return open_beside_osgutil(10'000, false, true); }},
    {"merge", "assembly 10k parts", "merge beside osgUtil, bare", "s",
     [] { return open_beside_osgutil(10'000, false, false); }},
    {"merge", "assembly 10k parts", "merge, cache order", "s",
     [] { return open_beside_osgutil(10'000, true, true); }},
    {"merge", "assembly 10k parts", "merge, 2 threads", "s", [] { return open_threads(10'000); }},
    {"merge", "sheet 1M in 64k", "split beside merge", "s", [] { return open_split(false); }},
    {"merge", "sheet 1M in 64k", "split beside merge, normals", "s",
     [] { return open_split(true); }},
    {"merge", "assembly 100k parts", "merge", "s", [] { return open_alone(100'000); }},
    {"merge", "assembly 100k parts", "merge, 2 threads", "s", [] { return open_threads(100'000); }},
    {"merge", "assembly 100k parts", "merge, peak", "byte/vertex",
     [] { return open_memory(100'000); }},
});

}  // namespace
