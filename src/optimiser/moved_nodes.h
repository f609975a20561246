#pragma once

#include <osg/node.h>

/// How a node of the input goes over into a result, looking as it did.
namespace morlu::osg {

/// A new node with a Group core.
::osg::NodePtr makeGroup();

/// Gives the node's geometry its effective material. A core that other nodes show in another
/// material is copied first. Nothing for a node without geometry.
void giveEffectiveMaterial(const ::osg::NodePtr& node);

/// Takes a node out of its place if it has children: they stay, below a Group in that place.
void leaveChildrenBehind(const ::osg::NodePtr& node);

/// A new node with a Transform core that has the node's matrix into world space.
::osg::NodePtr transformOfPlace(const ::osg::NodePtr& node);

/// The node without its children, in its place in the world: below a `transformOfPlace`.
::osg::NodePtr movedBelowTransform(const ::osg::NodePtr& node);

}  // namespace morlu::osg
