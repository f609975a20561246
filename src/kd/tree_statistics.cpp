#include "kd/tree_statistics.h"

#include <sstream>
#include <utility>
#include <vector>

#include "primitives/say.h"

namespace morlu {

namespace {

/// Nodes stand in the order of a walk, parents first.
float sum_of_leaf_depths(const kd_tree& tree) {
  std::vector<std::uint32_t> depths(tree.stats.nodes + 1);
  float sum = 0;
  for (std::uint64_t i = 0; i < depths.size(); ++i) {
    const kd_node& node = tree.nodes[i];
    if (node.is_leaf())
      sum += static_cast<float>(depths[i]);
    else
      depths[i + 1] = depths[static_cast<std::uint64_t>(node.right_child)] = depths[i] + 1;
  }
  return sum;
}

}  // namespace

void print_tree_statistics(const kd_tree& tree, std::uint64_t objects) {
  const oc_tree_stats& stats = tree.stats;
  const auto leaves = static_cast<float>(stats.leaves);
  std::ostringstream text;
  text << "Scene-KD-Tree Statistics:\n"
       << " # max depth          : " << stats.max_depth << '\n'
       << " # avg depth          : " << sum_of_leaf_depths(tree) / leaves << '\n'
       << " # tris registered    : " << objects << '\n'
       << " # inner nodes        : " << stats.nodes << '\n'
       << " # leaves             : " << stats.leaves << '\n'
       << " # max prims in a leaf: " << stats.max_leaf_size << '\n'
       << " # avg prims in a leaf: " << static_cast<float>(tree.count_elements(0)) / leaves << '\n';
  osg::say(std::move(text).str());
}

}  // namespace morlu
