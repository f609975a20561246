#pragma once

#include <osg/geometry.h>
#include <osg/node.h>

#include "morlu/export.h"

/// What is done to a finished geometry.
namespace morlu::osg {

// Index building: other functions than `osg::createSharedIndex` and `osg::createSingleIndex`, which
// keep primitives, attributes and kinds of property. Name them with their namespace.
//
// Both rewrite one geometry in place. All its triangles, unusable ones too, become one primitive of
// triangles; lines and points are gone. The attributes positions, normals, colours, texture
// coordinates and texture coordinates 7, those that the geometry has, get new properties: three
// floats an entry, two for texture coordinates. Further components and alpha are gone. All other
// attributes stay as they are, and no index refers to them. An attribute with an empty property
// counts as absent, but for a geometry without triangles, which keeps its attributes, all empty.
//
// Two values are the same if all components are equal: no tolerance, 0.0 equals -0.0, and what was
// met first is what stays. A NaN component equals a NaN of the same bits only. Values are numbered
// in the order of their first use.
//
// Null does nothing. O(corners) expected time and about 40 bytes a corner at most beyond the
// result. When memory runs out, or 2^32 indices don't do, `std::bad_alloc` or `std::length_error`
// leaves the function and the geometry is as it was. Different geometries may be worked on at the
// same time.

/// One column of indices for each attribute, in the order above; each property holds a value once.
MORLU_API void createSharedIndex(::osg::GeometryPtr geometry);

/// One index a corner and no index mapping; corners that are the same in all these attributes are
/// one vertex, and the new properties run in step.
MORLU_API void createSingleIndex(::osg::GeometryPtr geometry);

// Splitting by size: geometry that is too large for its target, in place. Nodes are known by their
// handles before any is split; nodes that show one core get results that share theirs. What comes
// of a geometry stands where its node stood, with its name, mask and attachments, in its own space,
// with its material and attributes; normals are new, with a crease angle of 30 degrees, where no
// merge makes the pieces. Texture coordinates stay where an image or a note on the core may need
// them. A node with children, or without a parent, stays and takes core and children of the result,
// behind its own.
//
// Triangles stay whole. A geometry stays as it is if not all of it would be there again: with lines
// or points where no merge makes the pieces, without usable triangles, where memory has run out. A
// limit of 0 counts as 1. `level` is the form of new geometry: 0 three vertices a triangle, 1
// single index, 2 an index an attribute, 3 strips and fans; any other says so and counts as 0.
//
// Null does nothing. Equal scenes give equal results but for the running numbers in names. Linear
// in the nodes; a split costs what a merge of the geometry costs. `std::bad_alloc` may leave: what
// is not split then is still there. Nobody else may use the graph meanwhile.

/// Splits geometry of more than `maxTris` triangles, unusable ones counted, at and below the node
/// along a kd tree: pieces have at most so many. With `force` smaller geometry is built anew too. A
/// node without core ends its branch.
MORLU_API void split_Geometries(::osg::NodePtr node, unsigned int maxTris, bool force, int level);

/// Halves geometry at and below the node that takes more than `maxShare` of the extent of the
/// node's box in the world along any axis, until none does or `maxDepth` levels have been gone
/// down, from `node` as the first and counting groups as well as halvings. Geometry that no plane
/// parts stays above the share: a single triangle, for one, or two side by side. `strategy` says
/// what becomes of triangles that a plane cuts (see `kd_build_setup`): 1 cuts them, 2 has them in
/// both halves, so that `maxDepth` alone may bound their number, 3 keeps them on one side. A line
/// on standard error names what both halves would hold as a whole.
MORLU_API void check_and_split(::osg::NodePtr node, float maxShare, unsigned int maxDepth,
                               int strategy, int level);

/// Halves all geometry at and below the node that has more than `maxIndices` entries of indices, by
/// the merge, until none has: at `level` if `node` has such a geometry, else and from then on at 2,
/// and then all below its parent. Results go behind the other children. Returns how many geometries
/// were split. Normals stay. Fewer than ten elements are never parted: a line on standard error
/// names what stays above the limit. The last argument has no effect. Not during another merge.
MORLU_API unsigned int maxGeoIndexSize(::osg::NodePtr node, unsigned int maxIndices, int level,
                                       bool flag);

/// The same for all geometry at and below the node, none of which may be the root of its graph:
/// that without indices, with `force` all within the limit, first becomes one core of the form
/// `level`. A level outside 1 to 3 says so on standard output and counts as 1.
MORLU_API void split_GeometriesByIndex(::osg::NodePtr node, unsigned int maxIndices, bool force,
                                       int level);

/// A new scene of one geometry, merged by itself as `mergeGeo` does: pieces of about `maxTris`
/// triangles, texture coordinates near zero. The geometry stays, but for texture coordinates that
/// nothing uses. Null geometry gives a group without children.
MORLU_API ::osg::NodePtr optGeometry(::osg::GeometryPtr geometry, unsigned int maxTris, int level);

// Cache order: elements in the order that a cache of 32 transformed vertices likes best, cut where
// a piece would have more entries than an index type numbers.
//
// After T. Forsyth, "Linear-speed vertex cache optimisation" (2006). Only what doesn't fit is
// reordered. O(elements) time for vertices with few elements each: a step looks at all elements
// that use the cached vertices. About 100 bytes a triangle while it works. Different geometries may
// be worked on at the same time. Names come from a counter of the process.

/// Prepares a geometry node for drawing. A geometry none of whose properties (texture coordinates 3
/// to 6 apart) has more than `maxEntries` entries keeps its order, gets an index column for each
/// attribute or, for `multiIndex` false, a single index, and a new name; the result is `node`.
///
/// Else `wasSplit` is set, and triangles give a new Group node with one child a chunk. A chunk is
/// full once one of its attributes has `maxEntries` entries, or with `multiIndex` false once it has
/// so many different corners; its last triangle may add two. Chunks have positions, normals,
/// colours, texture coordinates and ids, each with a column of indices, and the effective material;
/// other attributes, alpha and rogue triangles are gone. Normals are computed if the source has
/// none. The source keeps its shared index. Lines go to `optimizeLineCache`; points come back as
/// they are.
///
/// Null, with a line on standard output, for null, a node without geometry, and a geometry without
/// types. When memory runs out a line on standard error says so, and the result has the chunks that
/// are done, if any, or no core; before that `std::bad_alloc` leaves.
MORLU_API ::osg::NodePtr optimizeCache(::osg::NodePtr node, bool& wasSplit, unsigned int maxEntries,
                                       bool multiIndex);

/// `optimizeCache` for each geometry below `tree` in the order of `getGeometryNodes`. Results move
/// below a new Group node, without the transforms above them; what was split stays in the tree too.
/// `dropNormals` takes the normals away first: split geometries get new ones. Writes the share that
/// is done to standard output. Null gives a Group without children. Where `std::bad_alloc` leaves,
/// all nodes are still in the tree, some with new indices.
MORLU_API ::osg::NodePtr optimizeCacheForTree(::osg::NodePtr tree, unsigned int maxEntries,
                                              bool multiIndex, bool dropNormals);

/// The same for lines, whatever their number: a Group node with one child a chunk, one at least.
/// Chunks have positions, normals, colours and ids. Null without geometry.
MORLU_API ::osg::NodePtr optimizeLineCache(::osg::NodePtr node, unsigned int maxEntries,
                                           bool multiIndex);

// Simplification: triangles made fewer by collapsing edges to their middle, again and again.

/// The triangles of a geometry node, about `targetTriangles` of them, as a new geometry with a
/// column of indices for each attribute, the effective material and new normals with a crease angle
/// of 30 degrees. `node` and its geometry stay as they are.
///
/// Corners that are the same in all attributes are one vertex. Each triangle has three edges; what
/// triangles share counts twice. The cheapest edge collapses, of equally cheap ones the first,
/// until there are three for each wanted triangle; the first edge of all collapses first. It costs
/// its length plus the corners that its two vertices are counted for, so that short edges where
/// little meets go first; where lengths are far below 1, use alone decides. A collapse moves the
/// vertex where the edge starts to the middle, with its other attributes as they are, and all
/// corners of the other vertex to it. Other edges of that one still start or end where it stood,
/// and many of them collapse without effect, or fold the surface: of a closed one a call leaves
/// nearly half of the triangles, however few are wanted. Calls on results of calls, for a twentieth
/// of the edges each, come to far fewer in better shape. Triangles that have
/// become unusable are left out. Seams, where corners differ in an attribute, may open; without
/// normals each triangle has its own, so that all edges are seams.
///
/// Positions, normals, colours, secondary colours, texture coordinates 0 to 3 and ids are carried;
/// other attributes, alpha, lines and points are gone, and texture coordinates where the material
/// has no image. Ids go with the node's name.
///
/// Null, without a word, for null and a target of 0; null too for a node without usable triangles,
/// and if none is usable in the end. Progress goes to standard output. The collapsed triangles,
/// before unusable ones are left out, are written to "simple.osb" in the working directory,
/// whatever is there; whether that succeeds makes no difference. Needs about 45 bytes a corner
/// beside the geometry; `std::bad_alloc` or `std::length_error` leaves, or a line on standard error
/// says so and the result is null. O(corners * log corners) time where few edges meet at each
/// vertex: a collapse looks at all edges of the vertex that it moves.
MORLU_API ::osg::GeometryPtr simplifyGeometry(::osg::NodePtr node, unsigned int targetTriangles);

}  // namespace morlu::osg
