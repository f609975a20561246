#include "optimiser/merge_group.h"

#include <osg/cores.h>

#include <algorithm>

#include "finishing/core_building.h"
#include "geoset/element.h"
#include "geoset/extract.h"
#include "kd/compile_tree.h"
#include "kd/strategies.h"
#include "materials/tex_coords.h"
#include "occlusion/scene_geoset.h"
#include "primitives/node_moves.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

class group_merge {
 public:
  group_merge(const ::osg::MaterialPtr& material, const material_group& group,
              const kd_build_setup& kd, const mergeGeo_setup& setup, unsigned limit)
      : has_material_(material), group_(group), kd_(kd), setup_(setup), limit_(limit) {}

  NodePtr run() {
    if (group_.empty()) return ::osg::NullFC;
    reserve();
    for (const NodePtr& node : group_) {
      const bool wants_ids = !setup_.idmap.empty();
      extract(node, triangles_, setup_.toworld, has_material_, wants_ids, false,
              setup_.deleteunusedtc);
      extractLines(node, lines_, setup_.toworld, has_material_, wants_ids, false);
      extractPoints(node, points_, setup_.toworld, has_material_, wants_ids, false);
      const bool is_last = &node == &group_.back();
      flush_if_due(triangles_, is_last);
      flush_if_due(lines_, is_last);
      flush_if_due(points_, is_last);
    }
    return result_;
  }

 private:
  /// So that extraction seldom has to enlarge a set.
  void reserve() {
    std::uint64_t triangles = 0, lines = 0, points = 0;
    for (const NodePtr& node : group_) {
      const auto geometry = ::osg::Geometry::dcast(node->getCore());
      triangles += static_cast<std::uint64_t>(countPrimitiveTriangles(geometry));
      lines += static_cast<std::uint64_t>(countPrimitiveLines(geometry));
      points += static_cast<std::uint64_t>(countPrimitivePoints(geometry));
    }
    if (triangles + lines + points == 0) say("Empty Geometry, no primitives found. \n");
    points_at_once_ = std::min<std::uint64_t>(points, limit_);
    triangles_.setVertexCapacity(vertices_at_once<3>(triangles));
    lines_.setVertexCapacity(vertices_at_once<2>(lines));
    points_.setVertexCapacity(points_at_once_);
  }

  /// A set takes more than the limit by what the last node brings.
  template <unsigned Corners>
  std::uint64_t vertices_at_once(std::uint64_t elements) const {
    if (elements <= limit_) return elements * Corners;
    return static_cast<std::uint64_t>(static_cast<float>(limit_) * 1.2f * Corners);
  }

  template <class Set>
  void flush_if_due(Set& set, bool is_last) {
    const std::uint64_t held = set.vertex_count / corners_of<Set>;
    if (held > limit_ || (is_last && held > 0)) flush(set);
  }

  template <class Set>
  void flush(Set& set) {
    constexpr int farthest_tex_coords = 50;
    set.setup();
    if constexpr (element_of<Set>::kind == in_triangles)
      if (setup_.optimizetc > 0)
        optimizeGeosetTexCoords(set, setup_.optimizetc, farthest_tex_coords);
    kd_tree tree;
    compile_tree(set, tree, kd_, kd_strategy_ObjMedian());
    const NodePtr filling = makeGroup();
    filling->addChild(Splitmodel(tree, set, 0, kd_.leaf_size, NodePtr(),
                                 static_cast<unsigned>(setup_.opt), setup_.calcnormals));
    result_->addChild(filling);
    set.clear();
    set.setVertexCapacity(points_at_once_);
  }

  const bool has_material_;
  const material_group& group_;
  const kd_build_setup& kd_;
  const mergeGeo_setup& setup_;
  const unsigned limit_;
  std::uint64_t points_at_once_ = 0;
  osg_geoset triangles_;
  osg_line_geoset lines_;
  osg_point_geoset points_;
  const NodePtr result_ = makeGroup();
};

/// The top tree over a group's nodes, each an object.
class spatial_merge {
 public:
  spatial_merge(const ::osg::MaterialPtr& material, const material_group& group,
                const kd_build_setup& kd, const mergeGeo_setup& setup, unsigned limit)
      : material_(material), kd_(kd), setup_(setup), limit_(limit) {
    scene_.nodes = group;
    scene_.node_count = static_cast<std::uint32_t>(group.size());
    scene_.setup(NodePtr(), {3, 50});
    if (scene_.node_count > 0) build_top_tree(scene_, tree_);
  }

  NodePtr run() { return tree_.is_usable() ? merge_below(0) : NodePtr(); }

 private:
  /// As deep as the tree: a hundred levels at most.
  NodePtr merge_below(std::int32_t index) {
    const bih_node& node = tree_.nodes[static_cast<std::size_t>(index)];
    material_group below;
    collect(index, below);
    if (node.is_leaf() || triangles_of(below) < limit_)
      return mergeMaterialGroup(material_, below, kd_, setup_, limit_);
    const NodePtr group = makeGroup();
    group->addChild(merge_below(index + 1));
    group->addChild(merge_below(node.right_child));
    return group;
  }

  void collect(std::int32_t index, material_group& nodes) const {
    const bih_node& node = tree_.nodes[static_cast<std::size_t>(index)];
    if (!node.is_leaf()) {
      collect(index + 1, nodes);
      collect(node.right_child, nodes);
      return;
    }
    for (std::int32_t i = 0; i < node.leaf_count; ++i)
      nodes.push_back(scene_.nodes[tree_.indices[static_cast<std::size_t>(node.leaf_start + i)]]);
  }

  static std::uint64_t triangles_of(const material_group& nodes) {
    std::uint64_t sum = 0;
    for (const NodePtr& node : nodes)
      sum += static_cast<std::uint64_t>(
          countPrimitiveTriangles(::osg::Geometry::dcast(node->getCore())));
    return sum;
  }

  const ::osg::MaterialPtr& material_;
  const kd_build_setup& kd_;
  const mergeGeo_setup& setup_;
  const unsigned limit_;
  Morlu_osg_scene_geoset<bih_tree<float>> scene_;
  bih_tree<float> tree_;
};

}  // namespace

NodePtr mergeMaterialGroup(const ::osg::MaterialPtr& material, const material_group& group,
                           const kd_build_setup& kd, const mergeGeo_setup& setup, unsigned limit) {
  return group_merge(material, group, kd, setup, limit).run();
}

NodePtr mergeMaterialGroupSpatial(const ::osg::MaterialPtr& material, const material_group& group,
                                  const kd_build_setup& kd, const mergeGeo_setup& setup,
                                  unsigned limit) {
  return spatial_merge(material, group, kd, setup, limit).run();
}

}  // namespace morlu::osg
