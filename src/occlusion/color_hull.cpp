// The hull of a model by its vertex colours.

#include <string>

#include "morlu/occlusion.h"
#include "occlusion/hull.h"
#include "primitives/say.h"

namespace morlu::osg {

::osg::NodePtr buildModelHullWithVertexColors(::osg::NodePtr node, unsigned int target) {
  std::vector<::osg::NodePtr> nodes;
  getGeometryNodes(node, nodes, false);
  hull_cut cut;
  if (target != 0) {
    std::vector<double> worths;
    for (const auto& each : nodes) append_color_worths(each, worths);
    cut = cut_for(worths, target);
  }
  say("GeoNodes: " + std::to_string(nodes.size()) + '\n');
  return make_hull(nodes, [&cut](const ::osg::NodePtr& each) {
    return copyTrianglesWithColorThreshold(each, cut);
  });
}

}  // namespace morlu::osg
