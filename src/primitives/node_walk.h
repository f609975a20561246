#pragma once

#include <osg/node.h>

#include <utility>
#include <vector>

namespace morlu::osg {

/// Visits the node and what is below it, a node before its children, children in order. On a stack
/// of its own: scenes from files may be deeper than a thread's stack. Null: nothing.
///
/// `visit(node, state)` may change the state, which its children inherit; it returns whether to go
/// down to them.
template <class State, class Visit>
void walk_nodes(::osg::NodePtr node, State state, const Visit& visit) {
  std::vector<std::pair<::osg::NodePtr, State>> pending;
  if (node) pending.emplace_back(std::move(node), std::move(state));
  while (!pending.empty()) {
    auto [next, inherited] = std::move(pending.back());
    pending.pop_back();
    if (!visit(next, inherited)) continue;
    const auto children = next->getChildren();
    for (auto child = children.rbegin(); child != children.rend(); ++child)
      pending.emplace_back(*child, inherited);
  }
}

/// The same where nothing is inherited: `visit(node)`.
template <class Visit>
void walk_nodes(::osg::NodePtr node, const Visit& visit) {
  struct nothing {};
  walk_nodes(std::move(node), nothing{},
             [&](const ::osg::NodePtr& each, nothing) { return visit(each); });
}

/// Calls `visit` on the node and all below it, in the same order.
template <class Visit>
void for_each_node(::osg::NodePtr node, const Visit& visit) {
  walk_nodes(std::move(node), [&](const ::osg::NodePtr& each) {
    visit(each);
    return true;
  });
}

}  // namespace morlu::osg
