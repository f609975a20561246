#pragma once

#include <optional>

#include "bench/figure.h"
#include "osg/node.h"

/// Peers of the merge of placed parts. Without a peer there is no contender.
namespace morlu::bench {

/// assimp's steps: parts into world space, meshes of one material into one, equal vertices joined,
/// triangles in cache order.
std::optional<contender> merging_steps_peer(const ::osg::NodePtr& root, std::size_t triangles);

/// osgUtil's visitors, in a process of their own: transforms flattened, redundant nodes away,
/// geometries of one material merged up to 10,000 vertices, which is their own bound, and indexed;
/// in cache order too if asked for. Parts come in one flat list, each with a geometry of its own,
/// so that the copies of shared ones aren't measured.
std::optional<contender> merging_visitors_peer(const ::osg::NodePtr& root, bool cache_order);

}  // namespace morlu::bench
