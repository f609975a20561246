// Geometry of too many indices, halved by the merge.
//
// A walk goes through the children of a group as through a queue: what is split leaves its place,
// and what came of it is appended and met again in its turn. That is the order of a recursion which
// begins anew at the parent after each split, without walking what is done again.

#include <osg/cores.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "finishing/core_building.h"
#include "finishing/rebuild.h"
#include "finishing/replacement.h"
#include "finishing/snapshot_walk.h"
#include "kd/compile_tree.h"
#include "kd/large_leaves.h"
#include "kd/strategies.h"
#include "morlu/finishing.h"
#include "morlu/kd.h"
#include "morlu/optimiser.h"
#include "primitives/node_moves.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::GeometryPtr;
using ::osg::NodePtr;

constexpr kd_build_setup halving{.leaf_size = 10, .max_depth = 1, .strategy = 3};

GeometryPtr geometry_of(const NodePtr& node) {
  return ::osg::Geometry::dcast(node->getCore());
}

std::size_t indices_of(const NodePtr& node) {
  const GeometryPtr geometry = geometry_of(node);
  return geometry && geometry->getIndices() ? geometry->getIndices()->size() : 0;
}

struct pieces {
  std::size_t count = 0;
  std::size_t most_indices = 0;

  /// As deep as a result: few levels.
  void add(const NodePtr& node) {
    count += !geometry_of(node).isNull();
    most_indices = std::max(most_indices, indices_of(node));
    for (const NodePtr& child : node->getChildren()) add(child);
  }
};

/// Texture coordinates stay as they are: shifted by whole numbers, textures that clamp or mirror
/// look different, and those for an image above the node would count as unused. Transparent
/// geometry is halved like any other.
mergeGeo_setup setup_for(const NodePtr& node, int level) {
  mergeGeo_setup setup;
  setup.opt = level;
  setup.silent = true;
  setup.toworld = false;
  setup.alphageometry = true;
  setup.optimizetc = 0;
  setup.deleteunusedtc = !may_use_tex_coords(node);
  return setup;
}

/// The halves, of one leaf, of a set that holds the node's elements of one kind.
template <class Set>
void add_halves(Set& set, int level, const NodePtr& to) {
  if (set.num_objects == 0) return;
  kd_tree tree;
  compile_tree(set, tree, {.leaf_size = ~0u, .max_depth = 1, .strategy = 3},
               kd_strategy_ObjMedian());
  const auto half = static_cast<unsigned>(set.num_objects - set.num_objects / 2);
  part_large_leaves(tree, set, half);
  to->addChild(Splitmodel(tree, set, 0, half, NodePtr(), static_cast<unsigned>(level), false));
}

/// In halves by rank, of what no plane of the merge has parted.
NodePtr halves_by_rank(const NodePtr& node, int level) {
  const NodePtr result = makeGroup();
  const auto add = [&](auto set, const auto& take) {
    set->setVertexCapacity(geometry_of(node)->getIndices()->size());
    take(*set);
    add_halves(*set, level, result);
  };
  add(std::make_unique<osg_geoset>(), [&](osg_geoset& set) {
    extract(node, set, false, false, false, true, !may_use_tex_coords(node));
  });
  add(std::make_unique<osg_line_geoset>(),
      [&](osg_line_geoset& set) { extractLines(node, set, false, false, false, true); });
  add(std::make_unique<osg_point_geoset>(),
      [&](osg_point_geoset& set) { extractPoints(node, set, false, false, false, true); });
  return result;
}

/// The node's geometry in halves, as the merge makes them of a node that stands alone. Null, with a
/// line, where it is to stay.
NodePtr halves_of(const NodePtr& node, int level) {
  const auto stays = [&](const char* reason) {
    say_stays(node, "morlu::osg::maxGeoIndexSize", reason);
    return NodePtr();
  };
  const element_counts usable = usable_elements(*geometry_of(node));
  if (usable.sum() <= 1) return stays("it is a single primitive or none");
  const NodePtr alone = ::osg::Node::create();
  alone->setCore(node->getCore());
  const NodePtr result = mergeGeo(alone, halving, setup_for(node, level));
  if (!elements_below(result).holds(usable)) return stays("its halves don't hold all of it");
  pieces halves;
  halves.add(result);
  if (halves.count > 1 || halves.most_indices < indices_of(node)) return result;
  if (usable.sum() < halving.leaf_size) return stays("so few elements are not halved");
  const NodePtr by_rank = halves_by_rank(node, level);
  return elements_below(by_rank).holds(usable) ? by_rank : stays("its halves don't hold all of it");
}

class index_split {
 public:
  explicit index_split(unsigned max_indices) : limit_(std::max(max_indices, 1u)) {}

  unsigned limit() const { return limit_; }
  unsigned splits() const { return splits_; }

  /// Halves a geometry at `level`, and at level 2 what comes of it and all below its parent; below
  /// another node all at level 2.
  void apply(const NodePtr& node, int level) {
    const NodePtr parent = node->getParent();
    if (!geometry_of(node)) return walk(node);
    const NodePtr halved = halve(node, level);
    if (!halved) return walk(node);
    if (parent) walk(parent);
    walk(halved);
  }

 private:
  static constexpr int level_below = 2;

  struct place {
    NodePtr node;
    ::osg::UInt32 next = 0;
  };

  void walk(const NodePtr& root) {
    std::vector<place> open;
    const auto begin = [&](const NodePtr& node) {
      if (node->getNChildren() > 0 && walked_.insert(node).second) open.push_back({node});
    };
    begin(root);
    while (!open.empty()) {
      place& at = open.back();
      if (at.next == at.node->getNChildren()) {
        open.pop_back();
        continue;
      }
      const NodePtr child = at.node->getChild(at.next);
      halve(child, level_below);
      if (child->getParent() != at.node) continue;  // the next has moved up
      ++at.next;
      begin(child);
    }
  }

  /// What has the node's place now; null if it is within the limit or stays.
  NodePtr halve(const NodePtr& node, int level) {
    if (indices_of(node) <= limit_ || stays_.contains(node)) return ::osg::NullFC;
    const NodePtr result = results_.of(node, level, [&] { return halves_of(node, level); });
    if (!result) {
      stays_.insert(node);
      return result;
    }
    const NodePtr halved = append_in_place(node, result);
    ++splits_;
    return halved;
  }

  /// Behind the parent's other children, which is never without one.
  static NodePtr append_in_place(const NodePtr& node, const NodePtr& result) {
    const NodePtr parent = node->getParent();
    if (!parent || node->getNChildren() > 0) return put_in_place(node, result);
    carry_over(node, result);
    const NodePtr spare = parent->getNChildren() == 1 ? ::osg::Node::create() : NodePtr();
    parent->addChild(spare);
    try {
      parent->addChild(result);
    } catch (...) {
      parent->subChild(spare);
      throw;
    }
    parent->subChild(node);
    parent->subChild(spare);
    return result;
  }

  const unsigned limit_;
  unsigned splits_ = 0;
  std::set<NodePtr> walked_;  // below which all is done
  std::set<NodePtr> stays_;
  shared_results results_;
};

/// The whole geometry as one core.
NodePtr in_one_core(const NodePtr& node, int level) {
  rebuilt from;
  if (!rebuild(node, {.leaf_size = 5, .max_depth = 1, .strategy = 3}, from)) return ::osg::NullFC;
  return if_complete(
      SplitmodelParts(from.tree, from.set, 0, 1, NodePtr(), static_cast<unsigned>(level), true),
      from);
}

int checked_level(int level) {
  if (level >= 1 && level <= 3) return level;
  say("morlu::osg::split_GeometriesByIndex: OptLevel set to 1. Range [1-3].\n");
  return 1;
}

}  // namespace

void split_GeometriesByIndex(NodePtr node, unsigned int maxIndices, bool force, int level) {
  if (!node || !node->getCore()) return;
  const int form = checked_level(level);
  index_split split(maxIndices);
  shared_results whole;
  const auto treat = [&](const NodePtr& each) {
    const bool is_indexed = !geometry_of(each)->getIndices().isNull();
    if (is_indexed && indices_of(each) >= split.limit()) return split.apply(each, form);
    if (is_indexed && !force) return;
    const NodePtr core = whole.of(each, form, [&] { return in_one_core(each, form); });
    if (core) split.apply(put_in_place(each, core), form);
  };
  for_each_of_snapshot(node, [&](const NodePtr& each) {
    if (geometry_of(each) && each->getParent()) treat(each);
    return !each->getCore().isNull();
  });
}

unsigned int maxGeoIndexSize(NodePtr node, unsigned int maxIndices, int level, bool) {
  if (!node) return 0;
  index_split split(maxIndices);
  split.apply(node, level);
  return split.splits();
}

NodePtr optGeometry(GeometryPtr geometry, unsigned int maxTris, int level) {
  const NodePtr node = ::osg::Node::create();
  node->setCore(geometry);
  mergeGeo_setup setup;
  setup.opt = level;
  setup.silent = true;
  return mergeGeo(node, {.leaf_size = std::max(maxTris, 1u), .max_depth = 100, .strategy = 3},
                  setup);
}

}  // namespace morlu::osg
