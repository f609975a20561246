#include "optimiser/hierarchy.h"

#include <list>
#include <vector>

#include "kd/build.h"
#include "morlu/primitives.h"
#include "occlusion/scene_geoset.h"
#include "optimiser/moved_nodes.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

/// The node without its children, at its place in the world.
void move_into(const NodePtr& group, const NodePtr& node) {
  giveEffectiveMaterial(node);
  moveInPlace(node, group);
}

/// Adds what a tree holds below a node to a group, but for branches without geometry. As deep as
/// the tree: 150 levels at most.
template <class Scene>
void add_branch(const kd_tree& tree, const Scene& scene, std::uint64_t index,
                const NodePtr& group) {
  const kd_node& node = tree.nodes[index];
  if (node.is_leaf()) {
    for (std::uint32_t i = 0; i < node.leaf_count; ++i) {
      const auto object = tree.indices[static_cast<std::uint64_t>(node.leaf_start) + i];
      move_into(group, scene.object_node(static_cast<unsigned>(object)));
    }
    return;
  }
  for (const std::uint64_t side : {index + 1, static_cast<std::uint64_t>(node.right_child)}) {
    const NodePtr branch = makeGroup();
    group->addChild(branch);
    add_branch(tree, scene, side, branch);
    if (branch->getNChildren() == 0) group->subChild(branch);
  }
}

bool has_geometry(const NodePtr& node) {
  std::list<NodePtr> found;
  collect_geo_nodes(node, found);
  return !found.empty();
}

void move_rest(const NodePtr& scene, const NodePtr& root) {
  const std::vector<NodePtr> children(scene->getChildren().begin(), scene->getChildren().end());
  for (const NodePtr& child : children)
    if (child != root && has_geometry(child)) root->addChild(child);
}

}  // namespace

NodePtr buildHierarchy(const NodePtr& scene, bool takes_rest) {
  Morlu_osg_scene_geoset<bih_tree<float>> objects(scene, {2000000, 0}, false);
  kd_tree tree;
  compile_tree(objects, tree, {.leaf_size = 1, .max_depth = 150, .strategy = 3},
               kd_strategy_ObjMedian());
  const NodePtr root = makeGroup();
  if (!scene) return root;
  scene->addChild(root);  // what has moved is still in the scene, should the rest fail
  add_branch(tree, objects, 0, root);
  if (takes_rest) move_rest(scene, root);
  scene->subChild(root);
  return root;
}

/// What has no triangles, lines and points, is no object.
NodePtr buildGroupHierarchy(const NodePtr& scene) {
  Morlu_osg_scene_geoset<kd_tree> objects(
      scene, {.leaf_size = 20000000, .max_depth = 0, .strategy = 3}, true);
  kd_tree tree;
  compile_tree(objects, tree, {.leaf_size = 16, .max_depth = 150, .strategy = 3},
               kd_strategy_ObjMedian());
  const NodePtr root = makeGroup();
  add_branch(tree, objects, 0, root);
  std::vector<bool> is_object(objects.nodes.size());
  for (const std::uint32_t node : objects.object_nodes) is_object[node] = true;
  for (std::size_t i = 0; i < is_object.size(); ++i)
    if (!is_object[i]) move_into(root, objects.nodes[i]);
  return root;
}

}  // namespace morlu::osg
