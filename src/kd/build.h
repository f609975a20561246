#pragma once

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

#include "kd/element_runs.h"
#include "kd/object_bounds.h"
#include "ray/bih_build.h"
#include "ray/bounding_box.h"

/// The build of kd trees, once for all sets and strategies.
namespace morlu {

/// Sets whose elements a plane can cut. Element numbers stay, pieces are appended.
template <class Set>
concept cuttable_elements = requires(Set& set, unsigned& added, std::size_t& first) {
  set.SplitElement(std::size_t{}, double{}, unsigned{}, added, first);
};

/// Builds one tree. Nodes are taken left side first, and leaves are written in that order, so each
/// finds its place in `indices` when all before it are known. Nothing recurs: how deep a tree gets
/// is a matter of memory alone.
template <class Set, kd_strategy Strategy>
class kd_builder {
 public:
  kd_builder(Set& set, kd_tree& tree, const kd_build_setup& setup, const Strategy& strategy)
      : set_(set), tree_(tree), setup_(setup), strategy_(strategy), runs_(set.size()) {
    if (setup_.leaf_size == 0) setup_.leaf_size = 1;
    read_bounds(set_, 0, set_.size(), runs_.front());
  }

  void build(const bounding_box& box) {
    cells_.push_back({box, static_cast<std::uint32_t>(runs_.size()), 0, no_parent, false});
    for (std::uint64_t node = 0; !cells_.empty(); ++node) {
      const cell taken = cells_.back();
      cells_.pop_back();
      tree_.stats.nodes = node;
      tree_.ensure_node(node);
      if (taken.parent != no_parent)
        tree_.nodes[taken.parent].right_child = static_cast<std::int64_t>(node);
      if (taken.is_leaf || !split(node, taken)) write_leaf(node, taken.count);
    }
  }

 private:
  static constexpr std::uint64_t no_parent = ~std::uint64_t{0};

  /// A node to be taken, and the elements that wait for it.
  struct cell {
    bounding_box box;
    std::uint32_t count;
    std::uint32_t depth;
    std::uint64_t parent;  // whose right side this is
    bool is_leaf;
  };

  /// False for a leaf.
  bool split(std::uint64_t node, const cell& of) {
    if (of.depth > tree_.stats.max_depth) tree_.stats.max_depth = of.depth;
    if (of.count < setup_.leaf_size || setup_.max_depth <= of.depth) return false;
    const kd_plane plane =
        strategy_.choose({runs_.front(), of.count}, setup_, of.box, longest_axis(of.box), keys_);
    if (plane.at == of.box.min[plane.axis] || plane.at == of.box.max[plane.axis]) return false;
    if (goes_on_for_ever(of, plane)) return false;

    const std::uint32_t left_count = part(of.count, plane);
    const auto right_count = static_cast<std::uint32_t>(of.count - left_count + added());
    cell left = side(of, left_count), right = side(of, right_count);
    left.box.max[plane.axis] = right.box.min[plane.axis] = plane.at;
    left.box.update_size();
    right.box.update_size();

    right.parent = node;
    tree_.nodes[node].axis = static_cast<std::uint32_t>(plane.axis);
    tree_.nodes[node].split = plane.at;
    cells_.push_back(right);
    cells_.push_back(left);
    return true;
  }

  cell side(const cell& of, std::uint32_t count) const {
    const bool is_leaf = count <= setup_.leaf_size || of.depth >= setup_.max_depth;
    return {of.box, count, of.depth + 1, no_parent, is_leaf};
  }

  /// Planes that are no numbers part nothing and follow one another, down to `max_depth`. Past a
  /// depth that nobody wants, such a node is a leaf.
  static bool goes_on_for_ever(const cell& of, const kd_plane& plane) {
    constexpr std::uint32_t deep = 1000;
    return of.depth >= deep && std::isnan(plane.at);
  }

  void write_leaf(std::uint64_t node, std::uint32_t count) {
    kd_node& leaf = tree_.nodes[node];
    leaf.axis = kd_node::no_axis;
    leaf.leaf_start = static_cast<std::int32_t>(written_);
    leaf.leaf_count = count;
    const kd_record* from = runs_.front();
    for (std::uint32_t i = 0; i < count; ++i) tree_.indices[written_ + i] = from[i].element;
    written_ += count;
    runs_.drop(count);
    tree_.stats.max_leaf_size = std::max<std::uint64_t>(tree_.stats.max_leaf_size, count);
    ++tree_.stats.leaves;
  }

  // --- Sides -------------------------------------------------------------------------------------

  std::uint64_t added() const { return left_extra_.size() + right_extra_.size(); }

  /// Brings the left side to the front and returns how many are there; it may be more than `count`
  /// with what is added.
  std::uint32_t part(std::uint32_t count, const kd_plane& plane) {
    left_extra_.clear();
    right_extra_.clear();
    const bool cuts = setup_.strategy == 1 && cuttable_elements<Set>;
    if (!cuts && setup_.strategy != 2) return runs_.part(count, plane);

    kd_record* const run = runs_.front();
    std::uint32_t left = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
      bool goes_left = is_left(run[i], plane);
      if (straddles(run[i], plane)) {
        if (setup_.strategy == 2) {
          right_extra_.push_back(run[i]);
          goes_left = true;
        } else {
          cut(run[i], plane);
          goes_left = plane.at > centre_of(run[i], plane.axis);
        }
      }
      if (goes_left) std::swap(run[left++], run[i]);
    }
    tree_.grow_indices(added());
    runs_.insert(left, left_extra_, right_extra_);
    return left + static_cast<std::uint32_t>(left_extra_.size());
  }

  void cut(kd_record& element, const kd_plane& plane) {
    if constexpr (cuttable_elements<Set>) {
      unsigned pieces = 0;
      std::size_t first = 0;
      set_.SplitElement(element.element, plane.at, static_cast<unsigned>(plane.axis), pieces,
                        first);
      kd_record piece;
      for (std::size_t i = first; i < first + pieces; ++i) {
        read_bounds(set_, i, i + 1, &piece);
        (plane.at >= piece.high[plane.axis] ? left_extra_ : right_extra_).push_back(piece);
      }
      read_bounds(set_, element.element, std::uint64_t{element.element} + 1, &element);
    }
  }

  Set& set_;
  kd_tree& tree_;
  kd_build_setup setup_;
  const Strategy& strategy_;
  element_runs runs_;
  std::vector<cell> cells_;  // the next one last
  std::uint64_t written_ = 0;
  key_lists keys_;
  std::vector<kd_record> left_extra_, right_extra_;  // what the current plane adds
};

/// The tree over no elements: one empty leaf.
inline kd_tree empty_kd_tree() {
  kd_tree tree;
  tree.reset_indices(1);
  tree.indices[0] = 0;
  tree.ensure_node(0);
  tree.nodes[0].axis = kd_node::no_axis;
  tree.nodes[0].leaf_start = 0;
  tree.nodes[0].leaf_count = 0;
  tree.stats.leaves = 1;
  return tree;
}

template <class Set, class Strategy>
void compile_tree(Set& set, kd_tree& tree, const kd_build_setup& setup, Strategy strategy) {
  tree.release();
  const std::uint64_t count = set.size();
  if (count == 0) {
    tree = empty_kd_tree();
    return;
  }
  kd_tree built;  // a failure leaves `tree` without arrays
  built.reset_indices(count);
  const std::uint64_t nodes = count / std::max(setup.leaf_size, 1u);
  built.ensure_node(setup.max_depth < 2 ? 10 : std::max<std::uint64_t>(nodes, 10));
  compute_box(set);
  kd_builder(set, built, setup, strategy).build(set.box);
  tree = std::move(built);
}

}  // namespace morlu
