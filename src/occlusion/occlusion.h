#pragma once

#include <memory>
#include <span>
#include <vector>

#include "occlusion/scene_geoset.h"
#include "ray/stream_trace.h"

/// How open points of a scene are: a fixed set of rays from a point, and what share of them meets
/// something near.
namespace morlu::osg {

/// The points of an (n + 1)^3 grid over the cube from -1 to 1, the last coordinate running fastest.
/// With an even n the zero vector is among them. 0 and what is negative as an int count as 1.
/// Throws `std::bad_alloc`, or `std::length_error` from about a million on.
std::vector<math::vector<float, 3>> direction_grid(unsigned samples);

/// The grid of the first call, for the rest of the process, whatever `samples` is later.
/// The first call must not run beside another.
std::vector<math::vector<float, 3>> sample_directions(unsigned samples);

/// The next call is the first again: for tests and measurements with several grids.
void forget_directions();

/// How open `position` is: 1 less the share of rays that are blocked. A hit nearer than `distance`
/// blocks its ray, one from there to twice the distance as much as it is beyond: not at `distance`
/// itself, almost wholly at twice as far, where it ends. A ray for each of `sample_directions` goes
/// along normal + direction, from a little way along the direction. With a unit normal they lean to
/// its side, with none they go everywhere. Front faces block, or with `two_sided` both. All in
/// world space. `top_tree` is that of `scene`, which was set up with objects; a tree that isn't
/// built gives 1.
float occlusion_at(const bih_tree<float>& top_tree,
                   const Morlu_osg_scene_geoset<bih_tree<float>>& scene,
                   const math::vector<float, 3>& position, const math::vector<float, 3>& normal,
                   int samples, float distance, bool two_sided);

struct sample_point {
  math::vector<float, 3> position;
  math::vector<float, 3> normal;
};

/// `occlusion_at` for many points: the same bits for each, many times as fast. Points near each
/// other should stand near each other.
///
/// Making it packs scene and tree into a form for vector units, 48 bytes a triangle and 16 a node,
/// O(triangles). Both must stay as they are while it lives. Throws `std::bad_alloc`. One thread at
/// a time.
class occlusion_sampler {
 public:
  /// `unit` is one of this machine's.
  occlusion_sampler(const bih_tree<float>& top_tree,
                    const Morlu_osg_scene_geoset<bih_tree<float>>& scene,
                    vector_unit unit = widest_unit());
  ~occlusion_sampler();

  /// `values[i]` for `points[i]`.
  void occlusion_at_many(std::span<const sample_point> points, int samples, float distance,
                         bool two_sided, std::span<float> values);

 private:
  struct packed;

  const bih_tree<float>& top_tree_;
  const Morlu_osg_scene_geoset<bih_tree<float>>& scene_;
  vector_unit unit_;
  std::unique_ptr<packed> packed_;  // null where rays go the plain way
};

}  // namespace morlu::osg
