#pragma once

#include <osg/node.h>

#include <utility>
#include <vector>

namespace morlu::osg {

/// Visits the node and what is below it, a node before its children, children in order; `visit` may
/// take the node out or put another in its place, since its children are known by then. It returns
/// whether to go down to them. On a stack of its own. Null: nothing.
template <class Visit>
void for_each_of_snapshot(::osg::NodePtr root, const Visit& visit) {
  std::vector<::osg::NodePtr> pending;
  if (root) pending.push_back(std::move(root));
  while (!pending.empty()) {
    const ::osg::NodePtr node = std::move(pending.back());
    pending.pop_back();
    const auto others = static_cast<std::ptrdiff_t>(pending.size());
    const auto children = node->getChildren();
    pending.insert(pending.end(), children.rbegin(), children.rend());
    if (!visit(node)) pending.erase(pending.begin() + others, pending.end());
  }
}

}  // namespace morlu::osg
