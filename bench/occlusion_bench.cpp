// The values that a bake of occlusion stores, beside Embree with the same rays on one thread: for
// each vertex 64 closest hits, front faces only, judged by their distance.
//
// Every run's values are held against those that follow from the peer's distances. Rays that run
// along surfaces may go either way: values may differ by a tenth of a ray on the mean, and one in
// 100 by more than three rays.

#include <malloc.h>

#include <osg/geometry.h>
#include <osg/geometry_tools.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <sstream>

#include "bench/figure.h"
#include "bench/ray_peer.h"
#include "bench/ray_scenes.h"
#include "occlusion/occlusion.h"
#include "occlusion/scene_trace.h"
#include "sample/sample_assembly.h"

namespace {

using namespace morlu::bench;
using morlu::math::vector3;
using morlu::osg::sample_point;

constexpr int samples = 3;
constexpr std::size_t rays_a_point = 64;

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

struct baked_scene {
  osg::NodePtr root;
  std::unique_ptr<morlu::ray_scene> objects;
  morlu::bih_tree<float> top_tree;
  std::vector<sample_point> points;
  float diagonal = 0;

  explicit baked_scene(std::uint32_t parts)
      : root(morlu::sample::make_sample_assembly({.parts = parts})) {
    build();
    for (std::size_t i = 0; i < objects->geosets.size(); ++i) collect_points(i);
    const auto& size = objects->box.size;
    diagonal = std::sqrt(size[0] * size[0] + size[1] * size[1] + size[2] * size[2]);
  }

  void build() {
    const quiet silence;
    top_tree.release();
    objects = std::make_unique<morlu::ray_scene>(root, morlu::build_setup{5, 100}, true);
    morlu::osg::build_top_tree(*objects, top_tree);
  }

  /// Each position of the object once, with its first normal.
  void collect_points(std::size_t i) {
    const osg::Geometry& geometry = *objects->geosets[i].geometry;
    const std::size_t corners = 3 * objects->geosets[i].num_objects;
    std::vector<vector3> known;
    const auto less = [](const vector3& a, const vector3& b) {
      return std::lexicographical_compare(a.values, a.values + 3, b.values, b.values + 3);
    };
    std::vector<std::uint32_t> order;
    std::vector<sample_point> all;
    for (unsigned k = 0; k < corners; ++k) {
      const osg::Pnt3f p = geometry.getPositions()->getValue(k);
      const osg::Vec3f n = geometry.getNormals()->getValue(k);
      all.push_back({{p[0], p[1], p[2]}, {n[0], n[1], n[2]}});
      order.push_back(k);
    }
    std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
      return less(all[a].position, all[b].position);
    });
    std::vector<std::uint32_t> first;
    for (std::size_t k = 0; k < order.size(); ++k)
      if (k == 0 || less(all[order[k - 1]].position, all[order[k]].position))
        first.push_back(order[k]);
    std::sort(first.begin(), first.end());
    for (const std::uint32_t k : first) points.push_back(all[k]);
  }
};

std::shared_ptr<const mesh> triangles_of(const baked_scene& in) {
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

/// Unit directions, for a peer that measures along the ray.
std::shared_ptr<const std::vector<morlu::ray_query>> rays_of(const baked_scene& in) {
  const auto rays = std::make_shared<std::vector<morlu::ray_query>>();
  const auto directions = morlu::osg::sample_directions(samples);
  for (const sample_point& point : in.points)
    for (const vector3& d : directions)
      rays->push_back({point.position + d * 1e-4f, morlu::math::unit(point.normal + d)});
  return rays;
}

/// The values that follow from the peer's distances.
std::vector<float> values_of(const std::vector<float>& distances, float distance) {
  std::vector<float> values;
  for (std::size_t first = 0; first < distances.size(); first += rays_a_point) {
    double blocked = 0;
    for (std::size_t k = first; k < first + rays_a_point; ++k) {
      const double beyond = distances[k] / distance - 1;
      blocked += beyond < 0 ? 1 : beyond < 1 ? beyond : 0;
    }
    values.push_back(static_cast<float>(1 - blocked / rays_a_point));
  }
  return values;
}

std::string value_fault(const std::vector<float>& got, const std::vector<float>& expected) {
  double difference = 0;
  std::size_t disputed = 0;
  for (std::size_t i = 0; i < got.size(); ++i) {
    difference += std::fabs(got[i] - expected[i]) / static_cast<double>(got.size());
    disputed += !(std::fabs(got[i] - expected[i]) < 3.5f / rays_a_point);
  }
  if (difference < 0.1 / rays_a_point && disputed <= got.size() / 100) return {};
  return std::to_string(disputed) + " values differ, on the mean by " + std::to_string(difference);
}

/// `share`: the distance in diagonals.
contest open_bake(std::uint32_t parts, float share, bool one_by_one) {
  const auto in = std::make_shared<baked_scene>(parts);
  const auto values = std::make_shared<std::vector<float>>(in->points.size());
  const auto sampler = std::make_shared<morlu::osg::occlusion_sampler>(in->top_tree, *in->objects);
  const float distance = share * in->diagonal;
  const auto bake = [=] {
    if (!one_by_one)
      return sampler->occlusion_at_many(in->points, samples, distance, false, *values);
    for (std::size_t i = 0; i < values->size(); ++i)
      (*values)[i] = morlu::osg::occlusion_at(in->top_tree, *in->objects, in->points[i].position,
                                              in->points[i].normal, samples, distance, false);
  };
  const auto rays = rays_of(*in);
  const auto distances = std::make_shared<std::vector<float>>(rays->size());
  auto peer = peer_rays(triangles_of(*in), peer_quality::medium, rays, distances);
  if (peer) peer->run();
  return {{.run = bake,
           .fault =
               [=, beside_peer = peer.has_value()] {
                 return beside_peer ? value_fault(*values, values_of(*distances, distance)) : "";
               }},
          std::move(peer),
          static_cast<double>(rays->size()) * 1e-6};
}

double held_bytes() {
  const auto info = mallinfo2();
  return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

/// From a scene graph to objects with trees, the tree over them and what the sampler packs.
contest open_setup(std::uint32_t parts) {
  const auto in = std::make_shared<baked_scene>(parts);
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
  const auto in = std::make_shared<baked_scene>(parts);
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
    {"occlusion", "assembly 1k parts", "bake", "Mray/s", [] { return open_bake(1000, 1, false); }},
    {"occlusion", "assembly 1k parts", "bake, near", "Mray/s",
     [] { return open_bake(1000, 0.05f, false); }},
    {"occlusion", "assembly 1k parts", "bake, one by one", "Mray/s",
     [] { return open_bake(1000, 1, true); }},
    {"occlusion", "assembly 1k parts", "setup", "ms", [] { return open_setup(1000); }},
    {"occlusion", "assembly 1k parts", "memory", "B/triangle", [] { return open_bytes(1000); }},
});

}  // namespace
