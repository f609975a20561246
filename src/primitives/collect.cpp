#include "morlu/primitives.h"
#include "primitives/node_walk.h"

namespace morlu::osg {

void collect_geo_nodes(::osg::NodePtr node, std::list<::osg::NodePtr>& out) {
  for_each_node(std::move(node), [&](const ::osg::NodePtr& each) {
    const ::osg::NodeCorePtr& core = each->getCore();
    if (core && core->getType() == ::osg::Geometry::getClassType()) out.push_back(each);
  });
}

}  // namespace morlu::osg
