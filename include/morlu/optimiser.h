#pragma once

#include <vector>

#include <osg/handle.h>
#include <osg/node.h>

#include "morlu/export.h"

/// Questions that are asked of a scene graph. None changes the graph; null nodes are harmless. A
/// core counts as of a type if it is of that type or of one derived from it.
///
/// A geometry's effective material is its own, else that of the topmost MaterialGroup above the
/// node, else none. Skipped geometry is what no optimisation touches: geometry with traversal mask
/// 0, under a SwitchMaterial, or with a CubeTextureChunk.
namespace morlu::osg {

/// Collects the nodes with geometry at and below `node`, parents first, children in order, appended
/// to `list`: opaque ones first, then with `withSwitched` those under Switch and DistanceLOD cores,
/// then transparent ones, whose texture or material lets light through. Skipped geometry and what
/// has traversal mask 0 is left out with all below it; under a Switch or DistanceLOD neither is
/// asked, and a geometry ends its branch.
///
/// If `node` itself has a geometry, the list gets a new node with the same core in its place.
/// Returns the size of `list` before the transparent ones were appended. O(nodes + pixels), each
/// image is looked at once.
MORLU_API unsigned getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list,
                                    bool withSwitched);

/// The same with the transparent nodes in a list of their own. Returns the number of nodes under
/// Switch and DistanceLOD cores, whether or not `withSwitched` asked for them.
MORLU_API unsigned getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list,
                                    std::vector<::osg::NodePtr>& alphaList, bool withSwitched);

/// Appends the nodes of skipped geometry to `list`, without looking below one.
MORLU_API void getSkippedNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list);

/// Appends the geometry nodes that a traversal mask of 0, their own or that of a node above them up
/// to `node`, hides; all of them if `hidden`. A node without core ends its branch.
MORLU_API void getTravMaskZeroNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list,
                                    bool hidden);

/// The topmost node above `node`, not `node` itself, whose core is a MaterialGroup; null if there
/// is none. O(depth).
MORLU_API ::osg::RefPtr<::osg::NodePtr> searchMaterialGroup(const ::osg::NodePtr& node);

}  // namespace morlu::osg
