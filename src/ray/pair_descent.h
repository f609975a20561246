#pragma once

#include "ray/bih_tree.h"
#include "ray/triangle_set.h"

namespace morlu {

/// A triangle that hits another, in the six-segment sense of `triangles_intersect`.
bool triangles_intersect(const triangle& a, const triangle& b);

/// A point where two triangles that intersect do so.
math::vector3 contact_point(const triangle& a, const triangle& b);

/// Two trees walked together, in the space of the first one's triangles. Cells of the second are
/// carried along as boxes of that space, narrowed by what each clip plane takes away, with no
/// matrix work at any node.
class pair_descent {
 public:
  struct side {
    const bih_tree<float>& tree;
    const osg::triangle_set& set;
  };
  struct cell {
    math::vector3 min;
    math::vector3 max;
  };

  pair_descent(const side& a, const side& b, const math::transformation_matrix<float>& a_from_b)
      : a_(a), b_(b), a_from_b_(a_from_b) {}

  /// Whether a triangle of a below its root touches one of b. `a_cell` and `b_cell` bound the trees
  /// in their own spaces, `b_box` bounds b in that of a.
  bool run(const cell& a_cell, const cell& b_cell, const cell& b_box) {
    return descend(0, 0, a_cell, b_box, b_cell);
  }
  /// After a hit, in the space of a.
  const math::vector3& point() const { return point_; }

 private:
  bool descend(std::int32_t node_a, std::int32_t node_b, const cell& a, const cell& b_box,
               const cell& b);
  bool leaves_touch(const bih_node& leaf_a, const bih_node& leaf_b);
  math::vector3 carry(const math::vector3& p) const;
  cell left_box(cell box, int s, float q) const;
  cell right_box(cell box, int s, float p) const;

  side a_;
  side b_;
  math::transformation_matrix<float> a_from_b_;
  math::vector3 point_{};
};

}  // namespace morlu
