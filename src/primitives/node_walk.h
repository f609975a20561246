#pragma once

#include <osg/node.h>

#include <utility>
#include <vector>

namespace morlu::osg {

/// Calls `visit` on the node and all below it, a node before its children, children in order. On a
/// stack of its own: scenes from files may be deeper than a thread's stack. Null: nothing.
template <class Visit>
void for_each_node(::osg::NodePtr node, const Visit& visit) {
  std::vector<::osg::NodePtr> pending;
  if (node) pending.push_back(std::move(node));
  while (!pending.empty()) {
    const ::osg::NodePtr next = std::move(pending.back());
    pending.pop_back();
    visit(next);
    const auto children = next->getChildren();
    pending.insert(pending.end(), children.rbegin(), children.rend());
  }
}

}  // namespace morlu::osg
