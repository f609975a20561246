// Geometry that takes too large a share of the scene's box, halved until it doesn't.

#include <algorithm>
#include <array>
#include <vector>

#include "finishing/core_building.h"
#include "finishing/rebuild.h"
#include "finishing/replacement.h"
#include "geoset/source.h"
#include "morlu/finishing.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::DynamicVolume;
using ::osg::Matrix;
using ::osg::NodePtr;
using box_size = ::osg::Vec3f;

// --- Boxes ---------------------------------------------------------------------------------------

/// Of the volume as it stands under a parent's matrix.
box_size size_in(DynamicVolume volume, const Matrix& world_from_parent) {
  volume.transform(world_from_parent);
  return volume.getMax() - volume.getMin();
}

/// Of the geometry alone, without what is below its node.
DynamicVolume own_volume(const NodePtr& node) {
  if (node->getNChildren() == 0) return node->getVolume(true);
  const NodePtr alone = ::osg::Node::create();
  alone->setCore(node->getCore());
  return alone->getVolume(true);
}

// --- Halves --------------------------------------------------------------------------------------

bool is_sound(const NodePtr& half) {
  const auto geometry = plain_geometry(half);
  return geometry && geometry->getPositions() && geometry->getLengths() && geometry->getTypes();
}

bool is_smaller(const NodePtr& half, const rebuilt& whole) {
  const box_size size = size_in(half->getVolume(true), Matrix());
  for (unsigned axis = 0; axis < 3; ++axis)
    if (size[axis] < whole.set.box.size[axis]) return true;
  return false;
}

/// Each half may hold as much as the whole where both refer to what stands on both sides.
bool all_less(const ::osg::Node& halves, const rebuilt& whole) {
  const auto is_less = [&](const NodePtr& half) {
    return elements_below(half).triangles < whole.taken || is_smaller(half, whole);
  };
  return is_less(halves.getChild(0)) && is_less(halves.getChild(1));
}

class share_split {
 public:
  share_split(const NodePtr& root, float max_share, unsigned max_depth, unsigned strategy,
              unsigned level)
      : max_share_(max_share), max_depth_(max_depth), strategy_(strategy), level_(level) {
    const NodePtr parent = root->getParent();
    const Matrix above = parent ? parent->getToWorld() : Matrix();
    scene_size_ = size_in(root->getVolume(true), above);
    pending_.push_back({root, above, 0});
  }

  void run() {
    while (!pending_.empty()) {
      place at = std::move(pending_.back());
      pending_.pop_back();
      if (at.depth >= max_depth_) continue;
      ++at.depth;
      push_children(at);
      if (plain_geometry(at.node) && is_too_large(at)) split(at);
    }
  }

 private:
  struct place {
    NodePtr node;
    Matrix world_from_parent;
    unsigned depth;
  };

  void push_children(const place& at) {
    const Matrix* own = at.node->getCore() ? at.node->getCore()->getLocalMatrix() : nullptr;
    const Matrix below = own ? at.world_from_parent * *own : at.world_from_parent;
    const auto children = at.node->getChildren();
    for (auto child = children.rbegin(); child != children.rend(); ++child)
      pending_.push_back({*child, below, at.depth});
  }

  /// A share that is not a number is not too large.
  bool is_too_large(const place& at) const {
    const box_size size = size_in(own_volume(at.node), at.world_from_parent);
    for (unsigned axis = 0; axis < 3; ++axis)
      if (size[axis] / scene_size_[axis] > max_share_) return true;
    return false;
  }

  void split(const place& at) {
    const NodePtr out =
        results_.of(at.node, static_cast<int>(level_), [&] { return halves_of(at.node); });
    if (!out) return;
    const std::array halves{out->getChild(0), out->getChild(1)};
    put_in_place(at.node, out);
    for (const auto& half : {halves[1], halves[0]})
      pending_.push_back({half, at.world_from_parent, at.depth});
  }

  /// A group of two, or null if the node is to stay as it is: where the plane leaves all on one
  /// side, for one.
  NodePtr halves_of(const NodePtr& node) const {
    rebuilt from;
    if (!rebuild(node, {.leaf_size = 1, .max_depth = 1, .strategy = strategy_}, from))
      return ::osg::NullFC;
    const NodePtr out = SplitmodelParts(from.tree, from.set, 0, 2, NodePtr(), level_, true);
    if (!out || out->getNChildren() < 2) return ::osg::NullFC;
    const bool first = is_sound(out->getChild(0)), second = is_sound(out->getChild(1));
    if (!first) say("SubChild 1\n");
    if (!second) say("SubChild 2\n");
    if (!first || !second || !if_complete(out, from)) return ::osg::NullFC;
    if (all_less(*out, from)) return out;
    say_stays(node, "morlu::osg::check_and_split", "halving makes it no smaller");
    return ::osg::NullFC;
  }

  const float max_share_;
  const unsigned max_depth_;
  const unsigned strategy_;
  const unsigned level_;
  box_size scene_size_;
  std::vector<place> pending_;
  shared_results results_;
};

}  // namespace

void check_and_split(NodePtr node, float maxShare, unsigned int maxDepth, int strategy, int level) {
  if (!node || maxDepth == 0) return;
  share_split(node, maxShare, maxDepth, static_cast<unsigned>(strategy),
              static_cast<unsigned>(level))
      .run();
}

}  // namespace morlu::osg
