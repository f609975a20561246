// Collects the geometry of a scene into objects, each with a tree of its own.

#include "occlusion/scene_geoset.h"

#include <osg/geometry.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "geoset/extract.h"
#include "geoset/guard.h"
#include "geoset/setup.h"
#include "kd/object_bounds.h"
#include "kd/strategies.h"
#include "morlu/optimiser.h"
#include "primitives/say.h"
#include "ray/bih_build.h"

namespace morlu::osg {

namespace {

constexpr failure_texts objects_failed{
    "Standard exception in Geoset.setup(): ", "Standard exception in Geoset.setup(): ",
    "Error occured in Geoset.setup()."};
constexpr failure_texts bounds_failed{
    "Exception in Geoset.setup(): ", "Exception in Geoset.setup(): ",
    "Error occured in Geoset.setup()."};

void build_object_tree(osg_geoset& set, bih_tree<float>& tree, const build_setup& setup) {
  set.calcBoundingBox();
  bih_builder(tree, setup).build(set, set.box);
  tree.active = true;
}
void build_object_tree(osg_geoset& set, kd_tree& tree, const kd_build_setup& setup) {
  compile_tree(set, tree, setup, kd_strategy_SurfaceArea{});
}

std::uint64_t elements_of(const bih_tree<float>& tree) {
  return tree.index_count;
}
std::uint64_t elements_of(const kd_tree& tree) {
  return tree.nodes ? tree.count_elements(0) : 0;
}

/// The scene's objects as the builder of trees sees them.
struct scene_elements {
  const Morlu_osg_scene_geoset<bih_tree<float>>& scene;

  std::uint64_t size() const { return scene.size(); }
  float low(std::uint64_t i, int axis) const { return bounds(i, axis).low; }
  float high(std::uint64_t i, int axis) const { return bounds(i, axis).high; }

 private:
  struct interval {
    float low = 0, high = 0;
  };
  interval bounds(std::uint64_t i, int axis) const {
    interval of;
    scene.axis_min_max(static_cast<unsigned>(i), axis, of.low, of.high);
    return of;
  }
};

}  // namespace

// --- Filling -------------------------------------------------------------------------------------

template <class Tree>
void Morlu_osg_scene_geoset<Tree>::clear() {
  is_set_up_ = false;
  box = {};
  min_bounds.reset();
  max_bounds.reset();
  trees.clear();
  geosets.clear();
  nodes.clear();
  object_nodes.clear();
  node_count = object_count = 0;
}

template <class Tree>
void Morlu_osg_scene_geoset<Tree>::setup(const ::osg::NodePtr& node,
                                         const setup_type& object_setup) {
  if (is_set_up_) clear();
  is_set_up_ = true;
  guarded(
      objects_failed, [&] { collect_objects(node, object_setup); }, [] {});
  if (!is_set_up_) return;
  guarded(
      bounds_failed, [&] { collect_bounds(); }, [] {});
}

template <class Tree>
void Morlu_osg_scene_geoset<Tree>::collect_objects(const ::osg::NodePtr& node,
                                                   const setup_type& object_setup) {
  if (node_count == 0) getGeometryNodes(node, nodes, false);
  if (nodes.size() > std::numeric_limits<std::uint32_t>::max())
    throw std::length_error("too many nodes for a scene");
  node_count = static_cast<std::uint32_t>(nodes.size());
  is_set_up_ = node_count > 0;
  if (with_objects) make_objects(object_setup);
}

template <class Tree>
void Morlu_osg_scene_geoset<Tree>::make_objects(const setup_type& object_setup) {
  std::uint32_t made = 0;
  for (std::uint32_t i = 0; i < node_count; ++i) made += make_object(i, object_setup);
  if (geosets.size() > made) {
    geosets.pop_back();
    trees.pop_back();
  }
  object_count = made;
}

/// False for a node without triangles; the entries that were made for it are used for the next one.
template <class Tree>
bool Morlu_osg_scene_geoset<Tree>::make_object(std::uint32_t node, const setup_type& object_setup) {
  if (geosets.size() == object_nodes.size()) {
    geosets.emplace_back();
    trees.emplace_back();
  } else {  // nothing of the node before may stay
    geosets.back().clear();
    geosets.back().vertex_capacity = 0;
  }
  osg_geoset& set = geosets.back();
  extract(nodes[node], set, true, false, false, true, true);
  if (set.num_objects == 0) return false;
  object_nodes.push_back(node);
  build_object_tree(set, trees.back(), object_setup);
  set.buildTriangles();
  say("\rDone " + std::to_string(node + 1) + " of " + std::to_string(node_count));
  return true;
}

template <class Tree>
void Morlu_osg_scene_geoset<Tree>::collect_bounds() {
  min_bounds = make_bounds(size());
  max_bounds = make_bounds(size());
  if (with_objects)
    read_bounds_of_objects();
  else
    read_bounds_of_nodes();
  if (size() > 0) ::morlu::compute_box(*this);
}

template <class Tree>
void Morlu_osg_scene_geoset<Tree>::set_bounds(std::uint64_t i, const bounding_box& of) {
  for (int axis = 0; axis < 3; ++axis) {
    min_bounds[axis][i] = of.min[axis];
    max_bounds[axis][i] = of.max[axis];
  }
}

template <class Tree>
void Morlu_osg_scene_geoset<Tree>::read_bounds_of_objects() {
  for (std::uint32_t i = 0; i < object_count; ++i) set_bounds(i, geosets[i].box);
}

/// A null node has the bounds of the one before it, the first one 0.
template <class Tree>
void Morlu_osg_scene_geoset<Tree>::read_bounds_of_nodes() {
  bounding_box of{};
  for (std::uint32_t i = 0; i < node_count; ++i) {
    if (i < nodes.size() && nodes[i]) {
      ::osg::DynamicVolume volume;
      nodes[i]->getWorldVolume(volume);
      ::osg::Pnt3f low, high;
      volume.getBounds(low, high);
      osg::set(of.min, low);
      osg::set(of.max, high);
    } else {
      say("NULLFC\n");
    }
    set_bounds(i, of);
  }
}

// --- Reading -------------------------------------------------------------------------------------

template <class Tree>
auto Morlu_osg_scene_geoset<Tree>::simple_object(unsigned i) -> object {
  const std::uint32_t count = with_objects ? object_count : 0;
  if (i >= count) {
    say("Morlu_osg_scene_geoset.simple_object(), no element with " + std::to_string(i) + '\n');
    if (count == 0) return {no_tree_, no_set_};
    i = count - 1;
  }
  return {trees[i], geosets[i]};
}

template <class Tree>
void Morlu_osg_scene_geoset<Tree>::axis_min_max(unsigned i, int axis, float& lo, float& hi) const {
  read_object_bounds(min_bounds, max_bounds, min_bounds && max_bounds ? size() : 0, i, axis, lo,
                     hi);
}

template <class Tree>
::osg::NodePtr Morlu_osg_scene_geoset<Tree>::object_node(unsigned i) const {
  if (i >= nodes.size() || (!object_nodes.empty() && i >= object_nodes.size())) {
    say("Morlu_osg_scene_geoset: No Node with index " + std::to_string(i) + '\n');
    return ::osg::NullFC;
  }
  return nodes[object_nodes.empty() ? i : object_nodes[i]];
}

template class Morlu_osg_scene_geoset<bih_tree<float>>;
template class Morlu_osg_scene_geoset<kd_tree>;

// --- Trees over the scene ------------------------------------------------------------------------

void build_top_tree(Morlu_osg_scene_geoset<bih_tree<float>>& scene, bih_tree<float>& tree) {
  if (scene.size() == 0) return;
  ::morlu::compute_box(scene);
  bih_builder(tree, {1, 100}).build(scene_elements{scene}, scene.box);
  tree.active = true;
}

namespace {

template <class Tree>
std::uint64_t triangles_of(Morlu_osg_scene_geoset<Tree>& scene, unsigned i) {
  if (scene.has_objects()) return elements_of(scene.simple_object(i).tree);
  const ::osg::NodePtr node = scene.object_node(i);
  if (!node) return 0;
  const int promised = countPrimitiveTriangles(::osg::Geometry::dcast(node->getCore()));
  return static_cast<std::uint64_t>(promised);
}

}  // namespace

template <class Tree>
std::uint32_t count_node_triangles(const kd_tree& tree, Morlu_osg_scene_geoset<Tree>& scene,
                                   std::uint64_t index) {
  if (tree.stats.nodes == 0 || index > tree.stats.nodes) return 0;
  std::uint64_t sum = 0;
  // a subtree stands in one piece, which ends after one leaf more than inner nodes
  for (std::uint64_t leaves_left = 1; leaves_left > 0; ++index) {
    const kd_node& node = tree.nodes[index];
    if (!node.is_leaf()) {
      ++leaves_left;
      continue;
    }
    --leaves_left;
    for (std::uint32_t i = 0; i < node.leaf_count; ++i)
      sum += triangles_of(
          scene,
          static_cast<unsigned>(tree.indices[static_cast<std::uint64_t>(node.leaf_start) + i]));
  }
  return static_cast<std::uint32_t>(sum);
}

template std::uint32_t count_node_triangles(const kd_tree&,
                                            Morlu_osg_scene_geoset<bih_tree<float>>&,
                                            std::uint64_t);
template std::uint32_t count_node_triangles(const kd_tree&, Morlu_osg_scene_geoset<kd_tree>&,
                                            std::uint64_t);

}  // namespace morlu::osg
