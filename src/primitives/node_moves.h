#pragma once

#include <osg/node.h>

/// Nodes on their way from one place to another. Where memory runs out all is still in its place,
/// maybe below one more Group.
namespace morlu::osg {

/// A new node with a Group core.
::osg::NodePtr makeGroup();

/// Puts all children of a node into one Group below it, which hides what the node hides, and
/// returns that.
::osg::NodePtr gatherChildren(const ::osg::NodePtr& node);

/// Takes a node that has children out of its place: they stay, below a Group in that place. Nothing
/// for a node without a parent.
void leaveChildrenBehind(const ::osg::NodePtr& node);

/// Takes a node out of its parent. Children stay, below a Group in its place; those of a node
/// without parent stay below it.
void takeOut(const ::osg::NodePtr& node);

/// A new node with a Transform core that has the node's matrix into world space.
::osg::NodePtr transformOfPlace(const ::osg::NodePtr& node);

/// Makes a node a child of `above`. Its children are left behind; those of a node without a parent
/// go with it.
void moveBelow(const ::osg::NodePtr& node, const ::osg::NodePtr& above);

/// The same at its place in the world: below a `transformOfPlace`, if that isn't the origin, below
/// `root`, which is at the origin.
void moveInPlace(const ::osg::NodePtr& node, const ::osg::NodePtr& root);

}  // namespace morlu::osg
