#pragma once

#include <atomic>
#include <span>
#include <vector>

#include "osg/node_core.h"

namespace osg {

class Node;
using NodePtr = FCPtr<Node>;

/// A place in the scene graph: one core, children in order, at most one parent.
///
/// A node holds its children; the parent link is weak. What a node's stored volume bounds is the
/// node's subgraph, in the coordinates of the parent: for a node whose core is no Transform these
/// are its own. Edits mark the volumes of the node and of all its ancestors as stale; only
/// `updateVolume`, `getVolume(true)` and `getWorldVolume` compute them anew.
///
/// Threads may edit different nodes of one graph side by side. Reads of a node that another thread
/// edits are the caller's to keep apart, but for volumes and world matrices.
class OSG_API Node : public ContainerClass<"Node", Node, AttachmentContainer> {
 public:
  static constexpr UInt32 kCoreFieldId = AttachmentContainer::kNextFieldId;
  static constexpr UInt32 kChildrenFieldId = kCoreFieldId + 1;
  static constexpr UInt32 kTravMaskFieldId = kCoreFieldId + 2;
  static constexpr FieldMask CoreFieldMask = FieldMask{1} << kCoreFieldId;
  static constexpr FieldMask ChildrenFieldMask = FieldMask{1} << kChildrenFieldId;
  static constexpr FieldMask TravMaskFieldMask = FieldMask{1} << kTravMaskFieldId;

  /// May be null.
  const NodeCorePtr& getCore() const { return core_; }
  void setCore(const NodeCorePtr& core);

  UInt32 getNChildren() const { return static_cast<UInt32>(getChildren().size()); }
  /// `index` < getNChildren().
  const NodePtr& getChild(UInt32 index) const { return children_[first_child_ + index]; }
  /// All children in order; valid until the list changes.
  std::span<const NodePtr> getChildren() const {
    return std::span<const NodePtr>(children_).subspan(first_child_);
  }
  /// Null at a root.
  NodePtr getParent() const { return NodePtr(parent_.load(std::memory_order_relaxed)); }

  /// Appends `child`, which leaves its old parent's list first; a child of this node moves to the
  /// end. Null, the node itself and an ancestor of it add nothing. O(depth) time.
  void addChild(const NodePtr& child);
  /// Unlinks `child`, the others keep their order; no child of this node: nothing. Near constant
  /// time at either end of the list.
  void subChild(const NodePtr& child);
  /// Puts `new_child` in the place of `old_child`; it leaves its old parent first. A null
  /// `new_child` just unlinks. False, and nothing done, if `old_child` is no child of this node or
  /// `new_child` is the node itself or an ancestor of it.
  bool replaceChildBy(const NodePtr& old_child, const NodePtr& new_child);

  /// 0: not traversed. All ones in a new node.
  UInt32 getTravMask() const { return trav_mask_; }
  void setTravMask(UInt32 mask) { trav_mask_ = mask; }

  /// The product of all transforms from the root down to and with the node's own core.
  TransformationMatrix<Real32> getToWorld() const;

  /// The stored volume as it is: not valid if it was never computed or is stale. O(1).
  /// With `update` it is brought up to date first.
  DynamicVolume getVolume(bool update = false) const;
  /// Computes the stale volumes of the subgraph. Safe from any thread.
  void updateVolume() const;
  /// The subgraph's box in world coordinates; brings all stored volumes below up to date.
  void getWorldVolume(DynamicVolume& volume) const;
  /// Marks this volume and those of all ancestors as stale.
  void invalidateVolume() const;

 protected:
  friend ContainerClass<"Node", Node, AttachmentContainer>;
  Node() = default;
  /// Shares core and attachments; children, which have one parent, stay where they are.
  Node(const Node& other);
  ~Node() override;

 private:
  friend class NodeCore;
  enum class VolumeState : UInt8 { Stale, Computing, Valid };

  bool can_adopt(const NodePtr& child) const;
  std::size_t find_child(const Node& child) const;
  void adopt(Node& child, std::size_t place);
  void erase_child(std::size_t place);
  void unlink_from_parent();
  void link_core();
  void unlink_core();
  const DynamicVolume& compute_volume() const;

  NodeCorePtr core_;
  std::size_t slot_in_core_ = 0;  // place in the core's list of nodes
  // Children stand from `first_child_` on; what was taken off the front leaves nulls before it, so
  // that a list can be emptied from either end in linear time.
  std::vector<NodePtr> children_;
  std::size_t first_child_ = 0;
  std::size_t dropped_nulls_ = 0;  // nulls ever cut off the front of `children_`
  std::size_t slot_hint_ = 0;  // place in the parent's `children_` when linked, cut nulls counted
  std::atomic<Node*> parent_{nullptr};
  UInt32 trav_mask_ = ~UInt32{0};
  mutable std::atomic<VolumeState> volume_state_{VolumeState::Stale};
  mutable DynamicVolume volume_;
};

}  // namespace osg
