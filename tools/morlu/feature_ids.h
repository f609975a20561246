#pragma once

#include <osg/node.h>

namespace morlu::program {

/// Marks the geometries of a scene that `optTree` has made with an id map: files written from then
/// on tell which texture coordinates are ids of source nodes (osg/io/feature_ids.h). A former mark
/// on others goes. Call it before another `optTree` runs. Null: nothing.
void mark_feature_ids(const ::osg::NodePtr& root);

}  // namespace morlu::program
