#include "scene_nodes.h"

#include <osg/cores.h>
#include <osg/geometry.h>

namespace morlu::program {

std::vector<::osg::NodePtr> geometry_nodes(const ::osg::NodePtr& root) {
  std::vector<::osg::NodePtr> found;
  for_each_node(root, [&](const ::osg::NodePtr& node) {
    if (::osg::Geometry::dcast(node->getCore())) found.push_back(node);
  });
  return found;
}

::osg::NodePtr group_node() {
  const auto node = ::osg::Node::create();
  node->setCore(::osg::Group::create());
  return node;
}

}  // namespace morlu::program
