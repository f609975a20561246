#pragma once

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "finishing/core_building.h"
#include "geoset/random_sets.h"
#include "support/same_surface.h"

/// Trees made by hand, and what is built of them the slow way: elements picked one by one, the
/// walk as a recursion that counts at every node.
namespace morlu::tests {

/// Puts trees together from left to right.
class tree_maker {
 public:
  /// Returns the node's number.
  unsigned add_leaf(const std::vector<std::uint64_t>& elements) {
    const auto start = static_cast<int>(entries_.size());
    entries_.insert(entries_.end(), elements.begin(), elements.end());
    kd_node leaf{};
    leaf.axis = kd_node::no_axis;
    leaf.leaf_start = start;
    leaf.leaf_count = static_cast<unsigned>(elements.size());
    nodes_.push_back(leaf);
    ++leaves_;
    return static_cast<unsigned>(nodes_.size() - 1);
  }
  /// Its left child is the node that is added next; the right one is told when it is known.
  unsigned add_inner() {
    nodes_.push_back(kd_node{});
    return static_cast<unsigned>(nodes_.size() - 1);
  }
  void set_right(unsigned inner, unsigned right) { nodes_[inner].right_child = right; }
  unsigned size() const { return static_cast<unsigned>(nodes_.size()); }

  kd_tree tree() const {
    kd_tree made;
    made.nodes = std::make_unique<kd_node[]>(nodes_.size());
    made.indices = std::make_unique<std::uint64_t[]>(entries_.size());
    std::copy(nodes_.begin(), nodes_.end(), made.nodes.get());
    std::copy(entries_.begin(), entries_.end(), made.indices.get());
    made.node_capacity = nodes_.size();
    made.index_count = made.index_capacity = entries_.size();
    made.stats.nodes = nodes_.size() - 1;
    made.stats.leaves = leaves_;
    return made;
  }

 private:
  std::vector<kd_node> nodes_;
  std::vector<std::uint64_t> entries_;
  std::uint64_t leaves_ = 0;
};

inline kd_tree tree_of_one_leaf(const std::vector<std::uint64_t>& elements) {
  tree_maker maker;
  maker.add_leaf(elements);
  return maker.tree();
}

/// "(1 2|(|7))" is a leaf of 1 and 2 beside a node with an empty leaf and one of 7.
inline kd_tree tree_of(std::string_view text) {
  tree_maker maker;
  const auto parse = [&](const auto& self) -> unsigned {
    if (text.front() != '(') {
      std::vector<std::uint64_t> elements;
      for (; text.front() != '|' && text.front() != ')'; text.remove_prefix(1))
        if (text.front() != ' ') elements.push_back(static_cast<std::uint64_t>(text.front() - '0'));
      return maker.add_leaf(elements);
    }
    text.remove_prefix(1);
    const unsigned inner = maker.add_inner();
    self(self);
    text.remove_prefix(1);  // |
    maker.set_right(inner, self(self));
    text.remove_prefix(1);  // )
    return inner;
  };
  parse(parse);
  return maker.tree();
}

/// At most `depth` levels of inner nodes over leaves of 0 to 5 entries.
inline kd_tree random_tree(std::mt19937& random, unsigned elements, unsigned depth) {
  tree_maker maker;
  const auto grow = [&](const auto& self, unsigned left) -> unsigned {
    if (left == 0 || random() % 4 == 0) {
      std::vector<std::uint64_t> entries(random() % 6);
      for (auto& entry : entries) entry = random() % elements;
      return maker.add_leaf(entries);
    }
    const unsigned inner = maker.add_inner();
    self(self, left - 1);
    maker.set_right(inner, self(self, left - 1));
    return inner;
  };
  grow(grow, depth);
  return maker.tree();
}

/// `depth` inner nodes below each other, each with a leaf of element 0 on its other side.
inline kd_tree chain_tree(unsigned depth, bool to_left) {
  tree_maker maker;
  for (unsigned i = 0; i < depth; ++i) {
    const unsigned inner = maker.add_inner();
    if (to_left) continue;
    maker.add_leaf({0});
    maker.set_right(inner, maker.size());
  }
  maker.add_leaf({0});
  for (unsigned i = depth; to_left && i-- > 0;) maker.set_right(i, maker.add_leaf({0}));
  return maker.tree();
}

// --- The walk ------------------------------------------------------------------------------------

inline std::vector<std::uint64_t> plain_elements(const kd_tree& tree, unsigned index) {
  const kd_node& node = tree.nodes[index];
  if (node.is_leaf()) {
    const auto* start = &tree.indices[0] + node.leaf_start;
    return {start, start + node.leaf_count};
  }
  auto elements = plain_elements(tree, index + 1);
  const auto right = plain_elements(tree, static_cast<unsigned>(node.right_child));
  elements.insert(elements.end(), right.begin(), right.end());
  return elements;
}

/// Elements and ";", nothing without any.
inline std::string plain_core(const kd_tree& tree, unsigned index) {
  std::string text;
  for (const auto element : plain_elements(tree, index)) text += std::to_string(element) + " ";
  return text.empty() ? "" : text + ";";
}

inline std::string plain_subtree(const kd_tree& tree, unsigned index, int parts, unsigned limit) {
  const kd_node& node = tree.nodes[index];
  if (parts == 1 || node.is_leaf()) return plain_core(tree, index);
  const unsigned left = index + 1, right = static_cast<unsigned>(node.right_child);
  const auto in_left = static_cast<unsigned>(plain_elements(tree, left).size());
  const auto in_right = static_cast<unsigned>(plain_elements(tree, right).size());
  if (in_left + in_right <= limit) return "[" + plain_core(tree, index) + "]";
  if (parts == 2) return "[" + plain_core(tree, left) + plain_core(tree, right) + "]";
  const int for_left = osg::partsForLeft(in_left, in_right, parts);
  std::string text;
  if (parts == 0 ? in_left > 0 : for_left > 0)
    text += plain_subtree(tree, left, for_left * (parts != 0), limit);
  if (parts == 0 ? in_right > 0 : parts > for_left)
    text += plain_subtree(tree, right, (parts - for_left) * (parts != 0), limit);
  return "[" + text + "]";
}

/// Groups in brackets, cores as their elements.
inline std::string plain_split(const kd_tree& tree, unsigned index, int parts, unsigned limit) {
  const std::string text = plain_subtree(tree, index, parts, limit);
  return text.empty() ? "null" : text;
}

// --- Cores ---------------------------------------------------------------------------------------

/// What the set's own geometry shows of the elements, those that the set doesn't have left out.
template <class Set>
test::surface plain_surface(const kd_tree& tree, const Set& set, unsigned first, unsigned count,
                            test::normals use = test::normals::compared) {
  const test::surface all = test::surface_of(set.geometry, use);
  test::surface result;
  for (unsigned i = first; i < first + count; ++i) {
    const std::uint64_t element = tree.indices[i];
    if (element >= set.num_objects) continue;
    if constexpr (corners<Set> == 3)
      result.triangles.push_back(all.triangles[element]);
    else if constexpr (corners<Set> == 2)
      result.lines.push_back(all.lines[element]);
    else
      result.points.push_back(all.points[element]);
  }
  return result;
}

}  // namespace morlu::tests
