#pragma once

// Closest hit in a scene: a walk over its objects, and at each a walk over its triangles.

#include "occlusion/scene_geoset.h"
#include "ray/trace.h"

namespace morlu {

using ray_scene = osg::Morlu_osg_scene_geoset<bih_tree<float>>;

/// How many times as far as to the exit of an object's box its triangles are looked for. Those that
/// lie in the box's own sides (the walls of a room) would be lost to rounding otherwise.
constexpr float beyond_box = 1 + 0x1p-16f;

/// Tests leaf entries that are whole objects. Their distances are compared in world units.
struct object_leaf_test {
  const ray_scene& scene;
  bool two_sided = false;

  template <class Stats>
  void operator()(std::uint32_t k, const walk_ray& ray, ray_hit& out, Stats& stats) const {
    const math::vector3& inverse = ray.inverse_direction;
    const math::vector3 direction{1 / inverse[0], 1 / inverse[1], 1 / inverse[2]};
    const osg::osg_geoset& set = scene.geosets[k];
    ray_hit local;
    trace(scene.trees[k], set.box, triangle_leaf_test{set.triangles.get(), two_sided}, ray.origin,
          direction, local, stats, beyond_box);
    if (!local.hit || (out.hit && !(out.t > local.t))) return;
    out = local;
    out.index = k;
  }
};

/// The closest hit in the scene, by the plain walk; `out.index` is the object's number. Front faces
/// only, or with `two_sided` both. A tree that isn't built makes every ray a miss.
template <class Stats>
void trace(const bih_tree<float>& top_tree, const ray_scene& scene, const math::vector3& origin,
           const math::vector3& direction, bool two_sided, ray_hit& out, Stats& stats) {
  out = ray_hit{};
  if (!top_tree.is_usable()) return;
  trace(top_tree, scene.box, object_leaf_test{scene, two_sided}, origin, direction, out, stats);
}

}  // namespace morlu
