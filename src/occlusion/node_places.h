#pragma once

#include <osg/node.h>

/// Nodes on their way out of a scene.
namespace morlu::osg {

/// Takes a node out of its parent. Children stay, below a Group in its place. A node without parent
/// keeps them. Where memory runs out all is still there, maybe below one more Group.
void take_out(const ::osg::NodePtr& node);

/// Takes a node out and puts it below `root`: below a Transform, if `to_world` is another matrix
/// than the identity.
void move_in_place(const ::osg::NodePtr& node, const ::osg::Matrix& to_world,
                   const ::osg::NodePtr& root);

}  // namespace morlu::osg
