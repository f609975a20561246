// Bakes and gut-outs beside Embree, with the same rays on one thread: closest hits, front faces
// only, judged by their distance. Where a whole operation is measured, the peer builds its scene of
// the same triangles as well.
//
// Every run's values are held against those that follow from the peer's distances. Rays that run
// along surfaces may go either way: values may differ by a tenth of a ray in 64 on the mean, and
// one in 100 by more than three.

#include <malloc.h>

#include <osg/cores.h>
#include <osg/geometry.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <map>
#include <sstream>

#include "bench/figure.h"
#include "bench/ray_peer.h"
#include "bench/ray_scenes.h"
#include "morlu/occlusion.h"
#include "occlusion/occlusion_scene.h"
#include "sample/sample_assembly.h"

namespace {

using namespace morlu::bench;
using morlu::math::vector3;
using morlu::osg::placed_vertices;
using morlu::osg::sample_point;

/// The library tells its progress on standard output.
class quiet {
 public:
  quiet() : former_(std::cout.rdbuf(dropped_.rdbuf())) {}
  quiet(const quiet&) = delete;
  quiet& operator=(const quiet&) = delete;
  ~quiet() { std::cout.rdbuf(former_); }

 private:
  std::ostringstream dropped_;
  std::streambuf* former_;
};

// --- Scenes --------------------------------------------------------------------------------------

std::vector<osg::NodePtr> geometry_nodes(const osg::NodePtr& root) {
  std::vector<osg::NodePtr> nodes;
  morlu::osg::getGeometryNodes(root, nodes, false);
  return nodes;
}

struct sampled_vertex {
  std::size_t node;
  std::uint32_t vertex;
  sample_point point;
};

/// A scene with single indices, and the vertices that are sampled in it.
struct sampled_scene {
  osg::NodePtr root;
  std::vector<osg::NodePtr> nodes;
  std::unique_ptr<morlu::ray_scene> objects;
  morlu::bih_tree<float> top_tree;
  std::vector<sampled_vertex> vertices;
  float diagonal = 0;

  explicit sampled_scene(const osg::NodePtr& of) : root(of), nodes(geometry_nodes(of)) {
    morlu::osg::part_shared_cores(nodes);
    for (const auto& node : nodes) morlu::osg::make_single_vertices(morlu::osg::geometry_at(node));
    build();
    osg::Pnt3f low, high;
    root->getVolume(true).getBounds(low, high);
    diagonal = (high - low).length();
  }

  void build() {
    const quiet silence;
    top_tree.release();
    objects = std::make_unique<morlu::ray_scene>(root, morlu::build_setup{5, 100}, true);
    morlu::osg::build_top_tree(*objects, top_tree);
  }

  /// Each position of each geometry once, with its first normal; of all these every `step`th.
  void take_positions(std::size_t step) {
    std::vector<sampled_vertex> all;
    for (std::size_t n = 0; n < nodes.size(); ++n) {
      const placed_vertices placed(nodes[n]);
      std::map<std::array<float, 3>, std::uint32_t> known;
      for (std::uint32_t i = 0; i < placed.size(); ++i) {
        const osg::Pnt3f p = placed.own_positions().getValue(i);
        if (known.try_emplace({p[0], p[1], p[2]}, i).second)
          all.push_back({n, i, {placed.position(i), placed.normal(i)}});
      }
    }
    for (std::size_t i = 0; i < all.size(); i += step) vertices.push_back(all[i]);
  }

  /// What a walk looks at that ends with a geometry's first vertex of a value above 0.
  /// Returns the number of geometries without one.
  std::size_t take_until_seen(int samples, float distance, float offset) {
    morlu::osg::forget_directions();
    morlu::osg::occlusion_sampler sampler(top_tree, *objects);
    std::size_t unseen = 0;
    for (std::size_t n = 0; n < nodes.size(); ++n) {
      const placed_vertices placed(nodes[n]);
      float value = 0;
      for (std::uint32_t i = 0; i < placed.size() && !(value > 0); ++i) {
        const vector3 normal = placed.normal(i);
        vertices.push_back({n, i, {placed.position(i) + normal * offset, normal}});
        sampler.occlusion_at_many({&vertices.back().point, 1}, samples, distance, false,
                                  {&value, 1});
      }
      unseen += !(value > 0);
    }
    return unseen;
  }

  std::vector<sample_point> points() const {
    std::vector<sample_point> all;
    for (const sampled_vertex& each : vertices) all.push_back(each.point);
    return all;
  }
};

osg::NodePtr assembly(std::uint32_t parts) {
  return morlu::sample::make_sample_assembly({.parts = parts});
}

/// The assembly with balls in shells that face inward: a gut-out removes both, for a shell has
/// itself in sight.
osg::NodePtr assembly_with_hidden_balls(std::uint32_t parts, int balls) {
  const osg::NodePtr root = assembly(parts);
  osg::Pnt3f low, high;
  root->getVolume(true).getBounds(low, high);
  const float radius = (high - low).length() * 0.004f;
  const auto shaped = [&](int level, float size, bool inward, const osg::Pnt3f& at) {
    mesh ball = make_icosphere(level);
    for (vector3& p : ball.points) p = vector3{at[0], at[1], at[2]} + p * size;
    if (inward)
      for (auto& face : ball.faces) std::swap(face[1], face[2]);
    return make_node(ball);
  };
  for (int i = 0; i < balls; ++i) {
    const osg::Pnt3f at = high + osg::Vec3f(4.0f * radius * static_cast<float>(i), 0, 0);
    root->addChild(shaped(2, radius, true, at));
    root->addChild(shaped(1, radius * 0.8f, false, at));
  }
  return root;
}

// --- The peer ------------------------------------------------------------------------------------

std::shared_ptr<const mesh> triangles_of(const sampled_scene& in) {
  const auto all = std::make_shared<mesh>();
  for (const auto& set : in.objects->geosets)
    for (std::size_t i = 0; i < set.num_objects; ++i) {
      const auto first = static_cast<std::uint32_t>(all->points.size());
      all->points.insert(all->points.end(), set.triangles[i].corners, set.triangles[i].corners + 3);
      all->faces.push_back({first, first + 1, first + 2});
    }
  all->points.reserve(all->points.size() + 1);  // peers read 16 bytes of the last point too
  return all;
}

/// What the peer says of the vertices' rays.
struct peer_values {
  int samples;
  float distance;
  std::vector<float> distances = {};  // of the hits, ray by ray

  /// How open the vertices are.
  std::vector<float> values() const {
    const auto n = static_cast<std::size_t>(samples) + 1;
    const std::size_t each = n * n * n;
    std::vector<float> all;
    for (std::size_t first = 0; first < distances.size(); first += each) {
      double blocked = 0;
      for (std::size_t k = first; k < first + each; ++k) {
        const double beyond = distances[k] / distance - 1;
        blocked += beyond < 0 ? 1 : beyond < 1 ? beyond : 0;
      }
      all.push_back(static_cast<float>(1 - blocked / static_cast<double>(each)));
    }
    return all;
  }
  std::string fault(const std::vector<float>& got) const {
    const std::vector<float> expected = values();
    if (expected.empty()) return {};  // no peer
    constexpr float ray = 1.0f / 64;
    double difference = 0;
    std::size_t disputed = 0;
    for (std::size_t i = 0; i < got.size(); ++i) {
      difference += std::fabs(got[i] - expected[i]) / static_cast<double>(got.size());
      disputed += !(std::fabs(got[i] - expected[i]) < 3.5f * ray);
    }
    if (difference < 0.1 * ray && disputed <= got.size() / 100) return {};
    return std::to_string(disputed) + " values differ, on the mean by " +
           std::to_string(difference);
  }
};

/// Unit directions, for a peer that measures along the ray.
std::shared_ptr<const std::vector<morlu::ray_query>> rays_of(const sampled_scene& in, int samples) {
  const auto rays = std::make_shared<std::vector<morlu::ray_query>>();
  const auto directions = morlu::osg::direction_grid(static_cast<unsigned>(samples));
  rays->reserve(in.vertices.size() * directions.size());
  for (const sampled_vertex& each : in.vertices)
    for (const vector3& d : directions)
      rays->push_back({each.point.position + d * 1e-4f, morlu::math::unit(each.point.normal + d)});
  return rays;
}

struct peer_side {
  std::optional<contender> contest;
  std::shared_ptr<peer_values> says;
  double million_rays;
};

/// With `builds` the time of building its scene counts.
peer_side open_peer(const sampled_scene& in, int samples, float distance, bool builds) {
  const auto triangles = triangles_of(in);
  const auto rays = rays_of(in, samples);
  peer_side side{{},
                 std::make_shared<peer_values>(peer_values{samples, distance}),
                 static_cast<double>(rays->size()) * 1e-6};
  const auto distances = std::shared_ptr<std::vector<float>>(side.says, &side.says->distances);
  distances->resize(rays->size());
  side.contest = peer_rays(triangles, peer_quality::medium, rays, distances);
  if (!side.contest) {
    distances->clear();
    return side;
  }
  side.contest->run();
  if (const auto building = peer_build(triangles, peer_quality::medium); builds && building)
    side.contest->run = [build = building->side, trace = side.contest->run] {
      if (build.prepare) build.prepare();
      build.run();
      trace();
    };
  return side;
}

// --- Figures -------------------------------------------------------------------------------------

enum class by { lanes, one_by_one };

/// The sampler alone, on every `step`th position; `share`: the distance in diagonals.
contest open_sampler(int samples, std::size_t step, float share, by way) {
  const auto in = std::make_shared<sampled_scene>(assembly(1000));
  in->take_positions(step);
  const auto points = std::make_shared<std::vector<sample_point>>(in->points());
  const auto values = std::make_shared<std::vector<float>>(points->size());
  const auto sampler = std::make_shared<morlu::osg::occlusion_sampler>(in->top_tree, *in->objects);
  const float distance = share * in->diagonal;
  const auto sample = [=] {
    if (way == by::lanes)
      return sampler->occlusion_at_many(*points, samples, distance, false, *values);
    for (std::size_t i = 0; i < values->size(); ++i)
      (*values)[i] = morlu::osg::occlusion_at(in->top_tree, *in->objects, (*points)[i].position,
                                              (*points)[i].normal, samples, distance, false);
  };
  peer_side peer = open_peer(*in, samples, distance, false);
  return {{.prepare = morlu::osg::forget_directions,
           .run = sample,
           .fault = [=, says = peer.says] { return says->fault(*values); }},
          std::move(peer.contest),
          peer.million_rays};
}

/// The whole operation, from a scene graph to one with colours.
contest open_bake(std::uint32_t parts, int samples) {
  const auto in = std::make_shared<sampled_scene>(assembly(parts));
  in->take_positions(1);
  const auto scene = std::make_shared<osg::NodePtr>();
  const auto nodes =
      std::make_shared<std::vector<osg::NodePtr>>();  // in the order before materials go
  const auto baked_values = [=] {
    std::vector<float> values;
    for (const sampled_vertex& each : in->vertices)
      values.push_back(
          morlu::osg::geometry_at((*nodes)[each.node])->getColors()->getValue(each.vertex)[0]);
    return values;
  };
  peer_side peer = open_peer(*in, samples, in->diagonal, true);
  return {{.prepare =
               [=] {
                 morlu::osg::forget_directions();
                 *scene = assembly(parts);
                 *nodes = geometry_nodes(*scene);
               },
           .run =
               [=] {
                 const quiet silence;
                 morlu::osg::AddAmbientOcclusion(*scene, true, samples, 1);
               },
           .fault = [=, says = peer.says] { return says->fault(baked_values()); }},
          std::move(peer.contest),
          peer.million_rays};
}

/// The peer traces the rays of the vertices up to each geometry's first visible one.
contest open_gut_out(std::uint32_t parts, int balls, int samples) {
  const auto make = [=] { return assembly_with_hidden_balls(parts, balls); };
  const auto in = std::make_shared<sampled_scene>(make());
  for (const auto& node : in->nodes) morlu::osg::make_vertex_normals(morlu::osg::geometry_at(node));
  const float distance = in->diagonal * 0.05f;
  const std::size_t hidden = in->take_until_seen(samples, distance, in->diagonal * 1e-5f);
  const auto scene = std::make_shared<osg::NodePtr>();
  const std::size_t before = in->nodes.size();
  peer_side peer = open_peer(*in, samples, distance, true);
  const auto fault = [=]() -> std::string {
    const std::size_t removed = before - geometry_nodes(*scene).size();
    if (removed != hidden || removed < static_cast<std::size_t>(balls))
      return "removed " + std::to_string(removed) + " geometries";
    return {};
  };
  return {{.prepare =
               [=] {
                 morlu::osg::forget_directions();
                 *scene = make();
               },
           .run =
               [=] {
                 const quiet silence;
                 morlu::osg::gutOutModelPerAmbientOcclusion(*scene, samples, 0, 1);
               },
           .fault = fault},
          std::move(peer.contest),
          peer.million_rays};
}

double held_bytes() {
  const auto info = mallinfo2();
  return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

/// From a scene graph to objects with trees, the tree over them and what the sampler packs.
contest open_setup(std::uint32_t parts) {
  const auto in = std::make_shared<sampled_scene>(assembly(parts));
  return {{.run =
               [=] {
                 in->build();
                 morlu::osg::occlusion_sampler sampler(in->top_tree, *in->objects);
               },
           .fault =
               [=] {
                 return std::string(in->objects->object_count == in->objects->node_count
                                        ? ""
                                        : "nodes without triangles");
               }}};
}

contest open_bytes(std::uint32_t parts) {
  const auto in = std::make_shared<sampled_scene>(assembly(parts));
  double triangles = 0;
  for (const auto& set : in->objects->geosets) triangles += static_cast<double>(set.num_objects);
  in->objects.reset();
  in->top_tree.release();
  const double before = held_bytes();
  in->build();
  const morlu::osg::occlusion_sampler sampler(in->top_tree, *in->objects);
  const double bytes = (held_bytes() - before) / triangles;
  return {{.fault = [=] { return bytes >= sizeof(morlu::triangle) ? "" : "it holds too little"; },
           .value = [=] { return bytes; }}};
}

const registration figures({
    {"occlusion", "assembly 1k parts", "sample, 64 rays", "Mray/s",
     [] { return open_sampler(3, 1, 1, by::lanes); }},
    {"occlusion", "assembly 1k parts", "sample, 64 rays, near", "Mray/s",
     [] { return open_sampler(3, 1, 0.05f, by::lanes); }},
    {"occlusion", "assembly 1k parts", "sample, 64 rays, one by one", "Mray/s",
     [] { return open_sampler(3, 1, 1, by::one_by_one); }},
    {"occlusion", "assembly 1k parts", "sample, 4096 rays", "Mray/s",
     [] { return open_sampler(15, 97, 1, by::lanes); }},
    {"occlusion", "assembly 1k parts", "sample, 4096 rays, near", "Mray/s",
     [] { return open_sampler(15, 97, 0.05f, by::lanes); }},
    {"occlusion", "assembly 1k parts", "bake, 64 rays", "Mray/s",
     [] { return open_bake(1000, 3); }},
    {"occlusion", "assembly 30 parts", "bake, 4096 rays", "Mray/s",
     [] { return open_bake(30, 15); }},
    {"occlusion", "assembly 1k parts", "gut-out, 64 rays", "Mray/s",
     [] { return open_gut_out(1000, 200, 3); }},
    {"occlusion", "assembly 1k parts", "gut-out, 4096 rays", "Mray/s",
     [] { return open_gut_out(1000, 10, 15); }},
    {"occlusion", "assembly 1k parts", "setup", "ms", [] { return open_setup(1000); }},
    {"occlusion", "assembly 1k parts", "memory", "B/triangle", [] { return open_bytes(1000); }},
});

}  // namespace
