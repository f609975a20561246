// A scene as a spatial tree: a kd tree over its geometry nodes says what becomes one piece.

#include <osg/geometry.h>

#include <new>
#include <string>
#include <vector>

#include "finishing/core_building.h"
#include "geoset/guard.h"
#include "kd/build.h"
#include "kd/tree_statistics.h"
#include "morlu/optimiser.h"
#include "optimiser/hierarchy.h"
#include "optimiser/leaf_geometry.h"
#include "optimiser/source_nodes.h"
#include "primitives/node_moves.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

/// Below one root, up to 128 in a Group.
NodePtr flat_tree(const NodePtr& tree) {
  constexpr std::size_t most_children = 128;
  std::vector<NodePtr> nodes;
  getGeometryNodes(tree, nodes, false);
  const NodePtr root = makeGroup();
  NodePtr batch = makeGroup();
  for (const NodePtr& node : nodes) {
    if (batch->getNChildren() == most_children) {
      root->addChild(batch);
      batch = makeGroup();
    }
    batch->addChild(node);
  }
  root->addChild(batch);
  return root;
}

class scene_rebuild {
 public:
  scene_rebuild(NodePtr node, std::uint32_t leaf_limit, const leaf_setup& leaf)
      : node_(std::move(node)), leaf_limit_(leaf_limit), leaf_(leaf) {}

  NodePtr run(bool flat, bool idmap) {
    if (!collect()) return ::osg::NullFC;
    compile();
    say("Rebuilding Scene...");
    NodePtr tree = rebuild_branch(0, idmap);
    say("done.\n");
    if (flat) {
      tree = flat_tree(tree);
    } else {
      say("Building Scene Hierarchy\n");
      tree = buildGroupHierarchy(tree);
    }
    take_out_sources();
    return tree;
  }

 private:
  bool collect() {
    getGeometryNodes(node_, scene_.nodes, false);
    if (scene_.nodes.empty()) return false;
    say("Rebuilding Scene with " + std::to_string(scene_.nodes.size()) + " GeometryCore(s)...\n");
    return true;
  }

  void compile() {
    say("Compiling Scene KD");
    scene_.with_objects = true;
    scene_.node_count = static_cast<std::uint32_t>(scene_.nodes.size());
    scene_.setup(NodePtr(), {.leaf_size = leaf_limit_, .max_depth = 0, .strategy = 3});
    compile_tree(scene_, tree_, {.leaf_size = 1, .max_depth = 150, .strategy = 3},
                 kd_strategy_ObjMedian());
    say("\nScene KD compiled!\n");
    print_tree_statistics(tree_, scene_.size());
  }

  /// As deep as the tree: 150 levels at most.
  NodePtr rebuild_branch(std::uint64_t index, bool idmap) {
    const NodePtr out = makeGroup();
    const kd_node& node = tree_.nodes[index];
    const std::uint32_t triangles = count_node_triangles(tree_, scene_, index);
    if (triangles >= leaf_limit_ && !node.is_leaf()) {
      for (const auto side : {index + 1, static_cast<std::uint64_t>(node.right_child)})
        if (count_node_triangles(tree_, scene_, side) > 0)
          out->addChild(rebuild_branch(side, false));
      return out;
    }
    const NodePtr leaf = buildLeafGeometry(scene_, objects_below(index), leaf_);
    out->addChild(triangles > leaf_limit_ ? split_leaf(leaf, idmap) : leaf);
    return out;
  }

  /// Those of a subtree stand side by side.
  std::span<const std::uint64_t> objects_below(std::uint64_t index) const {
    const std::uint64_t count = tree_.count_elements(index);
    while (!tree_.nodes[index].is_leaf()) ++index;
    return {tree_.indices.get() + tree_.nodes[index].leaf_start, count};
  }

  NodePtr split_leaf(const NodePtr& leaf, bool idmap) const {
    std::vector<NodePtr> nodes;
    getGeometryNodes(leaf, nodes, false);
    const NodePtr all = makeGroup();
    for (const NodePtr& node : nodes) {
      osg_geoset set;
      extract(node, set, true, true, idmap, true, true);
      all->addChild(set.num_objects > 0 ? split(set) : node);
    }
    return all;
  }

  NodePtr split(osg_geoset& set) const {
    kd_tree tree;
    compile_tree(set, tree, {.leaf_size = leaf_limit_, .max_depth = 30, .strategy = 3},
                 kd_strategy_ObjMedian());
    return Splitmodel(tree, set, 0, leaf_limit_, NodePtr(), leaf_.level, true);
  }

  /// A result with gaps replaces nothing. A node that is no object is nowhere in it, and stays.
  void take_out_sources() {
    if (scene_.object_count == 0) return;
    std::vector<NodePtr> sources;
    for (const std::uint32_t node : scene_.object_nodes) sources.push_back(scene_.nodes[node]);
    source_nodes taken(node_, sources);
    if (ended_failures != failures_before_) throw std::bad_alloc();
    taken.take_out();
  }

  const NodePtr node_;
  const std::uint32_t leaf_limit_;
  const leaf_setup leaf_;
  const std::uint64_t failures_before_ = ended_failures;
  object_scene scene_;
  kd_tree tree_;
};

}  // namespace

NodePtr buildSceneTree(NodePtr node, const kd_build_setup& kd, bool flat, int opt, int optimizetc,
                       bool idmap) {
  if (!node) return node;
  const leaf_setup leaf{static_cast<unsigned>(opt), optimizetc};
  return scene_rebuild(std::move(node), kd.leaf_size, leaf).run(flat, idmap);
}

}  // namespace morlu::osg
