// Removal of geometry that other geometry shuts in.

#include <algorithm>
#include <set>
#include <string>

#include "morlu/occlusion.h"
#include "occlusion/hull.h"
#include "occlusion/occlusion_scene.h"
#include "primitives/node_moves.h"
#include "primitives/progress.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

void prepare(const std::vector<NodePtr>& nodes) {
  std::set<::osg::GeometryPtr> prepared;
  for (const NodePtr& node : nodes)
    if (prepared.insert(geometry_at(node)).second) make_vertex_normals(geometry_at(node));
}

class visibility {
 public:
  visibility(occlusion_scene& scene, int samples, float threshold)
      : scene_(scene),
        query_{samples, static_cast<float>(scene.diagonal() * 0.05), false},
        offset_(static_cast<float>(scene.diagonal() * 1e-5)),
        threshold_(threshold) {}

  /// Whether any vertex of the node is visible. Most nodes are by one of their first: what is
  /// looked at grows from batch to batch.
  bool is_seen(const NodePtr& node) {
    constexpr std::uint32_t growth = 4, most_at_once = 1024;
    const placed_vertices vertices(node);
    std::uint32_t at_once = 1;
    for (std::uint32_t first = 0; first < vertices.size(); first += at_once) {
      if (first > 0) at_once = std::min(at_once * growth, most_at_once);
      if (is_any_seen(vertices, first, std::min(at_once, vertices.size() - first))) return true;
    }
    return false;
  }

 private:
  bool is_any_seen(const placed_vertices& vertices, std::uint32_t first, std::uint32_t count) {
    points_.clear();
    for (std::uint32_t i = first; i < first + count; ++i) {
      const math::vector3 normal = vertices.normal(i);
      points_.push_back({vertices.position(i) + normal * offset_, normal});
    }
    values_.resize(count);
    scene_.sample(points_, query_, values_);
    return std::any_of(values_.begin(), values_.end(),
                       [this](float value) { return !(value <= threshold_); });
  }

  occlusion_scene& scene_;
  const occlusion_query query_;
  const float offset_;  // off the surface
  const float threshold_;
  std::vector<sample_point> points_;
  std::vector<float> values_;
};

}  // namespace

void gutOutModelPerAmbientOcclusion(NodePtr node, int samples, float threshold, unsigned int) {
  if (!node) return;
  std::vector<NodePtr> nodes;
  getGeometryNodes(node, nodes, false);
  prepare(nodes);
  occlusion_scene scene(node);
  visibility seen(scene, samples, threshold);
  std::uint64_t removed = 0, primitives = 0;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    if (!geometry_at(nodes[i])->getPositions()) {
      say_without_positions();
      continue;
    }
    if (!seen.is_seen(nodes[i]) && nodes[i]->getParent()) {
      ++removed;
      primitives += countPrimitives(nodes[i]);
      takeOut(nodes[i]);
      nodes[i] = ::osg::NullFC;
    }
    say_percentage(i, nodes.size());
  }
  say("\rdone. Removed " + std::to_string(removed) + " geometries with " +
      std::to_string(primitives) + " primitives.\n");
}

}  // namespace morlu::osg
