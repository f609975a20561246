#include "occlusion/scene_packets.h"

#include <algorithm>
#include <new>

namespace morlu {

namespace {

constexpr std::uint64_t most_numbers = std::uint64_t{1} << 31;

std::uint64_t node_count(const bih_tree<float>& tree) {
  return tree.stats.nodes + 1;
}

struct packed_counts {
  std::uint64_t nodes, triangles;
};
packed_counts count(const bih_tree<float>& top_tree, const ray_scene& scene) {
  packed_counts all{node_count(top_tree), 0};
  for (const auto& tree : scene.trees) {
    all.nodes += node_count(tree);
    all.triangles += tree.index_count;
  }
  return all;
}

template <class T>
large_array<T> room_for(std::uint64_t n) {
  large_array<T> made = make_large<T>(n);
  if (!made) throw std::bad_alloc();
  return made;
}

packed_triangle pack(const triangle& from) {
  const math::vector3 ab = from[1] - from[0], ac = from[2] - from[0];
  return {from[0], ab, ac, math::cross(ab, ac)};
}

/// Appends nodes with their numbers moved on: those of nodes by the nodes that are there, those of
/// leaf entries by `entries`.
std::uint64_t append_nodes(bih_node* to, std::uint64_t there, const bih_tree<float>& tree,
                           std::uint64_t entries) {
  const std::uint64_t added = node_count(tree);
  for (std::uint64_t i = 0; i < added; ++i) {
    bih_node node = tree.nodes[i];
    if (node.is_leaf())
      node.leaf_start += static_cast<std::int32_t>(entries);
    else
      node.right_child += static_cast<std::int32_t>(there);
    to[there + i] = node;
  }
  return there + added;
}

}  // namespace

bool can_be_packed(const bih_tree<float>& top_tree, const ray_scene& scene) {
  const packed_counts all = count(top_tree, scene);
  return all.nodes < most_numbers && all.triangles < most_numbers;
}

packed_scene pack(const bih_tree<float>& top_tree, const ray_scene& scene) {
  const packed_counts all = count(top_tree, scene);
  packed_scene packed{room_for<bih_node>(all.nodes), room_for<packed_triangle>(all.triangles),
                      room_for<packed_object>(top_tree.index_count), scene.box, 0};
  std::uint64_t nodes = append_nodes(packed.nodes.get(), 0, top_tree, 0);
  std::uint64_t triangles = 0;
  std::uint64_t depth = 0;
  for (std::uint64_t place = 0; place < top_tree.index_count; ++place) {
    const std::uint32_t object = top_tree.indices[place];
    const bih_tree<float>& tree = scene.trees[object];
    const osg::osg_geoset& set = scene.geosets[object];
    packed.objects[place] = {set.box.min, static_cast<std::int32_t>(nodes), set.box.max, 0};
    nodes = append_nodes(packed.nodes.get(), nodes, tree, triangles);
    for (std::uint64_t i = 0; i < tree.index_count; ++i)
      packed.triangles[triangles++] = pack(set.triangles[tree.indices[i]]);
    depth = std::max(depth, tree.stats.max_depth);
  }
  // an inner node leaves one entry at most, and a lane writes one beyond its last
  packed.depth = static_cast<int>(top_tree.stats.max_depth + depth + 4);
  return packed;
}

scene_packets::scene_packets(const packed_scene& scene)
    : nodes(scene.nodes.get()),
      triangles(scene.triangles.get()),
      objects(scene.objects.get()),
      box(scene.box),
      stack(room_for<level>(static_cast<std::uint64_t>(scene.depth))) {}

void trace_packets(scene_packets& packets, std::span<const scene_ray> rays, bool two_sided,
                   std::span<scene_outcome> outcomes, vector_unit unit) {
#ifdef MORLU_VECTOR_UNITS
  packets.rays = rays.data();
  packets.outcomes = outcomes.data();
  packets.ray_count = rays.size();
  packets.two_sided = two_sided;
  if (unit == vector_unit::avx512)
    avx512::walk_packets(packets);
  else
    avx2::walk_packets(packets);
#else
  static_cast<void>(packets), static_cast<void>(rays), static_cast<void>(two_sided);
  static_cast<void>(outcomes), static_cast<void>(unit);
#endif
}

}  // namespace morlu
