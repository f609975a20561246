#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

#include <osg/attachment.h>
#include <osg/node.h>

#include "morlu/primitives.h"

/// Rays and collisions on bounding interval hierarchies (BIH) that live on geometry cores.
///
/// After C. Waechter, A. Keller, "Instant ray tracing: the bounding interval hierarchy" (2006).
/// A tree is built over the usable triangles of one geometry, in its object space, once for all
/// nodes that share the core. It is a cache: never written to a file, gone with the core. The
/// library doesn't notice edits of a geometry: say `mark_bih` or `update_bih` after them.
namespace morlu {

/// What a build leaves behind. `nodes` is the highest node index in use, `max_depth` the depth of
/// the deepest inner node; the root has depth 0.
struct bih_tree_stats {
  std::uint64_t nodes;
  std::uint64_t leaves;
  std::uint64_t max_depth;
  std::uint64_t max_leaf_size;

  MORLU_API bih_tree_stats();
  bih_tree_stats(const bih_tree_stats&) = default;
  MORLU_API bih_tree_stats& operator=(const bih_tree_stats& other);
  /// Sets all to 0.
  MORLU_API void clear();
};

/// When a build stops splitting.
struct build_setup {
  std::uint32_t max_leaf_size;  // a side with at most this many elements becomes a leaf: 3
  std::uint32_t max_depth;      // a node at this depth makes leaves of both its sides: 50

  MORLU_API build_setup();
  build_setup(std::uint32_t leaf_size, std::uint32_t depth)
      : max_leaf_size(leaf_size), max_depth(depth) {}
  build_setup(const build_setup&) = default;
  MORLU_API build_setup& operator=(const build_setup& other);
};

/// Counts what traces do. Traces are templates over such a type; the library's own queries use
/// `empty_trace_statistics`, which costs nothing.
struct trace_statistics {
  std::uint64_t rays;
  std::uint64_t occ_rays;
  std::uint64_t node_tests;
  std::uint64_t leaf_tests;
  std::uint64_t tri_tests;
  std::uint64_t failed_tri_tests;
  std::uint64_t overwrite_tri_tests;  // hits that replaced a farther one

  MORLU_API trace_statistics();
  trace_statistics(const trace_statistics&) = default;
  MORLU_API trace_statistics& operator=(const trace_statistics& other);
  MORLU_API trace_statistics& operator+=(const trace_statistics& other);
  MORLU_API void clear();
  MORLU_API void add_ray();
  MORLU_API void add_occ_ray();
  MORLU_API void add_node_test();
  MORLU_API void add_leaf_test();
  MORLU_API void add_tri_test();
  MORLU_API void add_failed_tri_test();
  MORLU_API void add_overwrite_tri_test();
};

/// Takes the place of `trace_statistics` and counts nothing, at no cost.
struct MORLU_API empty_trace_statistics {
  void add_ray() {}
  void add_occ_ray() {}
  void add_node_test() {}
  void add_leaf_test() {}
  void add_tri_test() {}
  void add_failed_tri_test() {}
  void add_overwrite_tri_test() {}
};

template <class T>
class bih_tree;
template <class T, class Point, class Vector>
struct simple_triangle;
template <class Triangle, class Stored>
class geo_set_convertable;

}  // namespace morlu

namespace morlu::osg {

/// The usable triangles of one geometry, in the order of its triangle iterator.
using triangle_set =
    geo_set_convertable<simple_triangle<float, math::vector<float, 3>, math::vector<float, 3>>,
                        simple_triangle<float, math::vector<float, 3>, math::vector<float, 3>>>;

/// Value of the attachment that carries a geometry's tree. Copies share tree and set, but for
/// `dirty`: a rebuild through one is seen through all.
struct BIHAttachPayload {
  boost::shared_ptr<bih_tree<float>> tree;  // never null in a payload made here
  boost::shared_ptr<triangle_set> geo_set;  // the triangles that `tree` is over
  bool dirty;                               // the tree is stale; the next use rebuilds it

  /// An empty, inactive tree and an empty set.
  MORLU_API BIHAttachPayload();
  MORLU_API BIHAttachPayload(const BIHAttachPayload& other);
  MORLU_API BIHAttachPayload& operator=(const BIHAttachPayload& other);
  MORLU_API ~BIHAttachPayload();
  /// True for the very same object only.
  MORLU_API bool operator==(const BIHAttachPayload& other) const;
  /// 0: a tree has no form outside the process.
  MORLU_API unsigned int bin_size() const;
};

/// Value of the setup attachment, which the library registers for applications and leaves alone.
struct SetupAttachPayload {
  unsigned char value;

  MORLU_API SetupAttachPayload();
  SetupAttachPayload(const SetupAttachPayload&) = default;
  MORLU_API SetupAttachPayload& operator=(const SetupAttachPayload& other);
  /// True for the very same object only.
  MORLU_API bool operator==(const SetupAttachPayload& other) const;
  MORLU_API unsigned int bin_size() const;
};

}  // namespace morlu::osg

namespace osg {

template <>
struct FieldDataTraits<morlu::osg::BIHAttachPayload> {
  static const char* getName() { return "BIHAttachPayload"; }
  static const char* getSingleName() { return "SFBIH_Tree"; }
  static const char* getMultiName() { return "MFBIH_Tree"; }
  static const char* getParentName() { return "Field"; }
  static morlu::osg::BIHAttachPayload getDefault() { return {}; }
  static UInt64 getBinSize(const morlu::osg::BIHAttachPayload& value) { return value.bin_size(); }
  static void putToString(const morlu::osg::BIHAttachPayload&, std::string& out) { out += "\"\""; }
};

template <>
struct FieldDataTraits<morlu::osg::SetupAttachPayload> {
  static const char* getName() { return "SetupAttachPayload"; }
  static const char* getSingleName() { return "SFMorlu_Setup"; }
  static const char* getMultiName() { return "MFMorlu_Setup"; }
  static const char* getParentName() { return "Field"; }
  static morlu::osg::SetupAttachPayload getDefault() { return {}; }
  static UInt64 getBinSize(const morlu::osg::SetupAttachPayload& value) { return value.bin_size(); }
  static void putToString(const morlu::osg::SetupAttachPayload&, std::string& out) {
    out += "\"\"";
  }
};

/// Describes the attachment type "MorluBIH".
struct MORLU_API MorluAttachBIHDesc {
  using Payload = morlu::osg::BIHAttachPayload;
  static const char* getTypeName() { return "MorluBIH"; }
  static const char* getFieldName() { return "morlubih"; }
  static const char* getGroupName() { return "morlubih"; }
  static const char* getClassName() { return "MorluBIHAttachment"; }
  static const char* getParentTypeName() { return "Attachment"; }
  static FieldContainerType::InitMethod getInitMethod() { return nullptr; }
  static FieldDescription** getDesc();

 private:
  static FieldDescription* _desc[1];
};

/// Describes the attachment type "MorluSetup".
struct MORLU_API MorluAttachSetupDesc {
  using Payload = morlu::osg::SetupAttachPayload;
  static const char* getTypeName() { return "MorluSetup"; }
  static const char* getFieldName() { return "morlusetup"; }
  static const char* getGroupName() { return "morlusetup"; }
  static const char* getClassName() { return "MorluSetupAttachment"; }
  static const char* getParentTypeName() { return "Attachment"; }
  static FieldContainerType::InitMethod getInitMethod() { return nullptr; }
  static FieldDescription** getDesc();

 private:
  static FieldDescription* _desc[1];
};

using MorluBIHAttachment = SimpleAttachment<MorluAttachBIHDesc>;
using MorluSetupAttachment = SimpleAttachment<MorluAttachSetupDesc>;

}  // namespace osg

namespace morlu::osg {

// --- Trees on geometry cores. Not at the same time as rays or collisions on the same cores.

/// Builds a tree over the node's geometry, O(n log n), and attaches it to the core in place of a
/// former one. A geometry without usable triangle gets an inactive tree. Nothing happens for null,
/// a node without core, or a core that isn't exactly a Geometry.
///
/// Here and wherever trees are built: without memory for the triangles, a line on standard error
/// says so and the geometry counts as one without; without memory for the tree, `std::bad_alloc`
/// leaves. A former tree stays on the core, but is given up where it was to be rebuilt in place.
MORLU_API void attach_bih(::osg::NodePtr node);

/// `attach_bih` on each node of the subgraph whose core has no tree yet.
MORLU_API void precalc_BIH(::osg::NodePtr node);

/// `attach_bih` on each node of the subgraph: every tree is made anew, one under several nodes for
/// each of them.
MORLU_API void update_bih(::osg::NodePtr node);

/// Marks all trees of the subgraph as stale; the next ray or collision that reaches one rebuilds
/// it.
MORLU_API void mark_bih(::osg::NodePtr node);

/// Rebuilds the payload's tree in place from the node's geometry and takes the mark away. Without a
/// usable triangle there, the tree is rebuilt over the triangles it had.
MORLU_API void update_bih_payload(::osg::NodePtr node, BIHAttachPayload& payload);

/// Trees attached so far; never goes down, the application may set it.
MORLU_API unsigned int& num_attachments();

/// One line about the core's tree: "BIHTree, A/N/L/D/MP/NT, bbox: " with its state, nodes, leaves,
/// depth, largest leaf, triangles and box, or "No BIHTree.".
MORLU_API std::string get_info(::osg::NodeCorePtr core);

// --- Rays. Front faces only: those whose corners run counter-clockwise as seen from the origin.

/// From now on `osg::IntersectAction` finds hits on geometry through the library's trees, which are
/// built where they are missing. Much faster than the layer's own test. The triangle number of a
/// hit counts usable triangles only.
MORLU_API void register_morlu_intersect();

/// From now on `osg::IntersectAction` takes each geometry for its stored volume: the hit lies where
/// the line enters it, the normal is +z.
MORLU_API void register_bbox_intersect();

/// Puts the layer's own test back. Trees stay on their cores.
MORLU_API void unregister_morlu_intersect();

/// Geometries that picks have tested; picks on other threads count too. The application may set it
/// while none runs. The very same variable as `num_colltests()`.
MORLU_API unsigned int& num_picktests();

/// Calls of `collision`; the very same variable as `num_picktests()`.
MORLU_API unsigned int& num_colltests();

// --- Collisions

struct CollisionParam {
  float tolerance;  // margin about the first subgraph's box in the coarse test only: 0.01

  MORLU_API CollisionParam();
  CollisionParam(const CollisionParam&) = default;
  MORLU_API CollisionParam& operator=(const CollisionParam& other);
};

struct CollisionResults {
  bool hit;
  ::osg::Point<float, 3> point;  // a contact point in world coordinates
  ::osg::NodePtr node_a;         // the geometry node of the first subgraph
  ::osg::NodePtr node_b;         // the geometry node of the second subgraph

  MORLU_API CollisionResults();
  MORLU_API CollisionResults(const CollisionResults& other);
  MORLU_API CollisionResults& operator=(const CollisionResults& other);
  MORLU_API ~CollisionResults();
};

/// Whether triangles of the two subgraphs touch, and where the first such pair is found. Missing
/// and stale trees are built. `results.hit` tells the same as the result once both world volumes
/// are known to be valid; point and nodes are written on a collision only. Null nodes never
/// collide, nor do geometries whose places in the world are not finite. Edges count where they run
/// through the other triangle from its front to its back.
///
/// A walk of both trees at once, which leaves out pairs whose volumes are apart; 48 bytes a
/// triangle are made at a tree's first collision and kept with it.
MORLU_API bool collision(::osg::NodePtr a, ::osg::NodePtr b, const CollisionParam& param,
                         CollisionResults& results);

}  // namespace morlu::osg
