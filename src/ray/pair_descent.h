#pragma once

#include "ray/bih_tree.h"
#include "ray/triangle_pairs.h"
#include "ray/volume_test.h"

namespace morlu {

/// Two trees walked together, in the space of the first one's triangles, until the first pair of
/// triangles that touch. Pairs of nodes are left out where their volumes are apart.
class pair_descent {
 public:
  struct side {
    const bih_tree<float>& tree;  // usable
    const osg::triangle_set& set;
  };

  pair_descent(const side& a, const side& b, const math::transformation_matrix<float>& a_from_b);

  /// Whether a triangle of a touches one of b; none does if the matrix isn't finite. No memory is
  /// taken but for the trees' volumes, when they are walked for the first time.
  bool run();
  /// After a hit, in the space of a.
  const math::vector3& point() const { return point_; }

 private:
  using record = pair_volumes::record;
  struct walked {
    const bih_node* nodes;
    const std::uint32_t* indices;
    const triangle* triangles;
    const pair_volumes& volumes;
  };
  /// A child of an inner node.
  struct place {
    const record& parent;
    int side;
    std::int32_t number() const { return parent.child[side]; }
    bool is_leaf() const { return number() < 0; }
  };
  static walked walk_of(const side& from);

  bool inner_nodes_touch(const record& a, const record& b);
  bool nodes_touch(const place& a, const place& b);
  bool leaves_touch(const bih_node& leaf_a, const bih_node& leaf_b);
  math::vector3 carry(const math::vector3& p) const;

  walked a_;
  walked b_;
  math::transformation_matrix<float> a_from_b_;
  volume_test test_;
  math::vector3 point_{};
};

}  // namespace morlu
