#pragma once

#include <osg/node.h>

namespace morlu::osg {

/// Moves the geometry nodes of a scene under a binary tree of Group nodes that follows their places
/// in the world, and returns its root. A node that was not at the origin of the world gets a
/// Transform above it, a material that a MaterialGroup gave becomes its own; children stay behind.
/// With `takes_rest`, what of the scene is left and has geometry (hidden, say) goes below the root
/// as it is. No scene gives an empty root. If memory runs out, what has moved by then is in a child
/// of the scene. O(nodes log nodes).
::osg::NodePtr buildHierarchy(const ::osg::NodePtr& scene, bool takes_rest);

/// The same with up to 16 nodes a Group, their extents taken from their triangles; lines and points
/// come last, below the root.
::osg::NodePtr buildGroupHierarchy(const ::osg::NodePtr& scene);

}  // namespace morlu::osg
