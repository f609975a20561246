#include "osg/node.h"

#include <algorithm>
#include <memory_resource>

#include "mutexes.h"

namespace osg {

Node::Node(const Node& other) : ContainerClass(other), trav_mask_(other.trav_mask_) {
  setCore(other.core_);
}

Node::~Node() {
  {
    const std::lock_guard lock(detail::link_mutex());
    unlink_core();
  }
  for (const NodePtr& child : getChildren())
    child->parent_.store(nullptr, std::memory_order_relaxed);
}

// --- Core ----------------------------------------------------------------------------------------

void Node::setCore(const NodeCorePtr& core) {
  if (core == core_) return;
  const NodeCorePtr old = core_;  // its last reference goes when no lock is held any more
  {
    const std::lock_guard lock(detail::link_mutex());
    if (core) core->nodes_.push_back(this);  // what may fail comes before the first change
    unlink_core();
    core_ = core;
    link_core();
  }
  invalidateVolume();
}

/// Takes the last place in the core's list, which has been made. Under the link mutex, as below.
void Node::link_core() {
  if (core_) slot_in_core_ = core_->nodes_.size() - 1;
}

void Node::unlink_core() {
  if (!core_) return;
  std::vector<Node*>& nodes = core_->nodes_;
  nodes[slot_in_core_] = nodes.back();
  nodes[slot_in_core_]->slot_in_core_ = slot_in_core_;
  nodes.pop_back();
}

// --- Children ------------------------------------------------------------------------------------

void Node::addChild(const NodePtr& child) {
  if (!can_adopt(child)) return;
  const NodePtr held = child;  // `child` may be the very handle that leaves a list now
  if (children_.size() == children_.capacity()) children_.reserve(2 * children_.size() + 1);
  held->unlink_from_parent();  // what may fail came before
  children_.push_back(held);
  adopt(*held, children_.size() - 1);
}

void Node::subChild(const NodePtr& child) {
  if (!child || child->parent_.load(std::memory_order_relaxed) != this) return;
  const NodePtr held = child;
  held->unlink_from_parent();
}

bool Node::replaceChildBy(const NodePtr& old_child, const NodePtr& new_child) {
  if (!old_child || old_child->parent_.load(std::memory_order_relaxed) != this) return false;
  if (old_child == new_child) return true;
  if (!new_child) {
    subChild(old_child);
    return true;
  }
  if (!can_adopt(new_child)) return false;
  const NodePtr old_held = old_child;
  const NodePtr new_held = new_child;
  new_held->unlink_from_parent();  // may be another child of this node: look up places after it
  const std::size_t place = find_child(*old_held);
  children_[place] = new_held;
  old_held->parent_.store(nullptr, std::memory_order_relaxed);
  adopt(*new_held, place);
  return true;
}

/// Climbs from both nodes in step: what comes from below this node, or from beside it, is known to
/// after as many steps, however deep this node lies.
bool Node::can_adopt(const NodePtr& child) const {
  if (!child) return false;
  if (child->getChildren().empty()) return child.get() != this;
  const auto above = [](const Node* node) {
    return node ? node->parent_.load(std::memory_order_relaxed) : nullptr;
  };
  const Node* above_child = child.get();
  for (const Node* node = this; node;) {
    if (node == child.get()) return false;
    node = above(node);
    above_child = above(above_child);
    if (above_child && (above_child == this || above_child == node)) return true;
  }
  return true;
}

/// Links what stands at `place` of the list back to this node.
void Node::adopt(Node& child, std::size_t place) {
  child.slot_hint_ = place + dropped_nulls_;
  child.parent_.store(this, std::memory_order_relaxed);
  invalidateVolume();
}

void Node::unlink_from_parent() {
  Node* parent = parent_.load(std::memory_order_relaxed);
  if (!parent) return;
  parent->erase_child(parent->find_child(*this));
  parent_.store(nullptr, std::memory_order_relaxed);
  parent->invalidateVolume();
}

/// Searches outward from where the child once was put: removals shift it by little.
std::size_t Node::find_child(const Node& child) const {
  const std::size_t hint = child.slot_hint_ - std::min(child.slot_hint_, dropped_nulls_);
  std::size_t below = std::clamp(hint, first_child_, children_.size() - 1);
  for (std::size_t above = below;; ++above) {
    if (above < children_.size() && children_[above].get() == &child) return above;
    if (children_[below].get() == &child) return below;
    if (below > first_child_) --below;
  }
}

/// Shifts the shorter side of the list over the gap.
void Node::erase_child(std::size_t place) {
  const auto at = children_.begin() + static_cast<std::ptrdiff_t>(place);
  if (place - first_child_ >= getChildren().size() / 2) {
    children_.erase(at);
  } else {
    const auto first = children_.begin() + static_cast<std::ptrdiff_t>(first_child_);
    std::move_backward(first, at, at + 1);
    children_[first_child_++] = NullFC;
  }
  const std::size_t nulls = first_child_;
  if (nulls >
      children_.size() - nulls) {  // more nulls than children: cut them, at constant cost each
    children_.erase(children_.begin(), children_.begin() + static_cast<std::ptrdiff_t>(nulls));
    dropped_nulls_ += nulls;
    first_child_ = 0;
  }
}

// --- Matrices and volumes ------------------------------------------------------------------------

namespace {

/// A stack for what stands on a way through a graph. The first entries take no memory from the
/// heap, so that nothing fails in graphs of usual depth.
template <class Entry>
class WayStack {
 public:
  WayStack() { entries.reserve(kUsualDepth); }

 private:
  static constexpr std::size_t kUsualDepth = 64;
  alignas(Entry) std::byte room_[kUsualDepth * sizeof(Entry)];
  std::pmr::monotonic_buffer_resource memory_{room_, sizeof room_};

 public:
  std::pmr::vector<Entry> entries{&memory_};
};

}  // namespace

TransformationMatrix<Real32> Node::getToWorld() const {
  WayStack<const TransformationMatrix<Real32>*> way;
  auto& below_root = way.entries;  // from here upwards
  const Node* node = this;
  for (const Node* parent; (parent = node->parent_.load(std::memory_order_relaxed)); node = parent)
    if (const auto* own = node->core_ ? node->core_->getLocalMatrix() : nullptr)
      below_root.push_back(own);
  const auto* of_root = node->core_ ? node->core_->getLocalMatrix() : nullptr;
  auto world = of_root ? *of_root : TransformationMatrix<Real32>();
  for (auto own = below_root.rbegin(); own != below_root.rend(); ++own) world *= **own;
  return world;
}

DynamicVolume Node::getVolume(bool update) const {
  if (update) updateVolume();
  if (volume_state_.load(std::memory_order_acquire) == VolumeState::Valid) return volume_;
  DynamicVolume stale;
  stale.setValid(false);
  return stale;
}

void Node::updateVolume() const {
  if (volume_state_.load(std::memory_order_acquire) == VolumeState::Valid) return;
  const std::lock_guard lock(detail::volume_mutex());
  compute_volume();
}

void Node::getWorldVolume(DynamicVolume& volume) const {
  {
    const std::lock_guard lock(detail::volume_mutex());
    volume = compute_volume();
  }
  if (const Node* parent = parent_.load(std::memory_order_relaxed))
    volume.transform(parent->getToWorld());
}

/// A node is marked before its subgraph is read, so that an edit by another thread meanwhile meets
/// the mark, takes it away, and the node stays stale. A stale node has only stale nodes, or ones
/// just being computed, above it; that lets `invalidateVolume` end its climb at the first one.
///
/// On a stack of its own: graphs may be deeper than a thread's stack.
const DynamicVolume& Node::compute_volume() const {
  if (volume_state_.load(std::memory_order_acquire) == VolumeState::Valid) return volume_;
  struct Level {
    const Node* node;
    DynamicVolume box;  // of the children so far
    std::size_t next_child = 0;
  };
  WayStack<Level> way;
  auto& path = way.entries;
  const auto enter = [&](const Node& node) {
    node.volume_state_.exchange(VolumeState::Computing, std::memory_order_acq_rel);
    path.push_back({&node, {}});
  };
  for (enter(*this);;) {
    Level& level = path.back();
    if (level.next_child < level.node->getChildren().size()) {
      const Node& child = *level.node->getChildren()[level.next_child++];
      if (child.volume_state_.load(std::memory_order_acquire) == VolumeState::Valid)
        level.box.extendBy(child.volume_);
      else
        enter(child);
      continue;
    }
    const Node& done = *level.node;
    if (done.core_) {
      done.core_->extendVolume(level.box);
      if (const auto* matrix = done.core_->getLocalMatrix()) level.box.transform(*matrix);
    }
    done.volume_ = level.box;
    auto expected = VolumeState::Computing;
    done.volume_state_.compare_exchange_strong(expected, VolumeState::Valid,
                                               std::memory_order_acq_rel);
    path.pop_back();
    if (path.empty()) return volume_;
    path.back().box.extendBy(done.volume_);
  }
}

void Node::invalidateVolume() const {
  for (const Node* node = this; node; node = node->parent_.load(std::memory_order_relaxed))
    if (node->volume_state_.exchange(VolumeState::Stale, std::memory_order_acq_rel) ==
        VolumeState::Stale)
      return;
}

}  // namespace osg
