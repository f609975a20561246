#pragma once

#include <memory>
#include <optional>

#include "bench/figure.h"
#include "bench/ray_scenes.h"

/// The peer of the rays' figures; without it there are no contenders and rows say so.
namespace morlu::bench {

enum class peer_quality { low, medium, high };

/// Writes the distance to the nearest front face for each ray, infinity for a miss. Its check is
/// left to the caller.
std::optional<contender> peer_rays(const std::shared_ptr<const mesh>& of, peer_quality quality,
                                   const std::shared_ptr<const std::vector<ray_query>>& rays,
                                   const std::shared_ptr<std::vector<float>>& distances);

/// From a mesh in memory to a scene that can be traced; `probe` shoots the rays into it.
struct peer_building {
  contender side;
  std::function<std::vector<float>(const std::vector<ray_query>&)> probe;
};
std::optional<peer_building> peer_build(const std::shared_ptr<const mesh>& of,
                                        peer_quality quality);

/// What the built scene holds, in bytes a triangle, without the mesh that it was built from.
std::optional<contender> peer_bytes(const std::shared_ptr<const mesh>& of, peer_quality quality);

}  // namespace morlu::bench
