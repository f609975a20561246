#pragma once

#include <string>

#include "osg/node.h"

namespace osg {

/// Makes equal materials of a graph one material.
///
/// The materials of Geometry and MaterialGroup cores, and those inside of SwitchMaterials, are
/// compared as `equalByValue` does; of equal ones the first that the walk meets takes the place of
/// the others. The walk visits a node before its children and all children in order, whatever masks
/// and choices say; a SwitchMaterial comes after the materials in it, so two switches over equal
/// materials become one as well. Names and attachments of the replaced materials are not taken
/// along. Materials themselves are not changed, but for the lists of SwitchMaterials.
class OSG_API MaterialMergeGraphOp {
 public:
  explicit MaterialMergeGraphOp(std::string name = "MaterialMerge") : name_(std::move(name)) {}

  const std::string& getName() const { return name_; }
  /// Merges below and at `root`. Near linear in nodes and materials; false for a null root, which
  /// has nothing to merge. Nobody else may use the graph meanwhile.
  bool traverse(const NodePtr& root) const;

 private:
  std::string name_;
};

}  // namespace osg
