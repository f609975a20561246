#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "boxes.h"
#include "picture/ray.h"

namespace morlu::program {

/// A binary tree over boxes, split in the middle of their order along the longest axis, that finds
/// those which a ray meets.
class BoxTree {
 public:
  BoxTree() = default;
  explicit BoxTree(std::span<const Box> boxes);

  /// Calls `visit(i, enter)` for the boxes that the ray meets between the distances `from` and
  /// `to`; `enter` is where it goes in, `from` at least. What lies nearer comes first, more or
  /// less. `to` may shrink on the way: `visit` gives the new one.
  template <class Visit>
  void walk(const Ray& ray, double from, double to, Visit visit) const {
    if (nodes_.empty()) return;
    const Vec inverse{1.0 / ray.direction[0], 1.0 / ray.direction[1], 1.0 / ray.direction[2]};
    std::array<Entry, max_depth + 1> stack;  // the sibling at each level, and the present node
    std::size_t size = 0;
    const auto push = [&](std::uint32_t node) {
      double enter = from;
      if (enters(nodes_[node].box, ray.origin, inverse, enter, to)) stack[size++] = {node, enter};
    };
    push(0);
    while (size > 0) {
      const Entry entry = stack[--size];
      if (entry.enter > to) continue;
      const Node& node = nodes_[entry.node];
      if (node.is_leaf) {
        to = visit(node.index, entry.enter);
        continue;
      }
      const bool low_first = ray.direction[node.axis] >= 0.0;
      push(low_first ? node.index : entry.node + 1);
      push(low_first ? entry.node + 1 : node.index);
    }
  }

 private:
  using Vec = ::osg::Vec3d;
  // Halves differ by one box at most, so 2^32 boxes make 32 levels.
  static constexpr std::size_t max_depth = 34;

  struct Node {
    Box box;
    std::uint32_t index;  // the box of a leaf, else the node of the upper half; the lower is next
    std::uint8_t axis;
    bool is_leaf;
  };
  struct Entry {
    std::uint32_t node;
    double enter;
  };

  void build(std::span<const Box> boxes, std::span<std::uint32_t> items);

  /// Whether the ray meets the box between `from` and `to`; `from` goes to where it enters. A NaN,
  /// from a ray in the plane of a side, is no bound.
  static bool enters(const Box& box, const ::osg::Pnt3d& origin, const Vec& inverse, double& from,
                     double to) {
    for (unsigned axis = 0; axis < 3; ++axis) {
      const bool forwards = inverse[axis] >= 0.0;
      const double near = ((forwards ? box.min : box.max)[axis] - origin[axis]) * inverse[axis];
      const double far = ((forwards ? box.max : box.min)[axis] - origin[axis]) * inverse[axis];
      if (near > from) from = near;
      if (far < to) to = far;
    }
    return from <= to;
  }

  std::vector<Node> nodes_;
};

}  // namespace morlu::program
