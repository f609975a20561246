// Meshes made of a tenth of their triangles: time, and how far from them their vertices then are.
//
// The peer collapses by another measure of cost, keeps borders and moves no vertex, so deviations
// are shown beside the times. A deviation is the distance from a vertex of the source to the
// nearest point of the result, of 2,000 vertices spread over the mesh, by brute force in double
// precision, in thousandths of the diagonal. The peer gets as many triangles as ours has kept.
//
// Only the first collapses of one call of ours join neighbours, so a tenth of the triangles is made
// in many calls for few collapses each, as the program does.
#include <osg/geometry_tools.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "bench/figure.h"
#include "bench/ray_scenes.h"
#include "finishing/edge_collapse.h"
#include "morlu/finishing.h"
#include "morlu/primitives.h"

#ifdef MORLU_BENCH_MESHOPTIMIZER
#include <meshoptimizer.h>
#endif

namespace {

namespace fs = std::filesystem;
using morlu::bench::contender;
using morlu::bench::contest;
using morlu::bench::mesh;
using std::uint32_t;
using mesh_ptr = std::shared_ptr<const mesh>;

unsigned tenth_of(const mesh& from) {
  return static_cast<unsigned>(from.faces.size() / 10);
}

// --- Simplifying ---------------------------------------------------------------------------------

struct collapsed {
  std::vector<osg::Pnt3f> positions;
  std::vector<uint32_t> corners;

  explicit collapsed(const mesh& from) {
    for (const auto& p : from.points) positions.push_back({p[0], p[1], p[2]});
    for (const auto& face : from.faces) corners.insert(corners.end(), face.begin(), face.end());
  }
  void run(unsigned target) {
    morlu::osg::edge_collapse triangles(positions, corners);
    while (triangles.edges() > 3 * std::size_t{target}) triangles.collapse_next();
    triangles.write_corners();
  }
};

/// The working directory is a temporary one, and nothing is printed.
class aside {
 public:
  aside() {
    fs::create_directories(folder_);
    fs::current_path(folder_);
  }
  ~aside() {
    std::cout.rdbuf(out_);
    std::error_code ignored;
    fs::current_path(before_, ignored);
    fs::remove_all(folder_, ignored);
  }

 private:
  const fs::path before_ = fs::current_path();
  const fs::path folder_ = fs::temp_directory_path() / "morlu_bench_simplification";
  std::streambuf* const out_ = std::cout.rdbuf(nullptr);
};

/// With one normal at each place meanwhile, since triangles come apart where normals differ.
osg::GeometryPtr tenth_in_passes(const mesh& from) {
  const aside files_and_words;
  const auto wanted = static_cast<int>(tenth_of(from));
  const auto node = morlu::bench::make_node(from);
  auto result = osg::Geometry::dcast(node->getCore());
  for (int now = morlu::osg::count_triangles(result), before = 0; now > wanted && now != before;) {
    result->setNormals(osg::NullFC);
    osg::calcVertexNormals(result, 3.2f);
    node->setCore(result);
    const int target = std::max(wanted, now / 100 * 95);
    result = morlu::osg::simplifyGeometry(node, static_cast<unsigned>(target));
    before = std::exchange(now, morlu::osg::count_triangles(result));
  }
  return result;
}

#ifdef MORLU_BENCH_MESHOPTIMIZER
std::vector<uint32_t> peer_corners(const mesh& from, std::size_t target) {
  static_assert(sizeof(from.faces[0]) == 12 && sizeof(from.points[0]) == 12);
  std::vector<uint32_t> corners(3 * from.faces.size());
  corners.resize(meshopt_simplify(corners.data(), from.faces[0].data(), corners.size(),
                                  &from.points[0][0], from.points.size(), 12, 3 * target,
                                  std::numeric_limits<float>::max(), 0, nullptr));
  return corners;
}

contender peer(const mesh_ptr& from) {
  const auto corners = std::make_shared<std::vector<uint32_t>>();
  return {.name = "meshoptimizer",
          .run = [=] { *corners = peer_corners(*from, tenth_of(*from)); },
          .fault = [=] { return corners->empty() ? "nothing is left" : ""; }};
}
#endif

/// From an index to geometry with normals, with a file at each pass.
contest open_passes(const std::string& scene) {
  const mesh_ptr from = morlu::bench::find_mesh(scene);
  const auto result = std::make_shared<osg::GeometryPtr>();
  contest opened{.ours = {.run = [=] { *result = tenth_in_passes(*from); },
                          .fault =
                              [=] {
                                const int left = morlu::osg::count_triangles(*result);
                                return left == 0 || left > int(tenth_of(*from))
                                           ? "another number is left"
                                           : "";
                              }}};
#ifdef MORLU_BENCH_MESHOPTIMIZER
  opened.peer = peer(from);
#endif
  return opened;
}

/// From an index to an index.
contest open_collapses(const std::string& scene) {
  const mesh_ptr from = morlu::bench::find_mesh(scene);
  const auto work = std::make_shared<std::unique_ptr<collapsed>>();
  contest opened{.ours = {.prepare = [=] { *work = std::make_unique<collapsed>(*from); },
                          .run = [=] { (*work)->run(tenth_of(*from)); },
                          .fault =
                              [=] {
                                const auto& corners = (*work)->corners;
                                return *std::max_element(corners.begin(), corners.end()) <
                                               from->points.size()
                                           ? ""
                                           : "corners are wrong";
                              }}};
#ifdef MORLU_BENCH_MESHOPTIMIZER
  opened.peer = peer(from);
#endif
  return opened;
}

// --- Deviations ----------------------------------------------------------------------------------

using vector3d = std::array<double, 3>;

vector3d minus(const vector3d& a, const vector3d& b) {
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
double dot(const vector3d& a, const vector3d& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

double squared_distance_to_segment(const vector3d& from_start, const vector3d& way) {
  const double length = dot(way, way);
  const double t = length > 0 ? std::clamp(dot(from_start, way) / length, 0.0, 1.0) : 0.0;
  const vector3d off = minus(from_start, {way[0] * t, way[1] * t, way[2] * t});
  return dot(off, off);
}

/// To the plane where the foot is inside, else to the nearest edge.
double squared_distance(const vector3d& p, const std::array<vector3d, 3>& corner) {
  const vector3d u = minus(corner[1], corner[0]), v = minus(corner[2], corner[0]);
  const vector3d w = minus(p, corner[0]);
  const double uu = dot(u, u), uv = dot(u, v), vv = dot(v, v), wu = dot(w, u), wv = dot(w, v);
  const double area = uu * vv - uv * uv, s = vv * wu - uv * wv, t = uu * wv - uv * wu;
  if (area > 0 && s >= 0 && t >= 0 && s + t <= area) {
    const double a = s / area, b = t / area;
    const vector3d off = minus(w, {a * u[0] + b * v[0], a * u[1] + b * v[1], a * u[2] + b * v[2]});
    return dot(off, off);
  }
  double nearest = std::numeric_limits<double>::infinity();
  for (std::size_t k = 0; k < 3; ++k)
    nearest = std::min(nearest, squared_distance_to_segment(minus(p, corner[k]),
                                                            minus(corner[(k + 1) % 3], corner[k])));
  return nearest;
}

struct deviation {
  double mean = 0, greatest = 0;  // thousandths of the diagonal
};

using triangle = std::array<vector3d, 3>;

template <class Point>
vector3d wide(const Point& p) {
  return {p[0], p[1], p[2]};
}

deviation deviation_of(const mesh& from, const std::vector<triangle>& triangles) {
  const std::size_t stride = 1 + (from.points.size() - 1) / 2000;
  deviation found;
  std::size_t count = 0;
  for (std::size_t at = 0; at < from.points.size(); at += stride, ++count) {
    double nearest = std::numeric_limits<double>::infinity();
    for (const triangle& each : triangles)
      nearest = std::min(nearest, squared_distance(wide(from.points[at]), each));
    const double share = 1000 * std::sqrt(nearest) / double{from.diagonal()};
    found.mean += share;
    found.greatest = std::max(found.greatest, share);
  }
  found.mean /= static_cast<double>(count);
  return found;
}

contest open_deviation(const std::string& scene, double deviation::*which) {
  const mesh_ptr from = morlu::bench::find_mesh(scene);
  std::vector<triangle> ours;
  const osg::GeometryPtr result = tenth_in_passes(*from);
  for (auto it = result->beginTriangles(); !it.isAtEnd(); ++it)
    ours.push_back({wide(it.getPosition(0)), wide(it.getPosition(1)), wide(it.getPosition(2))});
  const auto side = [which](const deviation& of) {
    const double value = of.*which;
    return contender{.fault = [=] { return std::isfinite(value) ? "" : "nothing is left"; },
                     .value = [=] { return value; }};
  };
  contest opened{.ours = side(deviation_of(*from, ours))};
#ifdef MORLU_BENCH_MESHOPTIMIZER
  std::vector<triangle> theirs;
  const std::vector<uint32_t> corners = peer_corners(*from, ours.size());
  const auto at = [&](std::size_t corner) { return wide(from->points[corners[corner]]); };
  for (std::size_t i = 0; i < corners.size(); i += 3)
    theirs.push_back({at(i), at(i + 1), at(i + 2)});
  opened.peer = side(deviation_of(*from, theirs));
  opened.peer->name = "meshoptimizer";
#endif
  return opened;
}

std::vector<morlu::bench::figure> all_figures() {
  std::vector<morlu::bench::figure> figures;
  for (const std::string scene : {"koala 100k", "terrain 500k"}) {
    const auto& known = morlu::bench::ray_meshes();
    if (std::none_of(known.begin(), known.end(), [&](const auto& m) { return m.name == scene; }))
      continue;
    const auto add = [&](const char* metric, const char* unit, auto open) {
      figures.push_back({"simplification", scene, metric, unit, open});
    };
    add("to a tenth of the triangles", "ms", [=] { return open_passes(scene); });
    add("to a tenth of the edges", "ms", [=] { return open_collapses(scene); });
    add("mean deviation", "diag/1000", [=] { return open_deviation(scene, &deviation::mean); });
    add("greatest deviation", "diag/1000",
        [=] { return open_deviation(scene, &deviation::greatest); });
  }
  return figures;
}

const morlu::bench::registration figures(all_figures());

}  // namespace
