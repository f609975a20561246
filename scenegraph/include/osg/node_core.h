#pragma once

#include <vector>

#include "osg/attachment.h"
#include "osg/matrix.h"
#include "osg/volume.h"

namespace osg {

class Node;

/// What a node is: a group, a transform, a geometry, ... One core may serve many nodes.
class OSG_API NodeCore : public AbstractContainerClass<"NodeCore", NodeCore, AttachmentContainer> {
 public:
  static constexpr UInt32 kNextFieldId = AttachmentContainer::kNextFieldId;

  /// The matrix from this core's space into the parent's; null for a core that doesn't transform.
  virtual const TransformationMatrix<Real32>* getLocalMatrix() const { return nullptr; }
  /// Nodes that hold the core now. Other threads may change it any time.
  std::size_t getNumParents() const;
  /// Those nodes, in no order that means anything. While it runs nobody may drop the last reference
  /// to one of them.
  std::vector<FCPtr<Node>> getParents() const;

 protected:
  NodeCore() = default;
  /// The copy is on no node yet.
  NodeCore(const NodeCore& other) : AbstractContainerClass(other) {}
  ~NodeCore() override = default;

  /// Widens `volume` by what the core itself draws, in the core's own space. Called by nodes, one
  /// thread at a time.
  virtual void extendVolume(DynamicVolume& volume) const;
  /// Marks the volumes of all nodes with this core, and of their ancestors, as stale.
  void invalidate_nodes();
  /// The same for a caller that holds the link mutex.
  void invalidate_nodes_locked();

 private:
  friend class Node;
  std::vector<Node*> nodes_;  // weak; changed under the link mutex only
};
using NodeCorePtr = FCPtr<NodeCore>;
using CNodePtr = NodeCorePtr;

}  // namespace osg
