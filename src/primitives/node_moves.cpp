#include "primitives/node_moves.h"

#include <osg/cores.h>

namespace morlu::osg {

using ::osg::NodePtr;

NodePtr makeGroup() {
  const NodePtr node = ::osg::Node::create();
  node->setCore(::osg::Group::create());
  return node;
}

NodePtr gatherChildren(const NodePtr& node) {
  const NodePtr all = makeGroup();
  all->setTravMask(node->getTravMask());
  node->addChild(all);
  while (node->getNChildren() > 1) all->addChild(node->getChild(0));
  return all;
}

void leaveChildrenBehind(const NodePtr& node) {
  const NodePtr parent = node->getParent();
  if (parent && node->getNChildren() > 0) parent->replaceChildBy(node, gatherChildren(node));
}

void takeOut(const NodePtr& node) {
  leaveChildrenBehind(node);
  if (const NodePtr parent = node->getParent()) parent->subChild(node);
}

NodePtr transformOfPlace(const NodePtr& node) {
  const auto transform = ::osg::Transform::create();
  transform->setMatrix(node->getToWorld());
  const NodePtr above = ::osg::Node::create();
  above->setCore(transform);
  return above;
}

/// The last step, which replaces, needs no memory.
void moveBelow(const NodePtr& node, const NodePtr& above) {
  const NodePtr seat = makeGroup();
  above->addChild(seat);
  leaveChildrenBehind(node);
  above->replaceChildBy(seat, node);
}

void moveInPlace(const NodePtr& node, const NodePtr& root) {
  NodePtr above = root;
  if (node->getToWorld() != ::osg::Matrix::identity()) {
    above = transformOfPlace(node);
    root->addChild(above);
  }
  moveBelow(node, above);
}

}  // namespace morlu::osg
