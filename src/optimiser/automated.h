#pragma once

#include <osg/node.h>

namespace morlu::osg {

/// The optimisation without options: textures into an atlas, geometry merged by material in cache
/// order, or, where something is to be skipped, `optWithSkippedGeo`. Says first that it runs.
///
/// Returns a new scene without parent. What the merge leaves of `node` and has geometry goes below
/// it; a `node` all of which is in the new scene stays as it is. Throws `std::bad_alloc`; `node`
/// then still has all geometry, some of it maybe merged.
::osg::NodePtr optAutomated(const ::osg::NodePtr& node);

}  // namespace morlu::osg
