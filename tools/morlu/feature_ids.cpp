#include "feature_ids.h"

#include <vector>

#include <osg/geometry.h>
#include <osg/io/feature_ids.h>

#include "morlu/optimiser.h"

namespace morlu::program {

void mark_feature_ids(const ::osg::NodePtr& root) {
  std::vector<::osg::NodePtr> pending;
  if (root) pending.push_back(root);
  while (!pending.empty()) {
    const ::osg::NodePtr node = pending.back();
    pending.pop_back();
    if (const auto geometry = ::osg::Geometry::dcast(node->getCore()))
      ::osg::io::setFeatureIdSet(geometry, osg::getIdMapSet(geometry));
    pending.insert(pending.end(), node->getChildren().begin(), node->getChildren().end());
  }
}

}  // namespace morlu::program
