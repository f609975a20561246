#pragma once

#include "ray/bih_tree.h"
#include "ray/triangle_pairs.h"
#include "ray/triangle_set.h"

/// Collision of two trees as it is defined, without any shortcut.
namespace morlu::tests {

using matrix4 = math::transformation_matrix<float>;

inline math::vector3 carry(const matrix4& m, const math::vector3& p) {
  return {m[0] * p[0] + m[4] * p[1] + m[8] * p[2] + m[12],
          m[1] * p[0] + m[5] * p[1] + m[9] * p[2] + m[13],
          m[2] * p[0] + m[6] * p[1] + m[10] * p[2] + m[14]};
}
inline triangle carry(const matrix4& m, const triangle& t) {
  return {{carry(m, t[0]), carry(m, t[1]), carry(m, t[2])}};
}

/// Cells of both trees are halved by their clip planes; cells of b go along as boxes in the space
/// of a. Wherever it finds a contact, the library finds the same one. The other way round it can
/// miss one at the very bound of a cell, by a rounding of what it takes off the boxes.
class plain_descent {
 public:
  struct side {
    const bih_tree<float>& tree;
    const osg::triangle_set& set;
  };
  struct cell {
    math::vector3 min;
    math::vector3 max;
  };

  plain_descent(const side& a, const side& b, const matrix4& a_from_b)
      : a_(a), b_(b), a_from_b_(a_from_b) {}

  bool run(const cell& a_cell, const cell& b_cell) {
    cell b_box{};
    for (int corner = 0; corner < 8; ++corner) {
      math::vector3 p;
      for (int axis = 0; axis < 3; ++axis)
        p[axis] = (corner >> axis & 1 ? b_cell.min : b_cell.max)[axis];
      p = carry(a_from_b_, p);
      for (int axis = 0; axis < 3; ++axis) {
        if (corner == 0 || p[axis] < b_box.min[axis]) b_box.min[axis] = p[axis];
        if (corner == 0 || p[axis] > b_box.max[axis]) b_box.max[axis] = p[axis];
      }
    }
    return descend(0, 0, a_cell, b_box, b_cell);
  }
  const math::vector3& point() const { return point_; }

 private:
  struct split {
    int child[2];
    cell box[2];  // of b only
    cell part[2];
  };

  static bool apart(const cell& a, const cell& b) {
    for (int axis = 0; axis < 3; ++axis)
      if (b.min[axis] > a.max[axis] || a.min[axis] > b.max[axis]) return true;
    return false;
  }

  static split halves(const bih_node& node, int index, const cell& whole) {
    split result{{index + 1, node.right_child}, {}, {whole, whole}};
    result.part[0].max[node.axis] = node.left_plane;
    result.part[1].min[node.axis] = node.right_plane;
    return result;
  }

  split halves_of_b(const bih_node& node, int index, const cell& box, const cell& whole) const {
    split result = halves(node, index, whole);
    result.box[0] = result.box[1] = box;
    const float p = node.right_plane - whole.min[node.axis];
    const float q = whole.max[node.axis] - node.left_plane;
    for (int k = 0; k < 3; ++k) {
      const float c = a_from_b_[static_cast<std::size_t>(4 * node.axis + k)];
      (c >= 0 ? result.box[0].max : result.box[0].min)[k] -= c * q;
      (c >= 0 ? result.box[1].min : result.box[1].max)[k] += c * p;
    }
    return result;
  }

  bool descend(int index_a, int index_b, const cell& a, const cell& b_box, const cell& b) {
    if (apart(a, b_box)) return false;
    const bih_node& node_a = a_.tree.nodes[static_cast<std::size_t>(index_a)];
    const bih_node& node_b = b_.tree.nodes[static_cast<std::size_t>(index_b)];
    if (node_a.is_leaf() && node_b.is_leaf()) return leaves_touch(node_a, node_b);
    split of_a{{index_a, index_a}, {}, {a, a}};
    split of_b{{index_b, index_b}, {b_box, b_box}, {b, b}};
    if (!node_a.is_leaf()) of_a = halves(node_a, index_a, a);
    if (!node_b.is_leaf()) of_b = halves_of_b(node_b, index_b, b_box, b);
    const auto go = [&](int i, int j) {
      return descend(of_a.child[i], of_b.child[j], of_a.part[i], of_b.box[j], of_b.part[j]);
    };
    if (node_b.is_leaf()) return go(0, 0) || go(1, 0);
    if (node_a.is_leaf()) return go(0, 0) || go(0, 1);
    return go(1, 0) || go(0, 1) || go(0, 0) || go(1, 1);
  }

  bool leaves_touch(const bih_node& leaf_a, const bih_node& leaf_b) {
    for (int i = 0; i < leaf_a.leaf_count; ++i) {
      for (int j = 0; j < leaf_b.leaf_count; ++j) {
        const triangle& in_a = a_.set.triangles[a_.tree.indices[leaf_a.leaf_start + i]];
        const triangle& in_b = b_.set.triangles[b_.tree.indices[leaf_b.leaf_start + j]];
        const triangle carried = carry(a_from_b_, in_b);
        if (!triangles_intersect(in_a, carried)) continue;
        point_ = contact_point(in_a, carried);
        return true;
      }
    }
    return false;
  }

  side a_;
  side b_;
  matrix4 a_from_b_;
  math::vector3 point_{};
};

}  // namespace morlu::tests
