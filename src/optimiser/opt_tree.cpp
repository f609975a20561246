// The optimisation of a scene from a text of options: stages in a fixed order.

#include <osg/material_merge.h>

#include "morlu/materials.h"
#include "morlu/occlusion.h"
#include "morlu/optimiser.h"
#include "optimiser/automated.h"
#include "optimiser/hierarchy.h"
#include "optimiser/id_map_handler.h"
#include "optimiser/id_map_output.h"
#include "optimiser/parameters.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

/// A node is out of its parent while this lives.
class detached {
 public:
  explicit detached(NodePtr& node) : node_(node), parent_(node->getParent()) {
    if (parent_) parent_->subChild(node);
  }
  /// What the node is by then returns, whether all went well or not.
  ~detached() {
    if (parent_) parent_->addChild(node_);
  }
  /// It stays out.
  void keep_out() { parent_ = ::osg::NullFC; }
  detached(const detached&) = delete;
  detached& operator=(const detached&) = delete;

 private:
  NodePtr& node_;
  NodePtr parent_;
};

class tree_optimisation {
 public:
  tree_optimisation(NodePtr& node, const param_map& params)
      : node_(node), options_(readTreeOptions(params)), setup_(readMergeGeoSetup(params)) {}

  NodePtr run() {
    settle_options();
    begin_id_map();
    show_help();
    widen_to_one_geometry();
    printMergeGeoSetup(setup_);
    reduce_materials();
    remove_alternatives();
    sample_occlusion();
    build_hulls();
    set_prefix();
    NodePtr result = node_;
    pack_textures(result);
    merge(result);
    build_hierarchy(result);
    end_id_map(result);
    place(result);
    return result;
  }

 private:
  void settle_options() {
    constexpr std::uint32_t largest_cache_leaf = 10;
    setup_.silent = true;
    if (options_.maxtris > largest_cache_leaf) setup_.cacheopt = false;
    getIdMapHandler().reset();
    if (options_.idmapinroot && setup_.idmap.empty()) {
      setup_.idmap = "metaOnly";
      writes_file_ = false;
    }
  }

  void begin_id_map() {
    if (!setup_.idmap.empty()) recordTree(getIdMapHandler(), node_, 0);
  }

  void show_help() {
    if (options_.help) say("Available parameters are: \n" + optTreeDoc());
  }

  void widen_to_one_geometry() {
    if (!options_.onegeometry) return;
    setup_.alphageometry = true;
    options_.mostusedmaterial = true;
    options_.maxtris = 2000000;
  }

  void reduce_materials() {
    if (options_.mostusedmaterial) reduceSceneMaterialsToOne(node_);
  }

  void remove_alternatives() {
    if (options_.removelod) {
      say("Removing LOD parts.\n");
      removeLODParts(node_);
    }
    if (options_.removeswitch) {
      say("Removing Switch parts.\n");
      removeSwitchParts(node_);
    }
  }

  void sample_occlusion() {
    constexpr int gut_out_samples = 15;
    if (options_.ambientgutout) {
      say("Gut out model with ambient occlusion\n");
      gutOutModelPerAmbientOcclusion(node_, gut_out_samples, 0.0f, 1);
    }
    if (options_.ambientocclusion != 0) {
      say("Adding ambient occlusion\n");
      AddAmbientOcclusion(node_, true, static_cast<int>(options_.ambientocclusion), 1);
    }
  }

  void build_hulls() {
    constexpr unsigned hull_samples = 3;
    if (options_.buildhull)
      node_ = buildModelHull(node_, setup_, options_.maxtris, hull_samples, true);
    if (options_.buildhullwithcolors)
      node_ = buildModelHullWithVertexColors(node_, options_.maxtris);
    if (options_.buildhull || options_.buildhullwithcolors) setup_.cacheopt = true;
  }

  void set_prefix() {
    if (options_.prefix) getIdMapHandler().prefix = *options_.prefix;
  }

  void pack_textures(const NodePtr& result) {
    if (options_.maxtexturesize == 0) return;
    createTextureAtlasForScene(result, options_.maxtexturesize,
                               static_cast<unsigned>(setup_.texcoords),
                               static_cast<unsigned>(setup_.optimizetc));
    // Atlas coordinates stay as they are.
    setup_.texcoords = -1;
    setup_.optimizetc = -1;
  }

  void merge(NodePtr& result) {
    if (options_.maxtris == 0 && !setup_.cacheopt) return;
    say(setup_.cacheopt ? "Merge Geometry. Cacheopt: 1\n" : "Merge Geometry. Cacheopt: 0\n");
    result =
        mergeGeo(result, {.leaf_size = options_.maxtris, .max_depth = 100, .strategy = 3}, setup_);
    getIdMapHandler().merged = true;
  }

  void build_hierarchy(NodePtr& result) {
    if (setup_.flat) return;
    say("Building Scene Hierarchy for final scenegraph...\n");
    result = buildHierarchy(result, result != node_);
    say("done.\n");
  }

  void end_id_map(const NodePtr& result) {
    if (setup_.idmap.empty()) return;
    collectGeometry(getIdMapHandler(), result);
    if (writes_file_) writeJson(getIdMapHandler(), setup_.idmap);
    if (options_.idmapinroot) attachToRoot(result);
  }

  void place(const NodePtr& result) {
    if (options_.centerBB) transformSceneBB(result, *options_.centerBB);
  }

  NodePtr& node_;
  tree_options options_;
  mergeGeo_setup setup_;
  bool writes_file_ = true;
};

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): texts of operations go by value
NodePtr optTree(NodePtr node, std::string params) {
  if (!node) return node;
  say("Optimizing Tree...\n");
  NodePtr input = node;  // what a stage may replace
  detached out_of_place(input);
  ::osg::MaterialMergeGraphOp("MaterialMerge").traverse(input);
  if (!params.empty()) return tree_optimisation(input, parseOptParams(params)).run();
  const NodePtr result = optAutomated(input);
  out_of_place.keep_out();
  return result;
}

}  // namespace morlu::osg
