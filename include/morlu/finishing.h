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
/// below a new Group node, without the transforms above them. `dropNormals` takes the normals away
/// first: split geometries get new ones. Writes the share that is done to standard output.
MORLU_API ::osg::NodePtr optimizeCacheForTree(::osg::NodePtr tree, unsigned int maxEntries,
                                              bool multiIndex, bool dropNormals);

/// The same for lines, whatever their number: a Group node with one child a chunk, one at least.
/// Chunks have positions, normals, colours and ids. Null without geometry.
MORLU_API ::osg::NodePtr optimizeLineCache(::osg::NodePtr node, unsigned int maxEntries,
                                           bool multiIndex);

}  // namespace morlu::osg
