#pragma once

#include <osg/node.h>

#include <map>
#include <vector>

namespace morlu::osg {

/// Geometry nodes that are to leave a scene once something else stands for them.
class source_nodes {
 public:
  /// Puts what is below each of them into one Group, which can take its place. Throws
  /// `std::bad_alloc`; all is in its place then, maybe below one more Group.
  source_nodes(::osg::NodePtr top, const std::vector<::osg::NodePtr>& nodes);

  // None of these needs memory.

  /// Takes those that nobody has moved meanwhile out of the scene; what is below them stays, as
  /// does geometry of a derived type, which is never extracted. Nodes without geometry that have no
  /// other children go too, up to `top`, which stays.
  void take_out() noexcept;
  /// Whether the node is one of them and has been moved.
  bool has_moved(const ::osg::NodePtr& node) const noexcept;
  std::size_t size() const { return parents_.size(); }

 private:
  void take_out(const ::osg::NodePtr& node) const noexcept;

  const ::osg::NodePtr top_;
  std::map<::osg::NodePtr, ::osg::NodePtr> parents_;  // of the nodes
};

}  // namespace morlu::osg
