// A plane that lies on the centres of what it is to part leaves all of it on one side, as in sheets
// two squares wide. Ranks part whatever has two elements.

#include "kd/large_leaves.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "morlu/geoset.h"

namespace morlu {

namespace {

struct run {
  std::uint64_t first, count;
};

/// What is still to be written behind the nodes that are there: a node of the tree as it was, or
/// part of a large leaf.
struct unwritten {
  std::size_t above;  // whose right child it is; `none` if it is a left one or the root
  std::size_t node;   // `none` for a part
  run part;
};
constexpr std::size_t none = ~std::size_t{0};

template <class Set>
class leaf_parting {
 public:
  leaf_parting(kd_tree& tree, const Set& set, unsigned limit)
      : tree_(tree), set_(set), limit_(limit) {}

  void run_over_tree() {
    pending_.push_back({none, 0, {}});
    while (!pending_.empty()) {
      const unwritten next = pending_.back();
      pending_.pop_back();
      if (next.above != none) nodes_[next.above].right_child = static_cast<std::int64_t>(here());
      write(next);
    }
    auto nodes = std::make_unique<kd_node[]>(nodes_.size());
    std::copy(nodes_.begin(), nodes_.end(), nodes.get());
    tree_.nodes = std::move(nodes);
    tree_.node_capacity = nodes_.size();
    tree_.stats.nodes = nodes_.size() - 1;
    tree_.stats.leaves = nodes_.size() / 2 + 1;
    tree_.stats.max_leaf_size = max_leaf_size_;
  }

 private:
  std::size_t here() const { return nodes_.size(); }

  void write(const unwritten& next) {
    if (next.node == none) return write_part(next.part);
    const kd_node& node = parting_node(next.node);
    if (node.is_leaf())
      return write_part({static_cast<std::uint64_t>(node.leaf_start), node.leaf_count});
    pending_.push_back({here(), static_cast<std::size_t>(node.right_child), {}});
    pending_.push_back({none, static_cast<std::size_t>(&node - tree_.nodes.get()) + 1, {}});
    nodes_.push_back(node);
  }

  /// The first node at or below one that has elements on both sides, or is a leaf.
  const kd_node& parting_node(std::size_t index) const {
    const auto is_empty = [&](std::size_t at) {
      return tree_.nodes[at].is_leaf() && tree_.nodes[at].leaf_count == 0;
    };
    while (!tree_.nodes[index].is_leaf()) {
      const std::size_t left = index + 1;
      const auto right = static_cast<std::size_t>(tree_.nodes[index].right_child);
      if (is_empty(right))
        index = left;
      else if (is_empty(left))
        index = right;
      else
        break;
    }
    return tree_.nodes[index];
  }

  void write_part(const run& part) {
    kd_node node{};
    if (part.count <= limit_) {
      node.axis = kd_node::no_axis;
      node.leaf_start = static_cast<std::int32_t>(part.first);
      node.leaf_count = static_cast<std::uint32_t>(part.count);
      max_leaf_size_ = std::max(max_leaf_size_, part.count);
    } else {
      const std::uint64_t left = part.count / 2;
      node.axis = order_around(part, left);
      pending_.push_back({here(), none, {part.first + left, part.count - left}});
      pending_.push_back({none, none, {part.first, left}});
    }
    nodes_.push_back(node);
  }

  /// Moves the lower `left` elements of the run to its front. Returns the axis.
  std::uint32_t order_around(const run& part, std::uint64_t left) {
    std::uint64_t* const begin = &tree_.indices[part.first];
    std::uint64_t* const end = begin + part.count;
    int longest = 0;
    float extent = -1;
    for (int axis = 0; axis < 3; ++axis) {
      const auto [low, high] = std::minmax_element(
          begin, end, [&](auto a, auto b) { return centre(a, axis) < centre(b, axis); });
      const float own = centre(*high, axis) - centre(*low, axis);
      if (own > extent) {
        longest = axis;
        extent = own;
      }
    }
    std::nth_element(begin, begin + left, end, [&](auto a, auto b) {
      return std::pair(centre(a, longest), a) < std::pair(centre(b, longest), b);
    });
    return static_cast<std::uint32_t>(longest);
  }

  float centre(std::uint64_t element, int axis) const {
    return (set_.high(element, axis) - set_.low(element, axis)) * 0.5f + set_.low(element, axis);
  }

  kd_tree& tree_;
  const Set& set_;
  const unsigned limit_;
  std::vector<unwritten> pending_;
  std::vector<kd_node> nodes_;
  std::uint64_t max_leaf_size_ = 0;
};

}  // namespace

template <class Set>
void part_large_leaves(kd_tree& tree, const Set& set, unsigned limit) {
  if (tree.stats.max_leaf_size > limit) leaf_parting<Set>(tree, set, limit).run_over_tree();
}

template void part_large_leaves(kd_tree&, const osg::osg_geoset&, unsigned);
template void part_large_leaves(kd_tree&, const osg::osg_line_geoset&, unsigned);
template void part_large_leaves(kd_tree&, const osg::osg_point_geoset&, unsigned);

}  // namespace morlu
