#include "optimiser/moved_nodes.h"

#include <osg/geometry.h>
#include <osg/material.h>

#include <algorithm>

#include "optimiser/scene_queries.h"

namespace morlu::osg {

using ::osg::NodePtr;

void giveEffectiveMaterial(const NodePtr& node) {
  const auto geometry = node ? ::osg::Geometry::dcast(node->getCore()) : ::osg::NullFC;
  if (!geometry || geometry->getMaterial()) return;
  const ::osg::MaterialPtr material = getEffectiveMaterial(node);
  if (!material) return;
  const auto shown = geometry->getParents();
  const bool all_agree = std::all_of(shown.begin(), shown.end(), [&](const NodePtr& each) {
    return getEffectiveMaterial(each) == material;
  });
  const ::osg::GeometryPtr own = all_agree ? geometry : geometry->clone();
  own->setMaterial(material);
  if (!all_agree) node->setCore(own);
}

}  // namespace morlu::osg
