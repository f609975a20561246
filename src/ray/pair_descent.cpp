#include "ray/pair_descent.h"

#include "ray/intersect.h"

namespace morlu {

namespace {

/// One segment against one triangle, of the two that are tested.
struct segment_test {
  bool of_b;  // the segment runs on b, against a
  int from;
  int to;
};

// A test sees front faces only, so the direction of a segment decides. What detects a contact runs
// the third and sixth from corner 0 to corner 2, what looks for its point the other way round.
constexpr segment_test detection[6] = {{true, 0, 1},  {true, 1, 2},  {true, 0, 2},
                                       {false, 0, 1}, {false, 1, 2}, {false, 0, 2}};
constexpr segment_test location[6] = {{true, 0, 1},  {true, 1, 2},  {true, 2, 0},
                                      {false, 0, 1}, {false, 1, 2}, {false, 2, 0}};

ray_hit run_test(const segment_test& test, const triangle& a, const triangle& b) {
  const triangle& face = test.of_b ? a : b;
  const triangle& edge = test.of_b ? b : a;
  ray_hit hit{};
  intersect_triangle(face[0], face[1], face[2], edge[test.from], edge[test.to], hit);
  return hit;
}

bool apart(const pair_descent::cell& a, const pair_descent::cell& b) {
  for (int axis = 0; axis < 3; ++axis)
    if (b.min[axis] > a.max[axis] || a.min[axis] > b.max[axis]) return true;
  return false;
}

/// The part of `whole` on one side of a clip plane.
pair_descent::cell below(pair_descent::cell whole, int axis, float plane) {
  whole.max[axis] = plane;
  return whole;
}
pair_descent::cell above(pair_descent::cell whole, int axis, float plane) {
  whole.min[axis] = plane;
  return whole;
}

}  // namespace

bool triangles_intersect(const triangle& a, const triangle& b) {
  for (const segment_test& test : detection) {
    const triangle& face = test.of_b ? a : b;
    const triangle& edge = test.of_b ? b : a;
    if (segment_hits_triangle(face[0], face[1], face[2], edge[test.from], edge[test.to]))
      return true;
  }
  return false;
}

math::vector3 contact_point(const triangle& a, const triangle& b) {
  for (const auto& tests : {location, detection}) {
    for (int i = 0; i < 6; ++i) {
      const ray_hit hit = run_test(tests[i], a, b);
      if (hit.hit) return hit.point;
    }
  }
  return {};
}

math::vector3 pair_descent::carry(const math::vector3& p) const {
  const math::transformation_matrix<float>& m = a_from_b_;
  return {m[0] * p[0] + m[4] * p[1] + m[8] * p[2] + m[12],
          m[1] * p[0] + m[5] * p[1] + m[9] * p[2] + m[13],
          m[2] * p[0] + m[6] * p[1] + m[10] * p[2] + m[14]};
}

/// The box about b's left side in the space of a: the clip plane takes `q` off the cell's length
/// along axis s of b, which moves one side of the box by that column of the matrix times q.
///
///    a's axis k     c = m[k][s] >= 0          c < 0
///    left side      max -= c q                min -= c q
///    right side     min += c p                max += c p
pair_descent::cell pair_descent::left_box(cell box, int s, float q) const {
  for (std::size_t k = 0; k < 3; ++k) {
    const float c = a_from_b_[4 * static_cast<std::size_t>(s) + k];
    (c >= 0 ? box.max : box.min)[k] -= c * q;
  }
  return box;
}

pair_descent::cell pair_descent::right_box(cell box, int s, float p) const {
  for (std::size_t k = 0; k < 3; ++k) {
    const float c = a_from_b_[4 * static_cast<std::size_t>(s) + k];
    (c >= 0 ? box.min : box.max)[k] += c * p;
  }
  return box;
}

bool pair_descent::descend(std::int32_t index_a, std::int32_t index_b, const cell& a,
                           const cell& b_box, const cell& b) {
  if (apart(a, b_box)) return false;
  const bih_node& node_a = a_.tree.nodes[static_cast<std::size_t>(index_a)];
  const bih_node& node_b = b_.tree.nodes[static_cast<std::size_t>(index_b)];
  if (node_a.is_leaf() && node_b.is_leaf()) return leaves_touch(node_a, node_b);

  const auto split_a = [&](auto&& go) {
    const cell left = below(a, node_a.axis, node_a.left_plane);
    const cell right = above(a, node_a.axis, node_a.right_plane);
    return go(index_a + 1, left, node_a.right_child, right);
  };
  const auto split_b = [&](auto&& go) {
    const int s = node_b.axis;
    const float p = node_b.right_plane - b.min[s];
    const float q = b.max[s] - node_b.left_plane;
    return go(index_b + 1, left_box(b_box, s, q), below(b, s, node_b.left_plane),
              node_b.right_child, right_box(b_box, s, p), above(b, s, node_b.right_plane));
  };
  if (node_b.is_leaf())
    return split_a([&](auto l, const cell& left, auto r, const cell& right) {
      return descend(l, index_b, left, b_box, b) || descend(r, index_b, right, b_box, b);
    });
  if (node_a.is_leaf())
    return split_b([&](auto l, const cell& left_box, const cell& left, auto r,
                       const cell& right_box, const cell& right) {
      return descend(index_a, l, a, left_box, left) || descend(index_a, r, a, right_box, right);
    });
  return split_a([&](auto al, const cell& a_left, auto ar, const cell& a_right) {
    return split_b([&](auto bl, const cell& left_box, const cell& b_left, auto br,
                       const cell& right_box, const cell& b_right) {
      return descend(ar, bl, a_right, left_box, b_left) ||
             descend(al, br, a_left, right_box, b_right) ||
             descend(al, bl, a_left, left_box, b_left) ||
             descend(ar, br, a_right, right_box, b_right);
    });
  });
}

bool pair_descent::leaves_touch(const bih_node& leaf_a, const bih_node& leaf_b) {
  const std::uint32_t* const first_a = a_.tree.indices.get() + leaf_a.leaf_start;
  const std::uint32_t* const first_b = b_.tree.indices.get() + leaf_b.leaf_start;
  for (std::int32_t i = 0; i < leaf_a.leaf_count; ++i) {
    const triangle& in_a = a_.set.triangles[first_a[i]];
    for (std::int32_t j = 0; j < leaf_b.leaf_count; ++j) {
      const triangle& in_b = b_.set.triangles[first_b[j]];
      const triangle carried{{carry(in_b[0]), carry(in_b[1]), carry(in_b[2])}};
      if (!triangles_intersect(in_a, carried)) continue;
      point_ = contact_point(in_a, carried);
      return true;
    }
  }
  return false;
}

}  // namespace morlu
