#include "optimiser/moved_nodes.h"

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/material.h>

#include <algorithm>

#include "optimiser/scene_queries.h"

namespace morlu::osg {

using ::osg::NodePtr;

NodePtr makeGroup() {
  const NodePtr node = ::osg::Node::create();
  node->setCore(::osg::Group::create());
  return node;
}

void giveEffectiveMaterial(const NodePtr& node) {
  const auto geometry = node ? ::osg::Geometry::dcast(node->getCore()) : ::osg::NullFC;
  if (!geometry || geometry->getMaterial()) return;
  const ::osg::MaterialPtr material = getEffectiveMaterial(node);
  if (!material) return;
  const auto shown = geometry->getParents();
  const bool all_agree = std::all_of(shown.begin(), shown.end(), [&](const NodePtr& each) {
    return getEffectiveMaterial(each) == material;
  });
  const ::osg::GeometryPtr own = all_agree ? geometry : geometry->clone();
  own->setMaterial(material);
  if (!all_agree) node->setCore(own);
}

NodePtr transformOfPlace(const NodePtr& node) {
  const auto transform = ::osg::Transform::create();
  transform->setMatrix(node->getToWorld());
  const NodePtr above = ::osg::Node::create();
  above->setCore(transform);
  return above;
}

void leaveChildrenBehind(const NodePtr& node) {
  const NodePtr parent = node->getParent();
  if (!parent || node->getNChildren() == 0) return;
  const NodePtr in_place = makeGroup();
  node->addChild(in_place);
  while (node->getNChildren() > 1) in_place->addChild(node->getChild(0));
  parent->replaceChildBy(node, in_place);
}

/// The last step, which replaces, needs no memory.
void moveBelow(const NodePtr& node, const NodePtr& above) {
  const NodePtr seat = makeGroup();
  above->addChild(seat);
  leaveChildrenBehind(node);
  above->replaceChildBy(seat, node);
}

NodePtr movedBelowTransform(const NodePtr& node) {
  const NodePtr above = transformOfPlace(node);
  moveBelow(node, above);
  return above;
}

}  // namespace morlu::osg
