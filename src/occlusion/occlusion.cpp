// How open points are: closest hits on a fixed grid of directions, judged by their distance.

#include "occlusion/occlusion.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "occlusion/direction_order.h"
#include "occlusion/scene_packets.h"
#include "occlusion/scene_trace.h"

namespace morlu::osg {

using math::vector3;

namespace {

constexpr float no_hit = std::numeric_limits<float>::infinity();

/// The rays of a point so far.
class tally {
 public:
  explicit tally(float distance) : distance_(distance) {}

  /// `r`: from the point to the hit, infinite without one.
  void add(float r) {
    ++shot_;
    if (r < distance_)
      ++blocked_;
    else if (distance_ <= r && r < 2 * distance_)
      partial_ += (r - distance_) / distance_;
  }
  void add_blocked() {
    ++shot_;
    ++blocked_;
  }
  float value() const {
    return 1 -
           static_cast<float>(static_cast<double>(blocked_) + partial_) / static_cast<float>(shot_);
  }

 private:
  float distance_;
  std::uint64_t blocked_ = 0;
  std::uint64_t shot_ = 0;
  double partial_ = 0;
};

/// A little way off the point, so that a ray doesn't meet the surface that the point lies on.
vector3 start_of(const vector3& position, const vector3& direction) {
  vector3 origin;
  for (int axis = 0; axis < 3; ++axis)
    origin[axis] = static_cast<float>(static_cast<double>(direction[axis]) * 0.0001 +
                                      static_cast<double>(position[axis]));
  return origin;
}

/// A ray whose hit is nearer to its origin than this blocks, whatever else it meets.
///
/// Only a hit that is nearer yet can take the place of one that is found. In an object it has a
/// smaller parameter on the same segment, among objects a smaller distance; so its distance from
/// the origin exceeds that of the first by rounding at most, and that from the point by the way
/// from there to the origin, which is at most 0.0001 times the root of 3. Rounding is relative to
/// coordinates of the point and the hit, with a dozen operations of 2^-24 each; the margin takes
/// more than ten times that. If anything here isn't finite, no hit is near enough.
float decided_below(const vector3& position, float distance) {
  const float reach = std::fabs(position[0]) + std::fabs(position[1]) + std::fabs(position[2]) +
                      std::fabs(distance);
  const float margin = 2e-4f + 1e-5f * reach;
  return distance - margin;
}

}  // namespace

// --- Directions ----------------------------------------------------------------------------------

std::vector<vector3> direction_grid(unsigned samples) {
  constexpr unsigned most = 1u << 20;  // the number of points then fits 64 bits
  const unsigned n = static_cast<int>(samples) < 1 ? 1 : samples;
  if (n > most) throw std::length_error("too many samples for a grid of directions");
  const auto on_grid = [n](unsigned i) { return static_cast<float>(2.0 * i / n - 1); };
  std::vector<vector3> grid;
  grid.reserve((std::size_t{n} + 1) * (n + 1) * (n + 1));
  for (unsigned i = 0; i <= n; ++i)
    for (unsigned j = 0; j <= n; ++j)
      for (unsigned k = 0; k <= n; ++k) grid.push_back({on_grid(i), on_grid(j), on_grid(k)});
  return grid;
}

namespace {

std::vector<vector3>& process_directions() {
  static std::vector<vector3> directions;
  return directions;
}

const std::vector<vector3>& shared_directions(unsigned samples) {
  std::vector<vector3>& directions = process_directions();
  if (directions.empty()) directions = direction_grid(samples);
  return directions;
}

}  // namespace

void forget_directions() {
  process_directions().clear();
}

std::vector<vector3> sample_directions(unsigned samples) {
  return shared_directions(samples);
}

// --- One point -----------------------------------------------------------------------------------

float occlusion_at(const bih_tree<float>& top_tree, const ray_scene& scene, const vector3& position,
                   const vector3& normal, int samples, float distance, bool two_sided) {
  empty_trace_statistics nothing;
  tally rays(distance);
  for (const vector3& d : shared_directions(static_cast<unsigned>(samples))) {
    ray_hit hit;
    trace(top_tree, scene, start_of(position, d), normal + d, two_sided, hit, nothing);
    rays.add(hit.hit ? math::distance(position, hit.point) : no_hit);
  }
  return rays.value();
}

// --- Many points ---------------------------------------------------------------------------------

/// What lies in the memory that packets of rays walk through, and room for the rays under way.
struct occlusion_sampler::packed {
  packed_scene scene;
  scene_packets packets;
  std::array<std::vector<scene_ray>, octants> rays;  // those of a packet have the same signs
  std::vector<scene_outcome> outcomes;               // point after point, in the list's order

  packed(const bih_tree<float>& top_tree, const ray_scene& from)
      : scene(pack(top_tree, from)), packets(scene) {}

  void list_rays(std::span<const sample_point> points, direction_order& order, float distance) {
    for (auto& each : rays) each.clear();
    std::uint32_t first = 0;
    for (const sample_point& point : points) {
      const float decided = decided_below(point.position, distance);
      for (const std::uint32_t k : order.of(point.normal)) {
        const vector3& d = order.directions()[k];
        const vector3 way = point.normal + d;
        rays[octant_of(way)].push_back({start_of(point.position, d), way, decided, first + k});
      }
      first += static_cast<std::uint32_t>(order.directions().size());
    }
    outcomes.resize(first);
  }
  void shoot(bool two_sided, vector_unit unit) {
    for (const auto& each : rays) trace_packets(packets, each, two_sided, outcomes, unit);
  }
  void judge(std::span<const sample_point> points, std::size_t rays_each, float distance,
             std::span<float> values) const {
    const scene_outcome* outcome = outcomes.data();
    for (std::size_t i = 0; i < points.size(); ++i) {
      tally count(distance);
      for (std::size_t k = 0; k < rays_each; ++k, ++outcome) {
        if (outcome->kind == scene_outcome::decided)
          count.add_blocked();
        else
          count.add(outcome->kind == scene_outcome::hit
                        ? math::distance(points[i].position, outcome->point)
                        : no_hit);
      }
      values[i] = count.value();
    }
  }
};

occlusion_sampler::occlusion_sampler(const bih_tree<float>& top_tree, const ray_scene& scene,
                                     vector_unit unit)
    : top_tree_(top_tree), scene_(scene), unit_(unit) {
  if (unit != vector_unit::none && top_tree.is_usable() && can_be_packed(top_tree, scene))
    packed_ = std::make_unique<packed>(top_tree, scene);
}

occlusion_sampler::~occlusion_sampler() = default;

void occlusion_sampler::occlusion_at_many(std::span<const sample_point> points, int samples,
                                          float distance, bool two_sided, std::span<float> values) {
  const std::vector<vector3>& directions = shared_directions(static_cast<unsigned>(samples));
  constexpr std::size_t most_directions = std::size_t{1} << 31;  // rays are numbered in 32 bits
  if (!packed_ || directions.size() > most_directions) {
    for (std::size_t i = 0; i < points.size(); ++i)
      values[i] = occlusion_at(top_tree_, scene_, points[i].position, points[i].normal, samples,
                               distance, two_sided);
    return;
  }
  direction_order order(directions);
  constexpr std::size_t rays_at_once = 4096;  // some points' rays fill more lanes than one's
  const std::size_t at_once = std::max<std::size_t>(1, rays_at_once / directions.size());
  for (std::size_t first = 0; first < points.size(); first += at_once) {
    const auto batch = points.subspan(first, std::min(at_once, points.size() - first));
    packed_->list_rays(batch, order, distance);
    packed_->shoot(two_sided, unit_);
    packed_->judge(batch, directions.size(), distance, values.subspan(first));
  }
}

}  // namespace morlu::osg
