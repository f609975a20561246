#include "optimiser/source_nodes.h"

#include <osg/geometry.h>

#include "geoset/source.h"
#include "optimiser/moved_nodes.h"

namespace morlu::osg {

using ::osg::NodePtr;

source_nodes::source_nodes(NodePtr top, const std::vector<NodePtr>& nodes) : top_(std::move(top)) {
  for (const NodePtr& node : nodes)
    if (node->getNChildren() > 0) gatherChildren(node);
  for (const NodePtr& node : nodes) parents_.emplace(node, node->getParent());
}

bool source_nodes::has_moved(const NodePtr& node) const noexcept {
  const auto known = parents_.find(node);
  return known != parents_.end() && node->getParent() != known->second;
}

void source_nodes::take_out() noexcept {
  for (const auto& [node, parent] : parents_)
    if (node->getParent() == parent && plain_geometry(node)) take_out(node);
}

void source_nodes::take_out(const NodePtr& node) const noexcept {
  NodePtr going = node;
  while (going != top_) {
    const NodePtr parent = going->getParent();
    if (!parent) return;
    if (going->getNChildren() > 0) {
      parent->replaceChildBy(going, going->getChild(0));
      return;
    }
    parent->subChild(going);
    if (parent->getNChildren() > 0 || ::osg::Geometry::dcast(parent->getCore())) return;
    going = parent;
  }
}

}  // namespace morlu::osg
