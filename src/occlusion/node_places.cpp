#include "occlusion/node_places.h"

#include <osg/cores.h>

namespace morlu::osg {

using ::osg::NodePtr;

void take_out(const NodePtr& node) {
  const NodePtr parent = node->getParent();
  if (!parent) return;
  if (node->getNChildren() == 0) return parent->subChild(node);
  const NodePtr rest = ::osg::Node::create();
  rest->setCore(::osg::Group::create());
  rest->setTravMask(node->getTravMask());
  node->addChild(rest);
  while (node->getNChildren() > 1) rest->addChild(node->getChild(0));
  parent->replaceChildBy(node, rest);
}

void move_in_place(const NodePtr& node, const ::osg::Matrix& to_world, const NodePtr& root) {
  NodePtr above = root;
  if (to_world != ::osg::Matrix::identity()) {
    const auto transform = ::osg::Transform::create();
    transform->setMatrix(to_world);
    above = ::osg::Node::create();
    above->setCore(transform);
    root->addChild(above);
  }
  take_out(node);
  above->addChild(node);
}

}  // namespace morlu::osg
