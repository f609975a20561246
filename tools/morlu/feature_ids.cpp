#include "feature_ids.h"

#include <osg/geometry.h>
#include <osg/io/feature_ids.h>

#include "morlu/optimiser.h"
#include "scene_nodes.h"

namespace morlu::program {

void mark_feature_ids(const ::osg::NodePtr& root) {
  for (const ::osg::NodePtr& node : geometry_nodes(root)) {
    const auto geometry = ::osg::Geometry::dcast(node->getCore());
    ::osg::io::setFeatureIdSet(geometry, osg::getIdMapSet(geometry));
  }
}

}  // namespace morlu::program
