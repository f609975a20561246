// Closest hits, builds and memory of the trees on geometry, beside Embree on one thread. Both sides
// see front faces only.
//
// Every run's distances are held against the peer's: a ray agrees if both miss, or both hit at
// distances that differ by at most 1e-4 of the mesh's diagonal. Rays along edges and silhouettes
// may go either way, so one in 500 may disagree. Some rays are held against brute force too.

#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "bench/ray_peer.h"
#include "bench/ray_scenes.h"
#include "ray/attachment.h"
#include "ray/stream_trace.h"
#include "ray/trace.h"

namespace {

using namespace morlu::bench;
using morlu::osg::BIHAttachPayload;

using distances = std::vector<float>;
using morlu::ray_query;
using ray_list = std::vector<ray_query>;

float distance_of(const morlu::ray_hit& hit) {
  return hit.hit ? hit.t : std::numeric_limits<float>::infinity();
}

/// How our side traces its rays.
using tracer = void (*)(const osg::NodePtr& node, const ray_list& rays, distances& out);

/// As occlusion and pictures do: as many rays at a time as fit the cache.
void trace_in_batches(const osg::NodePtr& node, const ray_list& rays, distances& out) {
  const BIHAttachPayload& on = *morlu::osg::usable_payload(node);
  constexpr std::size_t size = 4096;
  static morlu::ray_hit hits[size];
  for (std::size_t start = 0; start < rays.size(); start += size) {
    const std::size_t count = std::min(size, rays.size() - start);
    morlu::trace_many(*on.tree, *on.geo_set, {rays.data() + start, count}, {hits, count});
    for (std::size_t i = 0; i < count; ++i) out[start + i] = distance_of(hits[i]);
  }
}

/// As a pick does.
void trace_one_by_one(const osg::NodePtr& node, const ray_list& rays, distances& out) {
  const BIHAttachPayload& on = *morlu::osg::usable_payload(node);
  morlu::empty_trace_statistics nothing;
  for (std::size_t i = 0; i < rays.size(); ++i) {
    morlu::ray_hit hit;
    morlu::trace(*on.tree, *on.geo_set, rays[i].origin, rays[i].direction, hit, nothing);
    out[i] = distance_of(hit);
  }
}

// --- Right results -------------------------------------------------------------------------------

bool agree(float a, float b, float tolerance) {
  return a == b || std::fabs(a - b) <= tolerance;  // inf - inf is no number
}

/// What is wrong with `got` if `expected` is right, for rays that agree up to `allowed` of them.
std::string distance_fault(const distances& got, const distances& expected, float tolerance,
                           std::size_t allowed) {
  std::size_t disputed = 0;
  for (std::size_t i = 0; i < got.size(); ++i) disputed += !agree(got[i], expected[i], tolerance);
  if (disputed <= allowed) return {};
  return std::to_string(disputed) + " of " + std::to_string(got.size()) + " distances differ";
}

/// Every so many of the rays, with their true distances.
struct probe {
  ray_list rays;
  distances expected;
  float tolerance;

  probe(const mesh& in, const ray_list& from) : tolerance(1e-4f * in.diagonal()) {
    constexpr std::size_t count = 24;
    for (std::size_t i = 0; i < count; ++i) {
      rays.push_back(from[(2 * i + 1) * from.size() / (2 * count)]);
      expected.push_back(static_cast<float>(nearest_front(in, rays.back())));
    }
  }
  /// One may run along an edge.
  std::string fault(const distances& got) const {
    const auto is_hit = [](float distance) { return std::isfinite(distance); };
    if (std::none_of(expected.begin(), expected.end(), is_hit)) return "no ray hits anything";
    const std::string found = distance_fault(got, expected, tolerance, 1);
    return found.empty() ? found : "beside brute force, " + found;
  }
};

// --- Contests ------------------------------------------------------------------------------------

contest open_rays(const std::string& scene, ray_list (*make_rays)(const mesh&), tracer trace_all,
                  peer_quality quality) {
  const auto in = find_mesh(scene);
  const auto rays = std::make_shared<const ray_list>(make_rays(*in));
  const auto node = make_node(*in);
  const auto ours = std::make_shared<distances>(rays->size());
  const auto theirs = std::make_shared<distances>(rays->size());
  const float tolerance = 1e-4f * in->diagonal();

  const auto check = [=, known = probe(*in, camera_rays(*in))](bool beside_peer) {
    distances probed(known.rays.size());
    trace_all(node, known.rays, probed);
    std::string fault = known.fault(probed);
    if (!fault.empty() || !beside_peer) return fault;
    return distance_fault(*ours, *theirs, tolerance, rays->size() / 500);
  };
  auto peer = peer_rays(in, quality, rays, theirs);
  if (peer) peer->run();
  return {{.run = [=] { trace_all(node, *rays, *ours); },
           .fault = [=, beside_peer = peer.has_value()] { return check(beside_peer); }},
          std::move(peer),
          static_cast<double>(rays->size()) * 1e-6};
}

/// From a geometry to its set and tree.
contest open_build(const std::string& scene, peer_quality quality) {
  const auto in = find_mesh(scene);
  const auto node = make_node(*in);
  const auto known = std::make_shared<const probe>(*in, camera_rays(*in));
  contender ours{
      .prepare = [=] { node->getCore()->subAttachment(osg::MorluBIHAttachment::getClassType()); },
      .run = [=] { morlu::osg::attach_bih(node); },
      .fault =
          [=] {
            distances probed(known->rays.size());
            trace_one_by_one(node, known->rays, probed);
            return known->fault(probed);
          }};
  auto peer = peer_build(in, quality);
  if (!peer) return {.ours = std::move(ours)};
  peer->side.fault = [=, shoot = peer->probe] { return known->fault(shoot(known->rays)); };
  return {.ours = std::move(ours), .peer = std::move(peer->side)};
}

double held_bytes() {
  const auto info = mallinfo2();
  return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

/// All that an attached tree holds of the heap, the set of triangles included.
contest open_bytes(const std::string& scene) {
  const auto in = find_mesh(scene);
  const auto node = make_node(*in);
  const double before = held_bytes();
  morlu::osg::attach_bih(node);
  const double bytes = (held_bytes() - before) / static_cast<double>(in->faces.size());
  return {{.fault = [=] { return bytes >= sizeof(morlu::triangle) ? "" : "it holds too little"; },
           .value = [=] { return bytes; }},
          peer_bytes(in, peer_quality::medium)};
}

std::vector<figure> ray_figures() {
  std::vector<figure> figures;
  for (const named_mesh& each : ray_meshes()) {
    const std::string scene = each.name;
    const auto add = [&](const std::string& metric, const std::string& unit,
                         std::function<contest()> open) {
      figures.push_back({"rays", scene, metric, unit, std::move(open)});
    };
    using enum peer_quality;
    const auto add_rays = [&](const std::string& metric, ray_list (*rays)(const mesh&)) {
      add(metric, "Mray/s", [=] { return open_rays(scene, rays, trace_in_batches, medium); });
      add(metric + ", high", "Mray/s",
          [=] { return open_rays(scene, rays, trace_in_batches, high); });
      add(metric + ", one by one", "Mray/s",
          [=] { return open_rays(scene, rays, trace_one_by_one, medium); });
    };
    add_rays("camera", camera_rays);
    add_rays("occlusion", occlusion_rays);
    add("build", "ms", [=] { return open_build(scene, medium); });
    add("build, low", "ms", [=] { return open_build(scene, low); });
    add("memory", "B/triangle", [=] { return open_bytes(scene); });
  }
  return figures;
}

const registration figures(ray_figures());

}  // namespace
