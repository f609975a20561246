// Ways through the optimiser that no option selects: fixed choices, and geometry that stays out.
//
// Each geometry is in the input or in what is made of it, never in both, at any step; if a step
// fails, what is made returns into the input.

#include "optimiser/automated.h"

#include <osg/cores.h>
#include <osg/geometry.h>

#include <algorithm>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "geoset/guard.h"
#include "geoset/source.h"
#include "morlu/materials.h"
#include "morlu/optimiser.h"
#include "optimiser/scene_queries.h"
#include "optimiser/source_nodes.h"
#include "primitives/node_moves.h"
#include "primitives/node_walk.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

bool is_geometry(const NodePtr& node) {
  return !::osg::Geometry::dcast(node->getCore()).isNull();
}

std::size_t count_geometry(const NodePtr& node) {
  std::size_t count = 0;
  for_each_node(node, [&](const NodePtr& each) { count += is_geometry(each); });
  return count;
}

/// A group of places that nodes can take without memory.
NodePtr group_with_places(unsigned count) {
  const NodePtr group = makeGroup();
  for (unsigned i = 0; i < count; ++i) group->addChild(makeGroup());
  return group;
}

/// The same for nodes in world space that are to hang below `node`.
NodePtr world_with_places(const NodePtr& node, unsigned count) {
  const NodePtr world = group_with_places(count);
  const auto transform = ::osg::Transform::create();
  transform->setMatrix(node->getToWorld().inverse());
  world->setCore(transform);
  return world;
}

/// The node below what stands for all that was above it.
NodePtr out_of_graph(const NodePtr& node) {
  const NodePtr parent = node->getParent();
  if (!parent) return node;
  const NodePtr painter = searchMaterialGroup(node);
  const NodePtr placed = transformOfPlace(parent), top = makeGroup();
  if (painter) top->setCore(painter->getCore());
  top->addChild(placed);
  placed->addChild(node);
  return top;
}

NodePtr below_group(const NodePtr& node) {
  const NodePtr group = makeGroup();
  group->addChild(out_of_graph(node));
  return group;
}

/// A merge of what can be merged, and what then becomes of the rest.
class parted_scene {
 public:
  parted_scene(NodePtr node, const kd_build_setup& kd, const mergeGeo_setup& setup)
      : node_(std::move(node)), kd_(kd), setup_(setup) {
    std::vector<NodePtr> nodes;
    getGeometryNodes(node_, nodes, false);
    sources_.emplace(node_, nodes);
    others_ = count_geometry(node_) -
              static_cast<std::size_t>(std::count_if(nodes.begin(), nodes.end(), plain_geometry));
    const NodePtr back = world_with_places(node_, 2);
    node_->addChild(back);
    way_back_ = back;
  }
  parted_scene(const parted_scene&) = delete;
  parted_scene& operator=(const parted_scene&) = delete;
  ~parted_scene() {
    if (way_back_) give_back();
  }

  /// What `mergeGeo` makes of the scene, and below that what it leaves, if there is anything.
  NodePtr merged() {
    const bool is_whole = merge();
    if (is_whole && others_ == 0) return finished(made_->getChild(0));
    if (is_whole) sources_->take_out();
    made_->getChild(0)->addChild(node_);
    return finished(made_->getChild(0));
  }

  /// The merged scene rebuilt, and beside that, unless it `drops_rest`, what stays out.
  NodePtr rebuilt(bool drops_rest) {
    if (merge()) sources_->take_out();
    first_ = rebuild(node_);
    set_bare_aside();
    const NodePtr result = group_with_places(4);
    const NodePtr rest = drops_rest ? NodePtr() : out_of_graph(node_);
    const NodePtr second = rebuild(made_);
    // Nothing may fail from here on.
    const bool has_more = count_geometry(made_) > 0;
    const NodePtr parts[] = {first_, second, has_more ? made_ : NodePtr(), rest};
    for (unsigned i = 4; i-- > 0;) result->replaceChildBy(result->getChild(i), parts[i]);
    return finished(result);
  }

 private:
  /// True if merged nodes can take the place of their sources. Where they have gaps they go, and
  /// only what the merge has moved stays.
  bool merge() {
    const std::uint64_t failures_before = ended_failures;
    const NodePtr merged = mergeGeo(node_, kd_, setup_);
    if (!merged) return false;
    made_->replaceChildBy(made_->getChild(0), merged);
    if (ended_failures == failures_before) return true;
    for (unsigned i = merged->getNChildren(); i-- > 0;) {
      const NodePtr child = merged->getChild(i);
      if (child->getNChildren() == 0 || !sources_->has_moved(child->getChild(0)))
        merged->subChild(child);
    }
    return false;
  }

  NodePtr rebuild(const NodePtr& scene) const {
    return buildSceneTree(scene, kd_, setup_.flat, setup_.opt, setup_.optimizetc,
                          !setup_.idmap.empty());
  }

  /// What the first rebuild has left without a material takes part in the second.
  void set_bare_aside() {
    std::vector<NodePtr> nodes;
    getGeometryNodes(first_, nodes, false);
    std::erase_if(nodes, [](const NodePtr& node) { return bool{getEffectiveMaterial(node)}; });
    if (nodes.empty()) return;
    const NodePtr bare = makeGroup();
    made_->addChild(bare);
    for (const NodePtr& node : nodes) bare->addChild(node);
  }

  void give_back() {
    way_back_->replaceChildBy(way_back_->getChild(0), made_);
    if (first_) way_back_->replaceChildBy(way_back_->getChild(1), first_);
  }

  NodePtr finished(const NodePtr& result) {
    node_->subChild(way_back_);
    way_back_ = ::osg::NullFC;
    return result;
  }

  const NodePtr node_;
  const kd_build_setup& kd_;
  const mergeGeo_setup& setup_;
  std::optional<source_nodes> sources_;
  std::size_t others_ = 0;  // geometry that the merge leaves
  const NodePtr made_ = group_with_places(1);
  NodePtr first_;
  NodePtr way_back_;  // where all that is made returns if it doesn't come to an end
};

kd_build_setup automated_tree() {
  return {.leaf_size = 25000, .max_depth = 100, .strategy = 3};
}

mergeGeo_setup automated_merge() {
  mergeGeo_setup setup;
  setup.silent = true;
  setup.cacheopt = true;
  return setup;
}

bool has_textures(const NodePtr& node) {
  std::vector<NodePtr> nodes;
  getGeometryNodes(node, nodes, false);
  return std::any_of(nodes.begin(), nodes.end(), hasMaterialImage);
}

}  // namespace

NodePtr optAutomated(const NodePtr& node) {
  say("Optimization called withoud parameters. Automated optimization started.\n"
      "Available parameters are: \n" +
      optTreeDoc());
  const kd_build_setup kd = automated_tree();
  mergeGeo_setup setup = automated_merge();
  if (countSkippedGeometry(node) > 0) {
    say("Optimizing: Some Nodes are skipped.\n");
    return optWithSkippedGeo(node, setup, kd, false, false);
  }
  if (has_textures(node)) {
    createTextureAtlasForScene(node, 4096, 2, 2);
    setup.texcoords = -1;
    setup.optimizetc = -1;
  }
  return parted_scene(is_geometry(node) ? below_group(node) : node, kd, setup).merged();
}

NodePtr optWithSkippedGeo(NodePtr node, mergeGeo_setup setup, kd_build_setup kd, bool noTexLimit,
                          bool dropSource) {
  if (!node) return node;
  say("Optimizing Geometry and Textures.\n");
  if (is_geometry(node)) node = below_group(node);
  deleteTravMaskZeroNodes(node);
  removeNonGeoParts(node);
  if (noTexLimit) setup.texcoords = -1;
  const NodePtr result = parted_scene(node, kd, setup).rebuilt(dropSource);
  try {
    RemoveGroupNodes(result);
    std::vector<NodePtr> nodes;
    getGeometryNodes(result, nodes, false);
    say("\nRebuilded Scene contains " + std::to_string(nodes.size()) + " Geometrycores.\n");
  } catch (const std::bad_alloc&) {  // nothing of the scene depends on it
  }
  return result;
}

}  // namespace morlu::osg
