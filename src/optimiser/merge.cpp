// The merge: geometry sorted by material, each group made into few large cores.

#include <osg/cores.h>

#include <string>
#include <vector>

#include "finishing/cache_optimisation.h"
#include "geoset/extract.h"
#include "geoset/guard.h"
#include "morlu/kd.h"
#include "morlu/optimiser.h"
#include "optimiser/merge_group.h"
#include "optimiser/moved_nodes.h"
#include "optimiser/scene_queries.h"
#include "optimiser/worker_pool.h"
#include "primitives/progress.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

constexpr unsigned entry_limit = 65533;  // two more, and indices still fit 16 bits

class scene_merge {
 public:
  scene_merge(const NodePtr& node, const kd_build_setup& kd, const mergeGeo_setup& setup,
              NodePtr& root)
      : node_(node), setup_(setup), root_(root) {
    constexpr unsigned cache_leaf_size = 3000000;
    kd_.leaf_size = setup.cacheopt ? cache_leaf_size : kd.leaf_size;
    kd_.max_depth = kd.max_depth;
    kd_.strategy = 3;
  }

  void run() {
    root_ = makeGroup();
    collect();
    group_by_material();
    prepare_sources();
    merge_groups();
    if (setup_.cacheopt) order_for_cache();
    move_transparent();
    move_hidden();
  }

 private:
  void collect() {
    if (setup_.alphageometry)
      getGeometryNodes(node_, nodes_, false);
    else
      getGeometryNodes(node_, nodes_, transparent_, false);
    if (setup_.keeprenderfalse) getTravMaskZeroNodes(node_, hidden_, false);
    if (!setup_.silent || setup_.cacheopt)
      say("Merging Geometry with " + std::to_string(nodes_.size()) + " GeometryCore(s)...\n");
  }

  void group_by_material() {
    groups_.same_name = setup_.mergesamename;
    groups_.no_material = setup_.ignorematerial;
    for (const NodePtr& node : nodes_)
      if (!isSkippedGeometry(node)) addToMaterialGroups(groups_, node, false);
    moveColorsOfSmallGroups(groups_, setup_.vertexcolor);
    say("Found " + std::to_string(groups_.groups.size()) + " different Materials.\n");
  }

  /// All that extraction would write to what workers share: volumes, cores without use for their
  /// texture coordinates, and names, whose ids so go by the order of the groups.
  void prepare_sources() {
    if (node_) node_->updateVolume();
    for (const auto& [material, group] : groups_.groups) {
      source_names names(setup_.toworld, bool{material}, !setup_.idmap.empty());
      for (const NodePtr& node : group) {
        cleanUpSource(node, setup_.deleteunusedtc);
        names.add(node);
      }
    }
  }

  void merge_groups() {
    const auto merge = setup_.mergehierarchy ? mergeMaterialGroupSpatial : mergeMaterialGroup;
    std::vector<const decltype(groups_.groups)::value_type*> groups;
    for (const auto& each : groups_.groups) groups.push_back(&each);
    std::vector<NodePtr> results(groups.size());
    worker_pool pool("MORLU_GEOMERGE", setup_.numthreads);
    pool.run(groups.size(), [&](std::size_t i) {
      const auto& [material, group] = *groups[i];
      results[i] = merge(material, group, kd_, setup_, merge_limit);
      ::osg::endEditCP(results[i]);
    });
    for (const NodePtr& result : results) root_->addChild(result);
    ::osg::endEditCP(root_);
    pool.rethrow();
    say("\rDone merging.        \n");
  }

  /// What is not done when a failure comes goes over as it is. The new root stands in the old one
  /// until it has all.
  void order_for_cache() {
    const NodePtr ordered = makeGroup();
    std::vector<NodePtr> nodes;
    getGeometryNodes(root_, nodes, false);
    say("Run Cacheopt...(" + std::to_string(nodes.size()) + ") Nodes.\n");
    std::vector<NodePtr> results = nodes;
    root_->addChild(ordered);
    worker_pool pool("MORLU_CACHEOPT", setup_.numthreads);
    pool.run(nodes.size(), [&](std::size_t i) {
      if (setup_.calcnormals)
        ::osg::Geometry::dcast(nodes[i]->getCore())->setNormals(::osg::NullFC);
      results[i] = ordered_or_whole(nodes[i]);
      ::osg::endEditCP(results[i]);
      if (!pool.uses_threads()) say_share_done(i, nodes.size());
    });
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      ordered->addChild(results[i]);
      if (const NodePtr above = nodes[i]->getParent(); results[i] != nodes[i])
        above->subChild(nodes[i]);
    }
    root_->subChild(ordered);
    root_ = ordered;
    pool.rethrow();
  }

  /// The node itself where ordering it has failed on the way.
  NodePtr ordered_or_whole(const NodePtr& node) const {
    bool was_split = false;
    const cache_result ordered = orderForCache(node, was_split, entry_limit, setup_.opt == 2);
    return ordered.is_whole ? ordered.node : node;
  }

  /// Cache order gives new names; the node above then has the old one, by which the node is known.
  void move_transparent() {
    for (const NodePtr& node : transparent_) {
      giveEffectiveMaterial(node);
      const char* const given = ::osg::getName(node);
      const std::string name = given && setup_.cacheopt ? given : "";
      const NodePtr ordered = setup_.cacheopt ? ordered_or_whole(node) : node;
      const NodePtr above = add_in_place(node, ordered);
      if (!name.empty()) ::osg::setName(above, name);
    }
  }

  void move_hidden() {
    for (const NodePtr& node : hidden_) {
      node->setTravMask(0);
      giveEffectiveMaterial(node);
      add_in_place(node, node);
    }
  }

  NodePtr add_in_place(const NodePtr& node, const NodePtr& shown) {
    const NodePtr above = transformOfPlace(node);
    root_->addChild(above);
    if (shown == node)
      moveBelow(node, above);
    else
      above->addChild(shown);
    return above;
  }

  const NodePtr& node_;
  const mergeGeo_setup& setup_;
  kd_build_setup kd_;
  NodePtr& root_;
  std::vector<NodePtr> nodes_;
  std::vector<NodePtr> transparent_;
  std::vector<NodePtr> hidden_;
  material_groups groups_;
};

}  // namespace

NodePtr mergeGeo(NodePtr node, const kd_build_setup& kd, const mergeGeo_setup& setup) {
  constexpr failure_texts texts{"bad_alloc caught in geomerge: ",
                                "Standard exception in geomerge: ", "Error occured in geomerge."};
  NodePtr root;
  guarded(
      texts, [&] { scene_merge(node, kd, setup, root).run(); }, [] {});
  if (!setup.silent) say("done.\n");
  return root;
}

}  // namespace morlu::osg
