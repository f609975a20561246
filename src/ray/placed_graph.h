#pragma once

#include <osg/node.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace morlu::osg {

/// A box along the axes, in whatever space.
struct axis_box {
  ::osg::Pnt3f min;
  ::osg::Pnt3f max;
};

/// Boxes with a point in common aren't apart, nor are those with a NaN.
inline bool apart(const axis_box& a, const axis_box& b) {
  for (unsigned axis = 0; axis < 3; ++axis)
    if (b.min[axis] > a.max[axis] || a.min[axis] > b.max[axis]) return true;
  return false;
}

inline axis_box everywhere() {
  constexpr float infinite = std::numeric_limits<float>::infinity();
  return {{-infinite, -infinite, -infinite}, {infinite, infinite, infinite}};
}

/// The node's stored volume, brought up to date; the origin for an empty one.
inline axis_box stored_volume(const ::osg::NodePtr& node) {
  const auto volume = node->getVolume(true);
  return {volume.getMin(), volume.getMax()};
}

/// The geometry nodes of a subgraph with their places in the world, in the order of
/// `collect_geo_nodes`. Matrices and boxes are worked out for those parts of the subgraph only that
/// somebody asks for, and once. The subgraph stays as it is meanwhile.
class placed_graph {
 public:
  struct placed {
    const ::osg::NodePtr* node;  // as its parent holds it
    ::osg::Matrix world;         // the node's `getToWorld()`
    axis_box box;                // of all below, in the world, with a margin for rounding
    std::uint32_t first_child = 0;
    std::uint32_t child_count = 0;
    bool is_geometry = false;
    bool is_open = false;  // its children are there
  };

  /// `root` stays where it is, too.
  explicit placed_graph(const ::osg::NodePtr& root);

  /// Shows the geometry nodes whose boxes aren't apart from `near` to `visit`, in order, until it
  /// returns true; whether it did.
  template <class Visit>
  bool any_geometry(const axis_box& near, const Visit& visit) {
    pending_.assign(1, 0);
    while (!pending_.empty()) {
      const std::uint32_t number = pending_.back();
      pending_.pop_back();
      if (apart(nodes_[number].box, near)) continue;
      if (nodes_[number].is_geometry && visit(nodes_[number])) return true;
      open(number);
      const placed& parent = nodes_[number];
      for (std::uint32_t i = parent.child_count; i-- > 0;)
        pending_.push_back(parent.first_child + i);
    }
    return false;
  }

 private:
  void add(const ::osg::NodePtr& node, const ::osg::Matrix& parent);
  void open(std::uint32_t number);

  std::vector<placed> nodes_;  // children of one node stand together
  std::vector<std::uint32_t> pending_;
};

/// Where in the world `first.box` may meet others. All of the world if the node's matrix has no
/// good inverse: collisions then compare the two in a space that isn't the world's.
axis_box reach_of(const placed_graph::placed& first);

}  // namespace morlu::osg
