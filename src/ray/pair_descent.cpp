// The order of the descent decides which contact is found first: of two inner nodes, (a right, b
// left) and (a left, b right) come before (a left, b left) and (a right, b right); beside a leaf
// the left child comes before the right one.

#include "ray/pair_descent.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace morlu {

pair_descent::walked pair_descent::walk_of(const side& from) {
  return {from.tree.nodes.get(), from.tree.indices.get(), from.set.triangles.get(),
          volumes_of(from.tree, from.set)};
}

pair_descent::pair_descent(const side& a, const side& b,
                           const math::transformation_matrix<float>& a_from_b)
    : a_(walk_of(a)),
      b_(walk_of(b)),
      a_from_b_(a_from_b),
      test_(a_from_b, a_.volumes.bound(), b_.volumes.bound()) {}

bool pair_descent::run() {
  // A NaN in a row is one in that coordinate of all of b, and no test of segments holds then; but
  // it is none that could leave a pair of volumes out.
  for (std::size_t i = 0; i < 16; ++i)
    if (i % 4 != 3 && !std::isfinite(a_from_b_[i])) return false;
  return inner_nodes_touch(a_.volumes.root(), b_.volumes.root());
}

math::vector3 pair_descent::carry(const math::vector3& p) const {
  const math::transformation_matrix<float>& m = a_from_b_;
  return {m[0] * p[0] + m[4] * p[1] + m[8] * p[2] + m[12],
          m[1] * p[0] + m[5] * p[1] + m[9] * p[2] + m[13],
          m[2] * p[0] + m[6] * p[1] + m[10] * p[2] + m[14]};
}

bool pair_descent::inner_nodes_touch(const record& a, const record& b) {
  const unsigned touching = test_.touching(lanes_of_a(a), lanes_of_b(b));  // lane 2 * b + a
  if (!touching) return false;
  return (touching & 2 && nodes_touch({a, 1}, {b, 0})) ||
         (touching & 4 && nodes_touch({a, 0}, {b, 1})) ||
         (touching & 1 && nodes_touch({a, 0}, {b, 0})) ||
         (touching & 8 && nodes_touch({a, 1}, {b, 1}));
}

bool pair_descent::nodes_touch(const place& a, const place& b) {
  if (!a.is_leaf() && !b.is_leaf())
    return inner_nodes_touch(a_.volumes.at(a.number()), b_.volumes.at(b.number()));
  if (!a.is_leaf()) {
    const record& split = a_.volumes.at(a.number());
    const unsigned touching = test_.touching(lanes_of_a(split), lanes_of_one(b.parent, b.side));
    return (touching & 1 && nodes_touch({split, 0}, b)) ||
           (touching & 2 && nodes_touch({split, 1}, b));
  }
  if (!b.is_leaf()) {
    const record& split = b_.volumes.at(b.number());
    const unsigned touching = test_.touching(lanes_of_one(a.parent, a.side), lanes_of_b(split));
    return (touching & 1 && nodes_touch(a, {split, 0})) ||
           (touching & 4 && nodes_touch(a, {split, 1}));
  }
  return leaves_touch(a_.nodes[~a.number()], b_.nodes[~b.number()]);
}

bool pair_descent::leaves_touch(const bih_node& leaf_a, const bih_node& leaf_b) {
  constexpr auto most = triangle_lanes::most;
  const std::uint32_t* const first_a = a_.indices + leaf_a.leaf_start;
  const std::uint32_t* const first_b = b_.indices + leaf_b.leaf_start;
  const auto count_a = static_cast<std::uint32_t>(leaf_a.leaf_count);
  const auto count_b = static_cast<std::uint32_t>(leaf_b.leaf_count);
  triangle carried[most];
  const auto carry_from = [&](std::uint32_t start) {
    const std::uint32_t count = std::min(count_b - start, most);
    for (std::uint32_t i = 0; i < count; ++i) {
      const triangle& in_b = b_.triangles[first_b[start + i]];
      carried[i] = {{carry(in_b[0]), carry(in_b[1]), carry(in_b[2])}};
    }
    return triangle_lanes(carried, count);
  };
  if (count_a == 0 || count_b == 0) return false;

  triangle_lanes lanes = carry_from(0);
  for (std::uint32_t i = 0; i < count_a; ++i) {
    const triangle& in_a = a_.triangles[first_a[i]];
    for (std::uint32_t start = 0; start < count_b; start += most) {
      if (count_b > most) lanes = carry_from(start);
      const unsigned hits = lanes.hit_by(in_a);
      if (!hits) continue;
      point_ = contact_point(in_a, carried[std::countr_zero(hits)]);
      return true;
    }
  }
  return false;
}

}  // namespace morlu
