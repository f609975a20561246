#include "picture/ray_caster.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace morlu::program {
namespace {

constexpr double nowhere = std::numeric_limits<double>::infinity();

template <class Tuple>
bool are_floats(const Tuple& tuple) {
  return std::all_of(tuple.getValues(), tuple.getValues() + 3, [](double value) {
    return std::fabs(value) <= double{std::numeric_limits<float>::max()};
  });
}

template <class Single, class Tuple>
Single in_single(const Tuple& tuple) {
  return {static_cast<float>(tuple[0]), static_cast<float>(tuple[1]), static_cast<float>(tuple[2])};
}

}  // namespace

RayCaster::RayCaster(const DrawnScene& scene)
    : scene_(scene), thinnest_gap_(scene.thinnest_gap()) {}

std::optional<SceneHit> RayCaster::nearest(const Ray& ray, double from) {
  Nearest best{{0, 0, nowhere}, nowhere};
  scene_.tree.walk(ray, from, nowhere, [&](std::uint32_t placement, double enter) {
    test(placement, ray, std::max(from, enter - scene_.placements[placement].run_up), best);
    return best.rank;
  });
  if (best.rank == nowhere) return std::nullopt;
  return best.hit;
}

// The ray starts shortly before the placement's box: where a scene is far from its eye or from the
// origin of its coordinates, floats would not tell its surfaces apart.
void RayCaster::test(std::uint32_t number, const Ray& ray, double start, Nearest& best) {
  const Placement& placement = scene_.placements[number];
  const DrawnCore& core = scene_.cores[placement.core];
  const auto origin = placement.object_from_world.transformPoint(ray.at(start));
  const auto along = placement.object_from_world.transformVector(ray.direction);
  const double scale = along.length();
  if (!(scale > 0.0) || !are_floats(origin) || std::isinf(scale)) return;
  action_.setLine({in_single<::osg::Pnt3f>(origin), in_single<::osg::Vec3f>(along / scale)});
  const auto shoot = [&](const ::osg::NodePtr& target, double handicap) {
    action_.apply(target);
    if (!action_.didHit()) return;
    const auto triangle = static_cast<std::uint32_t>(action_.getHitTriangle());
    if (triangle >= core.triangles.size()) return;
    const double t = start + double{action_.getHitT()} / scale;
    if (t + handicap < best.rank) best = {{number, triangle, t}, t + handicap};
  };
  shoot(core.fronts, 0.0);
  shoot(core.backs, thinnest_gap_);
}

}  // namespace morlu::program
