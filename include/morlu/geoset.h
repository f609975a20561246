#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include <osg/geometry.h>

#include "morlu/primitives.h"
#include "morlu/ray.h"

/// Geometry sets: flat, unindexed working copies of geometry with one material.
///
/// The vertices stand in the properties of one private `osg::Geometry`, every vertex of every
/// element by value. Element i is the run of 3 (triangles), 2 (lines) or 1 (points) vertices at its
/// index; indices never move and are never reused. A set carries an attribute if its geometry has
/// the property; all have the same number of entries, which may be more than are used.
/// `TexCoords7` is no texture coordinate: its first component is the id of the source node.
///
/// The way of a set: construct, fill, `setup` once, then cut and build. No exception leaves the
/// members below but the constructors and `buildTriangles`, which need memory; where an operation
/// fails it says so in one line and leaves the stated state. A set has no lock: one thread at a
/// time.
namespace morlu::osg {

/// One element, unpacked. Lines use the first two slots of each array, points the first.
struct prepared_element {
  ::osg::Point<float, 3> position[3];
  ::osg::Vector<float, 3> normal[3];
  ::osg::Color3<float> color[3];
  ::osg::Color3<float> secondary_color[3];
  ::osg::Vector<float, 2> tex_coord0[3];
  ::osg::Vector<float, 2> tex_coord1[3];
  ::osg::Vector<float, 2> tex_coord2[3];
  ::osg::Vector<float, 2> tex_coord3[3];
  float id[3];
};

/// One row of floats an axis; null until a set is set up.
using bounds_rows = std::unique_ptr<std::unique_ptr<float[]>[]>;

/// A point that a cut computes; ordered by x, then y, then z.
using split_point = std::array<double, 3>;

/// Triangles.
class MORLU_API osg_geoset {
 public:
  std::uint64_t num_objects = 0;               // elements; 0 until `setup`
  std::uint64_t object_capacity = 0;           // elements that the bounds have room for
  std::uint64_t vertex_capacity = 0;           // vertices that a fill may write
  std::uint64_t vertex_count = 0;              // vertices that fills have written
  ::osg::RefPtr<::osg::GeometryPtr> geometry;  // never null unless `clear` found no memory
  bounds_rows min_bounds;                      // lowest coordinate of each element, by axis
  bounds_rows max_bounds;                      // highest coordinate
  /// Points where edges meet the plane `split_plane` of axis `split_axis`, by start, then end.
  std::map<split_point, std::map<split_point, split_point>> split_cache;
  std::int32_t split_axis = -1;
  double split_plane = 0;
  /// Corner for corner what the positions are; only after `buildTriangles`.
  std::unique_ptr<simple_triangle<float, math::vector<float, 3>, math::vector<float, 3>>[]>
      triangles;
  bool not_enlargeable = false;  // a resize has failed: nothing resizes the set any more
  bounding_box box{};            // of all elements; zeros without any

  osg_geoset();
  osg_geoset(const osg_geoset&) = delete;
  osg_geoset& operator=(const osg_geoset&) = delete;
  ~osg_geoset();

  /// Back to empty, with a new geometry and a vertex capacity of 500000. Without memory for the new
  /// geometry it is null, and the set is of no use until a `clear` succeeds.
  void clear();

  /// Room for `n` vertices: sets the capacity and `resizeFields(n)`; if that succeeds,
  /// `vertex_count` is at most `n`.
  void setVertexCapacity(std::size_t n);

  /// Gives each existing property `3n` entries, which costs nothing for those that nobody writes.
  /// A resize that fails is undone, makes the set `not_enlargeable` and gives false, as does every
  /// later call.
  bool resizeFields(unsigned n);

  /// Makes elements of the vertices, with bounds, box and, if there are none, normals. Counts by
  /// `vertex_count`, so that elements added before fall out of the count (they stay stored). A
  /// failure clears the set.
  void setup();

  /// Appends the triangle a, b, c: normals and ids as those of the element `parent`, corner by
  /// corner, colours and texture coordinates interpolated on it; defaults if there is no such
  /// element. Grows by 2, from 1000 elements on by 1.3. False if that or the writing fails.
  bool AddObject(const ::osg::Point<float, 3>& a, const ::osg::Point<float, 3>& b,
                 const ::osg::Point<float, 3>& c, std::size_t parent);

  /// Shrinks an element to a, b, c: colours and texture coordinates are interpolated on what it
  /// was, normals and ids stay. Nothing happens beyond the last element.
  void replaceObject(const ::osg::Point<float, 3>& a, const ::osg::Point<float, 3>& b,
                     const ::osg::Point<float, 3>& c, unsigned element);

  /// Unpacks an element; slots of absent attributes stay as they are. An index beyond the last
  /// element says so and delivers the last.
  void PrepareTriangle(prepared_element& out, unsigned element);

  /// The colour (`which` 0) or secondary colour (1) of the element at `p`, which need not lie
  /// inside: within 1e-6 of a corner that corner's, else weighted by areas, on a triangle without
  /// area along its longest edge. `out` stays without such an attribute or element. Returns `out`.
  ::osg::Color3<float>& interpolateColor(::osg::Color3<float>& out, unsigned element,
                                         const ::osg::Point<float, 3>& p, int which);
  /// The same for texture coordinates `which`, 0 to 3.
  ::osg::Vector<float, 2>& interpolateTexCoord(::osg::Vector<float, 2>& out, unsigned element,
                                               const ::osg::Point<float, 3>& p, int which);

  /// Computes the bounds of elements `first` to `last`, both included, as far as they exist.
  void updateObjectBounds(unsigned first, unsigned last);
  /// Computes `box` from the positions of all elements. O(elements).
  void calcBoundingBox();
  /// Makes `triangles`; nothing without capacity. Needs memory: `std::bad_alloc` leaves the set
  /// without them.
  void buildTriangles();

  // Cuts. The element keeps its index for one piece, the others are appended. Surface, winding and
  // id stay. What can't be cut stays whole; `added` is the number of new elements, `first` the
  // index of the first of them, the former `num_objects`. Elements must be set up.

  /// Where the edge from `a` to `b` meets the plane x[axis] = `plane`, in double precision, the
  /// axis's own coordinate exactly. The same edge gives the same point while the plane stays.
  /// False, with a line, within 1e-5 of an end and for points that are not finite; false beyond
  /// axis 2.
  bool calcSplitPoint(const double a[3], const double b[3], double plane, int axis, double out[3]);

  /// Cuts at the plane x[axis] = `plane`, into two elements if it goes through a corner (or misses
  /// one by less than a hundred-thousandth of another's distance), else into three. Nothing is cut
  /// if a piece would be rogue.
  void SplitElement(std::size_t element, double plane, unsigned axis, unsigned& added,
                    std::size_t& first);

  /// Cuts in half: across the longest extent, as `SplitElement` does, if one extent is more than 15
  /// times another that is not 0 or `forceAxis` asks for it; else through the middle of an edge,
  /// the longest for a `lineValue` of 0, else P0P1 (1), P1P2 (2) or P2P0 (3).
  void splitElementInTwoParts(std::size_t element, unsigned& added, std::size_t& first,
                              unsigned lineValue, bool forceAxis);

  // What the builds of trees want to know of an element.
  std::uint64_t size() const { return num_objects; }
  float low(std::uint64_t element, int axis) const { return min_bounds[axis][element]; }
  float high(std::uint64_t element, int axis) const { return max_bounds[axis][element]; }

 private:
  friend struct late_normals;
  std::uint64_t vertices_to_smooth_ = 0;  // whose normals `setup` is to make
};

/// Lines. What is said of triangles holds with two vertices in place of three; lines carry
/// positions, normals, colours, secondary colours and ids, and never compute normals in `setup`.
class MORLU_API osg_line_geoset {
 public:
  ::osg::RefPtr<::osg::GeometryPtr> geometry;
  std::uint64_t num_objects = 0;
  std::uint64_t object_capacity = 0;
  std::uint64_t vertex_capacity = 0;
  std::uint64_t vertex_count = 0;
  bounds_rows min_bounds;
  bounds_rows max_bounds;
  bool not_enlargeable = false;
  bounding_box box{};

  osg_line_geoset();
  osg_line_geoset(const osg_line_geoset&) = delete;
  osg_line_geoset& operator=(const osg_line_geoset&) = delete;
  ~osg_line_geoset();

  void clear();
  void setVertexCapacity(std::size_t n);
  /// Gives each existing property `2n` entries.
  bool resizeFields(unsigned n);
  void setup();
  bool AddObject(const ::osg::Point<float, 3>& a, const ::osg::Point<float, 3>& b,
                 std::size_t parent);
  void replaceObject(const ::osg::Point<float, 3>& a, const ::osg::Point<float, 3>& b,
                     unsigned element);
  void setLine(prepared_element& out, unsigned element);
  /// Within 1e-6 of an end that end's colour, else by the share of the way on which `p` lies.
  ::osg::Color3<float>& interpolateColor(::osg::Color3<float>& out, unsigned element,
                                         const ::osg::Point<float, 3>& p, int which);
  void updateObjectBounds(unsigned first, unsigned last);
  void calcBoundingBox();

  bool calcSplitPoint(const double a[3], const double b[3], double plane, int axis, double out[3]);
  /// Cuts into two. The element keeps the part behind the cut; nothing snaps, nothing is
  /// remembered.
  void SplitElement(std::size_t element, double plane, unsigned axis, unsigned& added,
                    std::size_t& first);

  std::uint64_t size() const { return num_objects; }
  float low(std::uint64_t element, int axis) const { return min_bounds[axis][element]; }
  float high(std::uint64_t element, int axis) const { return max_bounds[axis][element]; }
};

/// Points. They carry positions, normals, colours and ids; their bounds are the positions, and
/// nothing cuts them.
class MORLU_API osg_point_geoset {
 public:
  ::osg::RefPtr<::osg::GeometryPtr> geometry;
  std::uint64_t num_objects = 0;
  std::uint64_t object_capacity = 0;
  std::uint64_t vertex_capacity = 0;
  std::uint64_t vertex_count = 0;
  bool not_enlargeable = false;
  bounding_box box{};

  osg_point_geoset();
  osg_point_geoset(const osg_point_geoset&) = delete;
  osg_point_geoset& operator=(const osg_point_geoset&) = delete;
  ~osg_point_geoset();

  void clear();
  void setVertexCapacity(std::size_t n);
  /// Gives each existing property `n` entries.
  bool resizeFields(unsigned n);
  void setup();
  void PrepareTriangle(prepared_element& out, unsigned element);
  void calcBoundingBox();

  std::uint64_t size() const { return num_objects; }
  float low(std::uint64_t element, int axis) const {
    return geometry->getPositions()->getValue(static_cast<unsigned>(element))[axis];
  }
  float high(std::uint64_t element, int axis) const { return low(element, axis); }
};

/// Appends the triangles of a geometry node to the set, all kinds of primitive and index layout
/// among them, in the order of its triangle iterator; its children are not looked at. Returns how
/// many were rogue (see `is_rogue`) and left out. Any number of nodes may follow one another; the
/// set then needs a `setup`, or `runSetup` with the last, which also runs after a failure. Not to
/// be called between `setup` and `clear` if elements were appended or cut.
///
/// `toWorld`: positions go through the node's world matrix, normals through its rotation alone
/// (that is not through scale or mirroring) and are normalised. Corners keep their order.
///
/// The set carries the attributes that any of its sources has; texture coordinates 4 to 6 are lost.
/// Vertices of the other sources get white, the normal (0, 1, 0), the coordinates (0, 0), the id
/// -1. If the set has normals, and the source has none, then `setup` replaces the normals of this
/// source and of all before it by those of `calcVertexNormals` with a crease angle of 30 degrees;
/// until then they are the defaults. That is done once, however many such sources there were.
///
/// The set keeps the material that it has; else it takes the source's or, with `useMaterialGroup`,
/// that of the topmost MaterialGroup above the node.
///
/// Ids: with `wantIds`, or if the set has them, vertices keep the id that the source brings in
/// `TexCoords7`, else get that under which the node's name (its geometry's, if it has none) is
/// registered; 0 after the merge. A source without a name says so and its vertices get -1. Ids
/// above 2^24, which floats can't hold exactly, are told of once.
///
/// The source changes in two ways: attributes without entries are taken away, and with
/// `dropUnusedTexCoords`, where the effective material shows no image, texture coordinates 0 to 3
/// are left out, and taken away unless other nodes may show an image on the same geometry. Nothing
/// is written if there is nothing to take away; two threads may then extract the same geometry into
/// different sets.
///
/// Returns 0 and leaves the set as it is, with a line on standard output, for null, a node without
/// core or with another core than a plain Geometry, and a set without geometry; without a line for
/// a geometry that lacks types, lengths or positions, or whose lengths promise no triangle (quad
/// strips promise none, but are delivered beside others). Running out of memory on the way leaves
/// what was written uncounted, with a line on standard error. If the set can't grow, what fits is
/// kept, and a line on standard error says so. O(triangles), plus the cost of growing the set.
MORLU_API int extract(const ::osg::NodePtr& node, osg_geoset& set, bool toWorld,
                      bool useMaterialGroup, bool wantIds, bool runSetup, bool dropUnusedTexCoords);

/// The same for the lines of a geometry, those of strips and loops among them; what is left out and
/// counted are lines whose ends are within 1e-6 of each other on all axes. Normals are never made.
MORLU_API int extractLines(const ::osg::NodePtr& node, osg_line_geoset& set, bool toWorld,
                           bool useMaterialGroup, bool wantIds, bool runSetup);

/// The same for points. None is left out: returns 0. With `toWorld` normals go through the whole
/// matrix but its translation, and are not normalised.
MORLU_API int extractPoints(const ::osg::NodePtr& node, osg_point_geoset& set, bool toWorld,
                            bool useMaterialGroup, bool wantIds, bool runSetup);

}  // namespace morlu::osg
