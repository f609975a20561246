#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "bench/figure.h"

/// Peers of the single index over flat triangles: each finds the corners that are the same and
/// writes indices and vertices, as ours does. Without a peer there is no contender.
namespace morlu::bench {

struct flat_corners {
  static constexpr std::uint32_t floats = 10;  // position, normal, two texture coordinates

  std::vector<float> rows;  // a row of `floats` a corner
  std::uint32_t vertices;   // that differ

  std::uint32_t size() const { return static_cast<std::uint32_t>(rows.size() / floats); }
};

/// assimp's joining of identical vertices.
std::optional<contender> joining_peer(const std::shared_ptr<const flat_corners>& of);

/// osgUtil's index visitor, in a process of its own: its names are those of our layer.
std::optional<contender> index_visitor_peer(const std::shared_ptr<const flat_corners>& of);

}  // namespace morlu::bench
