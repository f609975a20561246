#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include <osg/intersect_action.h>

#include "picture/drawn_scene.h"

namespace morlu::program {

/// Where a ray meets a scene.
struct SceneHit {
  std::uint32_t placement;
  std::uint32_t triangle;  // of the core's `triangles`
  double t;                // distance along the ray
};

/// Finds what rays meet, through the library's trees: its pick has to be registered. Each thread
/// has its own; the scene, which the caster refers to, may serve many.
class RayCaster {
 public:
  explicit RayCaster(const DrawnScene& scene);

  /// The nearest triangle, from whichever side, at distance `from` or more. Where a front lies on a
  /// back, as in sheets that have a surface for each side, it is the front.
  std::optional<SceneHit> nearest(const Ray& ray, double from);

 private:
  /// The distance as backs and fronts are compared.
  struct Nearest {
    SceneHit hit;
    double rank;
  };
  /// Puts the placement's nearest hits at `start` or beyond in the place of a farther one.
  void test(std::uint32_t placement, const Ray& ray, double start, Nearest& best);

  const DrawnScene& scene_;
  const double thinnest_gap_;
  ::osg::IntersectAction action_;
};

}  // namespace morlu::program
