#pragma once

#include <utility>
#include <vector>

#include <osg/node.h>

namespace morlu::program {

/// Calls `visit` on the node and all below it, parents first, children in order. On a stack of its
/// own: scenes from files may be deeper than a thread's stack. Null: nothing.
template <class Visit>
void for_each_node(::osg::NodePtr root, const Visit& visit) {
  std::vector<::osg::NodePtr> pending;
  if (root) pending.push_back(std::move(root));
  while (!pending.empty()) {
    const ::osg::NodePtr node = std::move(pending.back());
    pending.pop_back();
    visit(node);
    const auto children = node->getChildren();
    pending.insert(pending.end(), children.rbegin(), children.rend());
  }
}

/// All nodes with geometry, hidden ones too.
std::vector<::osg::NodePtr> geometry_nodes(const ::osg::NodePtr& root);

/// A new node with a Group core.
::osg::NodePtr group_node();

}  // namespace morlu::program
