// Merging a generated assembly: parts under transforms become few cores in world space, cut along a
// kd tree, with a single index; and putting triangles in cache order. Peers get the same scene from
// a file, whose reading is not measured.

#include <osg/geometry.h>
#include <osg/scene_file_handler.h>

#include <filesystem>
#include <iostream>
#include <list>
#include <memory>
#include <numeric>
#include <random>
#include <sstream>

#include "bench/figure.h"
#include "finishing/cache_order.h"
#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "sample/sample_assembly.h"

#ifdef MORLU_BENCH_ASSIMP
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#endif
#ifdef MORLU_BENCH_MESHOPTIMIZER
#include <meshoptimizer.h>
#endif

namespace {

using morlu::bench::contender;
using morlu::bench::contest;

std::size_t triangles_of(const osg::NodePtr& root) {
  std::list<osg::NodePtr> nodes;
  morlu::osg::collect_geo_nodes(root, nodes);
  std::size_t sum = 0;
  for (const osg::NodePtr& node : nodes)
    sum += static_cast<std::size_t>(
        morlu::osg::count_triangles(osg::Geometry::dcast(node->getCore())));
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

struct merged_scene {
  osg::NodePtr root, result;
  std::size_t triangles;

  explicit merged_scene(unsigned parts)
      : root(morlu::sample::make_sample_assembly({.parts = parts})),
        triangles(triangles_of(root)) {}

  contender merging(const std::string& name, int numthreads,
                    const std::shared_ptr<merged_scene>& self) {
    return {.name = name,
            .run =
                [=] {
                  const silence quiet;
                  morlu::kd_build_setup kd;
                  kd.leaf_size = 5000;
                  kd.max_depth = 100;
                  morlu::osg::mergeGeo_setup setup;
                  setup.silent = true;
                  setup.alphageometry = true;  // else it would move out of the source
                  setup.numthreads = numthreads;
                  self->result = morlu::osg::mergeGeo(self->root, kd, setup);
                },
            .fault = [=]() -> std::string {  // texture coordinates may cut some in two
              return triangles_of(self->result) >= self->triangles ? "" : "triangles are lost";
            }};
  }
};

#ifdef MORLU_BENCH_ASSIMP
std::optional<contender> assimp_merging(const osg::NodePtr& root, std::size_t triangles) {
  const auto file = std::filesystem::temp_directory_path() / "morlu_bench_merge.glb";
  if (!osg::SceneFileHandler::the().writeScene(root, file.string()))
    throw std::runtime_error("can't write " + file.string());
  const auto importer = std::make_shared<Assimp::Importer>();
  return contender{.name = "assimp",
                   .prepare = [=] { importer->ReadFile(file.string(), 0); },
                   .run =
                       [=] {
                         importer->ApplyPostProcessing(
                             aiProcess_PreTransformVertices | aiProcess_OptimizeMeshes |
                             aiProcess_JoinIdenticalVertices | aiProcess_ImproveCacheLocality);
                       },
                   .fault = [=]() -> std::string {
                     std::size_t sum = 0;
                     for (unsigned i = 0; i < importer->GetScene()->mNumMeshes; ++i)
                       sum += importer->GetScene()->mMeshes[i]->mNumFaces;
                     return sum >= triangles ? "" : "triangles are lost";
                   }};
}
#else
std::optional<contender> assimp_merging(const osg::NodePtr&, std::size_t) {
  return {};
}
#endif

contest open_merge(unsigned parts) {
  const auto scene = std::make_shared<merged_scene>(parts);
  return {.ours = scene->merging("", 1, scene),
          .peer = assimp_merging(scene->root, scene->triangles)};
}

/// Two threads beside one.
contest open_threads(unsigned parts) {
  const auto scene = std::make_shared<merged_scene>(parts);
  return {.ours = scene->merging("", 2, scene), .peer = scene->merging("one thread", 1, scene)};
}

// --- Cache order ---------------------------------------------------------------------------------

struct order_recorder {
  std::vector<std::uint32_t> order;
  bool is_full() const { return false; }
  void open() {}
  void add(std::uint32_t triangle) { order.push_back(triangle); }
};

/// A sheet of squares, row by row or in any order.
std::vector<std::uint32_t> sheet_corners(std::uint32_t side, bool shuffled) {
  std::vector<std::array<std::uint32_t, 3>> triangles;
  const std::uint32_t row = side + 1;
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t at = y * row + x;
      triangles.push_back({at, at + 1, at + row});
      triangles.push_back({at + 1, at + row + 1, at + row});
    }
  std::mt19937 random(1);
  for (std::size_t i = triangles.size(); shuffled && i > 1; --i)
    std::swap(triangles[i - 1], triangles[random() % i]);
  std::vector<std::uint32_t> corners;
  for (const auto& each : triangles) corners.insert(corners.end(), each.begin(), each.end());
  return corners;
}

contest open_order(bool shuffled, bool misses) {
  constexpr std::uint32_t side = 700, vertices = (side + 1) * (side + 1);
  const auto corners = std::make_shared<std::vector<std::uint32_t>>(sheet_corners(side, shuffled));
  const auto ours = std::make_shared<order_recorder>();
  contest result;
  result.work = misses ? 0 : static_cast<double>(corners->size()) / 3e6;
  result.ours = {
      .run =
          [=] {
            ours->order.clear();
            morlu::osg::cache_order<3>(*corners, vertices).run(*ours);
          },
      .fault =
          [=] { return ours->order.size() * 3 == corners->size() ? "" : "triangles are lost"; }};
#ifdef MORLU_BENCH_MESHOPTIMIZER
  const auto theirs = std::make_shared<std::vector<std::uint32_t>>(corners->size());
  const auto order_theirs = [=] {
    meshopt_optimizeVertexCache(theirs->data(), corners->data(), corners->size(), vertices);
  };
  result.peer = contender{.name = "meshoptimizer", .run = order_theirs, .fault = [=] {
                            const auto sum = [](const std::vector<std::uint32_t>& of) {
                              return std::accumulate(of.begin(), of.end(), std::uint64_t{0});
                            };
                            return sum(*theirs) == sum(*corners) ? "" : "triangles are lost";
                          }};
  if (misses) {
    const auto misses_of = [](const std::vector<std::uint32_t>& of) {
      constexpr unsigned cache_size = 32;
      return double{
          meshopt_analyzeVertexCache(of.data(), of.size(), vertices, cache_size, 0, 0).acmr};
    };
    result.ours.value = [=, order_ours = result.ours.run] {
      order_ours();
      std::vector<std::uint32_t> ordered;
      for (const std::uint32_t triangle : ours->order)
        ordered.insert(ordered.end(), &(*corners)[3 * triangle], &(*corners)[3 * triangle] + 3);
      return misses_of(ordered);
    };
    result.peer->value = [=] {
      order_theirs();
      return misses_of(*theirs);
    };
  }
#endif
  return result;
}

const morlu::bench::registration figures({
    {"merge", "assembly 10k parts", "merge", "s", [] { return open_merge(10'000); }},
    {"merge", "assembly 10k parts", "merge, 2 threads", "s", [] { return open_threads(10'000); }},
    {"merge", "assembly 100k parts", "merge", "s",
     [] { return contest{.ours = open_threads(100'000).peer.value()}; }},
    {"cache order", "sheet 1M", "order", "Mtri/s", [] { return open_order(false, false); }},
    {"cache order", "shuffled sheet 1M", "order", "Mtri/s", [] { return open_order(true, false); }},
#ifdef MORLU_BENCH_MESHOPTIMIZER
    {"cache order", "sheet 1M", "misses", "ACMR", [] { return open_order(false, true); }},
    {"cache order", "shuffled sheet 1M", "misses", "ACMR", [] { return open_order(true, true); }},
#endif
});

}  // namespace
