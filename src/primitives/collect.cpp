#include <vector>

#include "morlu/primitives.h"

namespace morlu::osg {

// A stack of our own: scenes from files may be deeper than a thread's stack.
void collect_geo_nodes(::osg::NodePtr node, std::list<::osg::NodePtr>& out) {
  std::vector<::osg::NodePtr> pending;
  if (node) pending.push_back(std::move(node));
  while (!pending.empty()) {
    const ::osg::NodePtr next = std::move(pending.back());
    pending.pop_back();
    const ::osg::NodeCorePtr& core = next->getCore();
    if (core && core->getType() == ::osg::Geometry::getClassType()) out.push_back(next);
    const auto children = next->getChildren();
    pending.insert(pending.end(), children.rbegin(), children.rend());
  }
}

}  // namespace morlu::osg
