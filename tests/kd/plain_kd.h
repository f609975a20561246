#pragma once

#include <cmath>
#include <iostream>
#include <map>
#include <set>
#include <vector>

#include "morlu/kd.h"
#include "morlu/primitives.h"

/// Kd trees by ordered maps and recursion over one index array, as one would first write them: what
/// the fast build is held against.
namespace morlu::test {

struct plain_kd_node {
  unsigned axis = 0xFFFFFFFF;
  std::uint64_t right_child = 0;
  float split = 0;
  std::uint64_t leaf_start = 0;
  std::uint32_t leaf_count = 0;
};

struct plain_kd_tree {
  std::vector<plain_kd_node> nodes;
  std::vector<std::uint64_t> indices;
  std::uint64_t index_capacity = 0, node_capacity = 0;
  oc_tree_stats stats;
};

/// Walks ordered maps of keys towards a plane.
template <class Map>
class plain_cursor {
 public:
  explicit plain_cursor(const Map& map) : at_(map.begin()), end_(map.end()) {}
  template <class Passed>
  unsigned advance(Passed passed) {
    unsigned sum = 0;
    for (; at_ != end_ && passed(at_->first); ++at_) sum += at_->second;
    return sum;
  }

 private:
  typename Map::const_iterator at_, end_;
};

/// Calls visit(candidate, left, right, straddling) along one axis.
template <class Key, class Visit>
void plain_walk(const std::map<Key, unsigned>& lows, const std::map<Key, unsigned>& ends,
                const std::map<Key, unsigned>& flats, const std::set<Key>& candidates,
                unsigned count, Visit visit) {
  plain_cursor low(lows), end(ends), flat(flats);
  unsigned left = 0, right = count, straddling = 0;
  for (const Key candidate : candidates) {
    const auto below = [&](Key key) { return key < candidate; };
    const unsigned begun = low.advance(below);
    left += begun;
    straddling += begun;
    const unsigned ended = end.advance([&](Key key) { return key <= candidate; });
    right -= ended;
    straddling -= ended;
    const unsigned passed = flat.advance(below);
    left += passed;
    right -= passed;
    visit(static_cast<float>(candidate), left, right, straddling);
  }
}

inline bool plain_is_usable(float lo, float hi) {
  const float centre = (hi - lo) * 0.5f + lo;
  return std::isfinite(lo) && std::isfinite(hi) && std::isfinite(centre);
}

struct plain_object_median {
  template <class Set>
  float choose(const Set& set, const kd_build_setup&, const std::vector<std::uint64_t>& indices,
               std::uint64_t start, std::uint32_t count, const bounding_box& box, int& axis) const {
    unsigned best = 0xFFFFFFFF;
    bool found = false;
    int best_axis = axis;
    float plane = 0;
    for (int a = 0; a < 3; ++a) {
      std::map<double, unsigned> lows, centres, flats;
      std::set<double> candidates;
      for (std::uint64_t i = start; i < start + count; ++i) {
        const float lo = set.low(indices[i], a), hi = set.high(indices[i], a);
        if (std::isnan(lo) || std::isnan(hi)) {
          std::cout << "Found NAN in kd_strategy_ObjMedian!" << std::endl
                    << "AXIS: " << a << " Index: " << indices[i] << " MIN: " << lo << " MAX: " << hi
                    << std::endl;
          continue;
        }
        if (!plain_is_usable(lo, hi)) continue;
        if (lo == hi) {
          ++flats[lo];
          candidates.insert(lo);
          continue;
        }
        const float centre = (hi - lo) * 0.5f + lo;
        ++lows[lo];
        ++centres[centre];
        candidates.insert(lo);
        candidates.insert(centre);
      }
      plain_walk(lows, centres, flats, candidates, count,
                 [&](float c, unsigned left, unsigned right, unsigned straddling) {
                   const unsigned cost = (left > right ? left - right : right - left) + straddling;
                   if (cost >= best || left == 0 || right == 0) return;
                   best = cost;
                   plane = c;
                   best_axis = a;
                   found = true;
                 });
    }
    if (!found) return box.size[axis] * 0.5f + box.min[axis];
    axis = best_axis;
    return plane;
  }
};

struct plain_surface_area {
  template <class Set>
  float choose(const Set& set, const kd_build_setup& setup,
               const std::vector<std::uint64_t>& indices, std::uint64_t start, std::uint32_t count,
               const bounding_box& box, int& axis) const {
    const auto& s = box.size;
    const float area = (s[0] * s[1] + s[1] * s[2] + s[0] * s[2]) * 2;
    float best = static_cast<float>(count) * setup.intersect_cost;
    float plane = box.min[axis];
    int best_axis = axis;
    for (int a = 0; a < 3; ++a) {
      const float sb = s[(a + 1) % 3], sc = s[(a + 2) % 3];
      const float k_low = sc * sb - box.min[a] * sb - box.min[a] * sc;
      const float k_high = box.max[a] * sb + sc * sb + box.max[a] * sc;
      std::map<float, unsigned> lows, highs, flats;
      std::set<float> candidates;
      for (std::uint64_t i = start; i < start + count; ++i) {
        const float lo = set.low(indices[i], a), hi = set.high(indices[i], a);
        if (!plain_is_usable(lo, hi)) continue;
        candidates.insert(lo);
        if (lo == hi) {
          ++flats[lo];
          continue;
        }
        ++lows[lo];
        ++highs[hi];
        candidates.insert(hi);
      }
      plain_walk(
          lows, highs, flats, candidates, count,
          [&](float c, unsigned left, unsigned right, unsigned straddling) {
            if (setup.no_straddle && straddling != 0) return;
            const float p_left = (c * sb + k_low + c * sc) * 2 / area;
            const float p_right = (k_high - c * sb - c * sc) * 2 / area;
            const float cost_a =
                (float(straddling + left) * p_left + float(right) * p_right) * setup.intersect_cost;
            const float cost_b =
                (float(straddling + right) * p_right + float(left) * p_left) * setup.intersect_cost;
            float cost = setup.cost_scale * std::min(cost_a, cost_b) + setup.traversal_cost;
            if (straddling == 0 && left >= 1 && right >= 1) cost *= 0.8f;
            if (!(best > cost)) return;
            best = cost;
            plane = c;
            best_axis = a;
          });
    }
    axis = best_axis;
    return plane;
  }
};

template <class Set, class Strategy>
class plain_kd_builder {
 public:
  plain_kd_builder(Set& set, const kd_build_setup& setup, const Strategy& strategy)
      : set_(set), setup_(setup), strategy_(strategy) {}

  /// Needs the set's box.
  plain_kd_tree build() {
    const std::uint64_t n = set_.size();
    for (std::uint64_t i = 0; i < n; ++i) tree_.indices.push_back(i);
    tree_.index_capacity = 2 * n;
    std::uint64_t estimate = n / setup_.leaf_size;
    if (setup_.max_depth < 2 || estimate < 10) estimate = 10;
    ensure_node(estimate);
    compile(0, 0, static_cast<std::uint32_t>(n), set_.box, 0);
    tree_.nodes.resize(tree_.stats.nodes + 1);
    return tree_;
  }

 private:
  void ensure_node(std::uint64_t index) {
    if (index >= tree_.node_capacity) tree_.nodes.resize(tree_.node_capacity = 2 * index);
  }
  static int longest_axis(const bounding_box& box) {
    const auto& s = box.size;
    return s[0] > s[1] ? (s[0] > s[2] ? 0 : 2) : (s[1] > s[2] ? 1 : 2);
  }
  void leaf(std::uint64_t node, std::uint64_t start, std::uint32_t count) {
    ensure_node(node);
    tree_.nodes[node] = {0xFFFFFFFF, 0, 0, start, count};
    tree_.stats.max_leaf_size = std::max<std::uint64_t>(tree_.stats.max_leaf_size, count);
    ++tree_.stats.leaves;
  }
  std::uint64_t child(std::uint64_t start, std::uint32_t count, bounding_box box,
                      std::uint32_t depth) {
    const std::uint64_t node = ++tree_.stats.nodes;
    box.update_size();
    if (count > setup_.leaf_size && depth < setup_.max_depth)
      return compile(node, start, count, box, depth + 1);
    leaf(node, start, count);
    return 0;
  }
  std::uint64_t compile(std::uint64_t node, std::uint64_t start, std::uint32_t count,
                        const bounding_box& box, std::uint32_t depth) {
    ensure_node(node);
    tree_.stats.max_depth = std::max<std::uint64_t>(tree_.stats.max_depth, depth);
    int axis = longest_axis(box);
    float split = box.min[axis];
    if (!(count < setup_.leaf_size || setup_.max_depth <= depth))
      split = strategy_.choose(set_, setup_, tree_.indices, start, count, box, axis);
    else
      return leaf(node, start, count), 0;
    if (split == box.min[axis] || split == box.max[axis]) return leaf(node, start, count), 0;

    tree_.nodes[node].axis = static_cast<unsigned>(axis);
    tree_.nodes[node].split = split;
    std::uint32_t added = 0;
    const std::uint32_t left = partition(start, count, split, axis, added);
    const std::uint32_t right = count - left + added;
    bounding_box side = box;
    side.max[axis] = split;
    const std::uint64_t sub = child(start, left, side, depth);
    tree_.nodes[node].right_child = tree_.stats.nodes + 1;
    side = box;
    side.min[axis] = split;
    const std::uint64_t sub2 = child(start + left + sub, right, side, depth);
    return sub + sub2 + added;
  }

  std::uint32_t partition(std::uint64_t start, std::uint32_t count, float split, int axis,
                          std::uint32_t& added) {
    std::vector<std::uint64_t> left_extra, right_extra;
    auto& indices = tree_.indices;
    std::uint64_t write = start;
    for (std::uint64_t i = start; i < start + count; ++i) {
      const std::uint64_t e = indices[i];
      if (set_.low(e, axis) >= split) continue;
      bool left = split >= set_.high(e, axis);
      if (!left && setup_.strategy == 1) {
        cut(e, split, axis, left_extra, right_extra);
      } else if (!left && setup_.strategy == 2) {
        left = true;
        right_extra.push_back(e);
      }
      const float lo = set_.low(e, axis), hi = set_.high(e, axis);
      if (left || split > (hi - lo) * 0.5f + lo) std::swap(indices[i], indices[write++]);
    }
    added = static_cast<std::uint32_t>(left_extra.size() + right_extra.size());
    if (indices.size() + added >= tree_.index_capacity)
      tree_.index_capacity = added + 2 * indices.size();
    left_extra.insert(left_extra.end(), right_extra.begin(), right_extra.end());
    indices.insert(indices.begin() + static_cast<std::ptrdiff_t>(write), left_extra.begin(),
                   left_extra.end());
    return static_cast<std::uint32_t>(write - start + added - right_extra.size());
  }

  void cut(std::uint64_t e, float split, int axis, std::vector<std::uint64_t>& left_extra,
           std::vector<std::uint64_t>& right_extra) {
    if constexpr (requires { set_.SplitElement(e, split, 0u, std::declval<unsigned&>(), e); }) {
      unsigned added = 0;
      std::size_t first = 0;
      set_.SplitElement(e, split, static_cast<unsigned>(axis), added, first);
      for (std::size_t i = first; i < first + added; ++i)
        (split >= set_.high(i, axis) ? left_extra : right_extra).push_back(i);
    }
  }

  Set& set_;
  kd_build_setup setup_;
  const Strategy& strategy_;
  plain_kd_tree tree_;
};

}  // namespace morlu::test
