#pragma once

#include <osg/node.h>

#include <cstdint>
#include <deque>
#include <vector>

#include "kd/kd_tree.h"
#include "morlu/geoset.h"
#include "ray/bih_tree.h"

/// A whole scene as one set: each geometry node is an object.
namespace morlu::osg {

/// The setting with which trees of a kind are built.
template <class Tree>
struct setup_of;
template <>
struct setup_of<bih_tree<float>> {
  using type = build_setup;
};
template <>
struct setup_of<kd_tree> {
  using type = kd_build_setup;
};

/// Objects in world space, each with a set and a tree of its own, or known by their bounds alone.
/// It holds copies: edits of the scene don't reach it, nor does the end of the scene.
///
/// Trees over the objects are built by `build_top_tree` or `compile_tree`, which take it as a set
/// of `size()` elements. `Tree` is `bih_tree<float>` for whoever shoots rays, or `kd_tree`.
template <class Tree>
class Morlu_osg_scene_geoset {
 public:
  using setup_type = typename setup_of<Tree>::type;

  bounding_box box{};              // of all objects, flat axes with some thickness
  bounds_rows min_bounds;          // lowest coordinate of each object, by axis; null until set up
  bounds_rows max_bounds;          // highest coordinate
  std::deque<Tree> trees;          // of the objects; none without objects
  std::deque<osg_geoset> geosets;  // of the objects; none without objects
  std::uint32_t node_count = 0;    // geometry nodes found
  std::uint32_t object_count = 0;  // objects made
  std::vector<::osg::NodePtr> nodes;        // the geometry nodes
  std::vector<std::uint32_t> object_nodes;  // of each object, its node's place in `nodes`
  bool with_objects = false;  // false: an object is a node, known only by its world volume

  struct object {
    Tree& tree;
    osg_geoset& set;
  };

  Morlu_osg_scene_geoset() = default;
  Morlu_osg_scene_geoset(const ::osg::NodePtr& node, const setup_type& object_setup, bool objects)
      : with_objects(objects) {
    setup(node, object_setup);
  }
  Morlu_osg_scene_geoset(const Morlu_osg_scene_geoset&) = delete;
  Morlu_osg_scene_geoset& operator=(const Morlu_osg_scene_geoset&) = delete;

  /// Fills the set with the geometry nodes below `node`, or with `nodes` where the caller has put
  /// `node_count` of them. Nodes without triangles are passed over. A set that holds something is
  /// emptied first. Tells its progress on standard output. An exception ends here, with a line on
  /// standard error: without memory for the objects there are none. O(triangles x log triangles).
  void setup(const ::osg::NodePtr& node, const setup_type& object_setup);

  /// Object `i`. A number beyond the last says so and gives the last; an empty set gives an object
  /// without elements and nodes.
  object simple_object(unsigned i);
  /// The object's bounds. A number beyond the last says so and leaves both as they are.
  void axis_min_max(unsigned i, int axis, float& lo, float& hi) const;
  /// The object's node; for a number beyond the last a line, and null.
  ::osg::NodePtr object_node(unsigned i) const;
  bool has_objects() const { return with_objects && node_count > 0; }

  /// Things that a tree over the scene works on.
  std::uint64_t size() const { return with_objects ? object_count : node_count; }

 private:
  void clear();
  void collect_objects(const ::osg::NodePtr& node, const setup_type& object_setup);
  void make_objects(const setup_type& object_setup);
  bool make_object(std::uint32_t node, const setup_type& object_setup);
  void collect_bounds();
  void read_bounds_of_nodes();
  void read_bounds_of_objects();
  void set_bounds(std::uint64_t i, const bounding_box& of);

  bool is_set_up_ = false;
  Tree no_tree_;
  osg_geoset no_set_;
};

extern template class Morlu_osg_scene_geoset<bih_tree<float>>;
extern template class Morlu_osg_scene_geoset<kd_tree>;

/// Builds the tree over the objects and computes the scene's box. Leaves the tree inactive without
/// objects. Throws `std::bad_alloc` or `std::length_error`.
void build_top_tree(Morlu_osg_scene_geoset<bih_tree<float>>& scene, bih_tree<float>& tree);

/// Triangles below a node of a tree over the scene, in 32 bits: those of the objects' trees, pieces
/// included, or what the nodes' geometries promise. 0 for a tree of a single node. O(nodes below).
template <class Tree>
std::uint32_t count_node_triangles(const kd_tree& tree, Morlu_osg_scene_geoset<Tree>& scene,
                                   std::uint64_t index);

}  // namespace morlu::osg
