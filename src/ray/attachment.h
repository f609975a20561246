#pragma once

#include "morlu/ray.h"
#include "ray/bih_tree.h"
#include "ray/triangle_set.h"

namespace morlu::osg {

/// The core's tree, null if it has none. The attachment keeps it alive.
BIHAttachPayload* find_payload(const ::osg::NodeCorePtr& core);

/// The tree that a query on this node may walk: attached if missing, rebuilt if stale. Null if the
/// geometry has no usable triangle or is none.
BIHAttachPayload* usable_payload(const ::osg::NodePtr& node);

}  // namespace morlu::osg
