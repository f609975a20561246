// Which runs of a tree's elements become cores. The walk keeps its own stack, so that a tree may be
// as deep as it likes; each group joins its parent when all below it is built.
#include <osg/cores.h>
#include <osg/geometry.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "finishing/core_building.h"
#include "primitives/node_moves.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

void add_child(const NodePtr& group, const NodePtr& child) {
  ::osg::beginEditCP(group, ::osg::Node::ChildrenFieldMask);
  group->addChild(child);
  ::osg::endEditCP(group, ::osg::Node::ChildrenFieldMask);
}

/// Entries of `kd_tree::indices`.
struct run {
  unsigned first = 0;
  unsigned count = 0;
};

/// What the leaves below each node hold, which is one run, as leaves follow each other from left to
/// right. Children have higher numbers than their parents.
std::vector<run> runs_of(const kd_tree& tree, unsigned index) {
  std::vector<run> runs(tree.stats.nodes + 1);
  for (std::size_t n = runs.size(); n-- > index;) {
    const kd_node& node = tree.nodes[n];
    if (node.is_leaf()) {
      runs[n] = {static_cast<unsigned>(node.leaf_start), node.leaf_count};
    } else {
      const run& left = runs[n + 1];
      runs[n] = {left.first, left.count + runs[static_cast<std::size_t>(node.right_child)].count};
    }
  }
  return runs;
}

/// A subtree to be built, and into how many cores; 0 and less go by size.
struct subtree {
  unsigned index;
  int parts;
};

/// A node whose `subtrees` from `next` on are still to be built and added.
struct unfinished {
  NodePtr node;
  std::array<subtree, 2> subtrees{};
  unsigned count = 0;
  unsigned next = 0;

  void add(const subtree& below) { subtrees[count++] = below; }
};

template <class Set>
class core_walk {
 public:
  core_walk(const kd_tree& tree, const Set& set, unsigned index, unsigned limit, unsigned level,
            bool calcnormals)
      : tree_(tree),
        set_(set),
        runs_(runs_of(tree, index)),
        limit_(limit),
        level_(level),
        calcnormals_(calcnormals) {}

  NodePtr build(const subtree& all) const {
    std::vector<unfinished> open;
    open.push_back(begin(all));
    while (true) {
      unfinished& last = open.back();
      if (last.next < last.count) {
        open.push_back(begin(last.subtrees[last.next++]));
        continue;
      }
      const NodePtr done = last.node;
      open.pop_back();
      if (open.empty()) return done;
      add_child(open.back().node, done);
    }
  }

  NodePtr pair(unsigned index) const {
    const NodePtr group = makeGroup();
    add_child(group, core(left_of(index)));
    add_child(group, core(right_of(index)));
    return group;
  }

 private:
  unsigned left_of(unsigned index) const { return index + 1; }
  unsigned right_of(unsigned index) const {
    return static_cast<unsigned>(tree_.nodes[index].right_child);
  }
  NodePtr core(unsigned index) const {
    return MakeGeoCore(tree_, set_, runs_[index].first, runs_[index].count, level_, calcnormals_);
  }

  unfinished begin(const subtree& at) const {
    if (at.parts == 1 || tree_.nodes[at.index].is_leaf()) return {core(at.index)};
    const bool fits = runs_[at.index].count <= limit_;
    if (!fits && at.parts == 2) return {pair(at.index)};
    unfinished group{makeGroup()};
    if (fits)
      add_child(group.node, core(at.index));
    else
      share_out(at, group);
    return group;
  }

  void share_out(const subtree& at, unfinished& group) const {
    const unsigned left = left_of(at.index), right = right_of(at.index);
    const unsigned in_left = runs_[left].count, in_right = runs_[right].count;
    if (at.parts <= 0) {
      if (in_left > 0) group.add({left, 0});
      if (in_right > 0) group.add({right, 0});
      return;
    }
    const int parts = partsForLeft(in_left, in_right, at.parts);
    if (parts > 0) group.add({left, parts});
    if (at.parts > parts) group.add({right, at.parts - parts});
  }

  const kd_tree& tree_;
  const Set& set_;
  std::vector<run> runs_;
  unsigned limit_;
  unsigned level_;
  bool calcnormals_;
};

/// A geometry's place in the scene is below the group.
NodePtr with_core_of(const NodePtr& group, NodePtr root) {
  const auto core = ::osg::MaterialGroup::dcast(group ? group->getCore() : ::osg::NullFC);
  if (!core || !root) return root;
  if (::osg::Geometry::dcast(root->getCore())) {
    const NodePtr above = ::osg::Node::create();
    add_child(above, root);
    root = above;
  }
  ::osg::beginEditCP(root, ::osg::Node::CoreFieldMask);
  root->setCore(core);
  ::osg::endEditCP(root, ::osg::Node::CoreFieldMask);
  return root;
}

}  // namespace

int partsForLeft(unsigned left, unsigned right, int parts) {
  if (left == 0) return 0;
  if (right == 0) return parts;
  const auto total = static_cast<float>(std::uint64_t{left} + right);
  const float share = static_cast<float>(left) / total * static_cast<float>(parts) + 0.5f;
  const int most = std::max(parts - 1, 1);
  return share < static_cast<float>(most) ? std::max(static_cast<int>(share), 1) : most;
}

template <class Set>
NodePtr splitmodelNode(const kd_tree& tree, const Set& set, unsigned index, int parts,
                       unsigned limit, unsigned level, bool calcnormals) {
  return core_walk<Set>(tree, set, index, limit, level, calcnormals).build({index, parts});
}

template <class Set>
NodePtr splitmodelPair(const kd_tree& tree, const Set& set, unsigned index, unsigned level,
                       bool calcnormals) {
  return core_walk<Set>(tree, set, index, 0, level, calcnormals).pair(index);
}

template <class Set>
NodePtr Splitmodel(const kd_tree& tree, const Set& set, unsigned index, unsigned limit,
                   const NodePtr& group, unsigned level, bool calcnormals) {
  return with_core_of(group, splitmodelNode(tree, set, index, 0, limit, level, calcnormals));
}

template <class Set>
NodePtr SplitmodelParts(const kd_tree& tree, const Set& set, unsigned index, int parts,
                        const NodePtr& group, unsigned level, bool calcnormals) {
  const bool by_leaf = std::cmp_greater(parts, tree.stats.leaves);
  return with_core_of(group,
                      splitmodelNode(tree, set, index, by_leaf ? 0 : parts, 0, level, calcnormals));
}

#define MORLU_BUILDS_CORES_OF(Set)                                                               \
  template NodePtr splitmodelNode(const kd_tree&, const Set&, unsigned, int, unsigned, unsigned, \
                                  bool);                                                         \
  template NodePtr splitmodelPair(const kd_tree&, const Set&, unsigned, unsigned, bool);         \
  template NodePtr Splitmodel(const kd_tree&, const Set&, unsigned, unsigned, const NodePtr&,    \
                              unsigned, bool);                                                   \
  template NodePtr SplitmodelParts(const kd_tree&, const Set&, unsigned, int, const NodePtr&,    \
                                   unsigned, bool);
MORLU_BUILDS_CORES_OF(osg_geoset)
MORLU_BUILDS_CORES_OF(osg_line_geoset)
MORLU_BUILDS_CORES_OF(osg_point_geoset)
#undef MORLU_BUILDS_CORES_OF

}  // namespace morlu::osg
