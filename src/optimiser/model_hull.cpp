// The hull of a model by what rays see of it.

#include "morlu/kd.h"
#include "morlu/occlusion.h"
#include "occlusion/hull.h"
#include "primitives/progress.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

NodePtr merged_for_hull(const NodePtr& node, const mergeGeo_setup& setup) {
  const kd_build_setup kd{.leaf_size = 500, .max_depth = 100, .strategy = 3};
  mergeGeo_setup merging = setup;
  merging.opt = 1;
  merging.cacheopt = false;
  return mergeGeo(node, kd, merging);
}

/// Texture coordinates 6 of the nodes tell how open their vertices are.
void store_occlusion(const NodePtr& root, const std::vector<NodePtr>& nodes, int samples,
                     bool two_sided) {
  occlusion_scene scene(root);
  const occlusion_query query{samples, static_cast<float>(scene.diagonal() * 0.75), two_sided};
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    storeOcclusion(nodes[i], scene, query);
    say_percentage(i, nodes.size());
  }
}

hull_cut cut_of(const std::vector<NodePtr>& nodes, unsigned target, std::uint32_t total) {
  std::vector<double> worths;
  worths.reserve(total);
  for (const NodePtr& node : nodes) append_occlusion_worths(node, worths);
  return cut_for(worths, target);
}

NodePtr reduced(const NodePtr& root, const std::vector<NodePtr>& nodes, unsigned target,
                std::uint32_t total, unsigned samples, bool two_sided) {
  part_shared_cores(nodes);  // values are those of a place
  store_occlusion(root, nodes, static_cast<int>(samples), two_sided);
  hull_cut cut = cut_of(nodes, target, total);
  return make_hull(
      nodes, [&cut](const NodePtr& each) { return copyPrimitivesWithAOThreshold(each, cut); });
}

}  // namespace

NodePtr buildModelHull(NodePtr node, const mergeGeo_setup& setup, unsigned int target,
                       unsigned int samples, bool two_sided) {
  const NodePtr merged = merged_for_hull(node, setup);
  std::vector<NodePtr> nodes, hidden;
  getGeometryNodes(merged, nodes, false);
  getTravMaskZeroNodes(merged, hidden, false);
  const auto as_it_is = [](const NodePtr& each) { return each->getCore(); };
  std::uint32_t total = 0;
  for (const NodePtr& each : nodes) total += countPrimitives(each);
  const NodePtr hull = target >= total ? make_hull(nodes, as_it_is)
                                       : reduced(merged, nodes, target, total, samples, two_sided);
  if (!hidden.empty()) hull->addChild(make_hull(hidden, as_it_is));
  return hull;
}

}  // namespace morlu::osg
