#pragma once

#include <osg/node.h>

/// How a node of the input goes over into a result, looking as it did.
namespace morlu::osg {

/// A new node with a Group core.
::osg::NodePtr makeGroup();

/// Gives the node's geometry its effective material. A core that other nodes show in another
/// material is copied first. Nothing for a node without geometry.
void giveEffectiveMaterial(const ::osg::NodePtr& node);

// Where memory runs out in what follows, all is still in its place, maybe below one more Group.

/// Takes a node that has children out of its place: they stay, below a Group in that place. Nothing
/// for a node without a parent.
void leaveChildrenBehind(const ::osg::NodePtr& node);

/// A new node with a Transform core that has the node's matrix into world space.
::osg::NodePtr transformOfPlace(const ::osg::NodePtr& node);

/// Makes a node a child of `above`. Its children are left behind; those of a node without a parent
/// go with it.
void moveBelow(const ::osg::NodePtr& node, const ::osg::NodePtr& above);

/// The node without its children, in its place in the world: below a `transformOfPlace`.
::osg::NodePtr movedBelowTransform(const ::osg::NodePtr& node);

}  // namespace morlu::osg
