#pragma once

#include <osg/node.h>

#include "morlu/export.h"
#include "morlu/optimiser.h"

/// How open the places of a scene are, and what follows from it: light in vertex colours, parts
/// that nobody sees, and the outer hull of a model.
///
/// A point's value is 1 less the share of rays from it that meet something near. With `samples` = n
/// there are (n + 1)^3 of them, in the directions of a grid over a cube; the first call of the
/// process fixes the grid for all that follow, and must not run beside another. Below 1 it counts
/// as 1; from about a million on `std::length_error` leaves. Front faces block rays; triangles that
/// block are those of the geometry that `getGeometryNodes` finds, as it stood when the call began.
///
/// One thread, the caller's. Progress goes to standard output. Memory that runs out leaves as
/// `std::bad_alloc` unless said otherwise: geometry is then done or as it was, maybe with another
/// index. Time is that of the rays, (distinct positions) x (n + 1)^3 of O(log triangles) each;
/// memory about 400 bytes a triangle.
namespace morlu::osg {

/// Bakes ambient occlusion into the vertex colours of the geometry that `getGeometryNodes` finds in
/// `node`. Rays lean to the side of the vertex normal; what they meet within the diagonal of the
/// scene blocks them, less from there to twice that far. Vertices of one geometry at one position
/// share the value of the first.
///
/// With `overwrite` the colours become the grey of that value, and materials go: those of the
/// geometries and all MaterialGroups above them, which become Groups, whoever else they colour.
/// Without it the colour of a material without image moves into the vertices (see
/// `MaterialColorIntoVertex`), and colours are multiplied by the value.
///
/// Every geometry gets a single index first, and normals if it has none. One of triangles with
/// no more than positions, normals, colours, texture coordinates and texture coordinates 7 becomes
/// one primitive as `createSingleIndex` has it; others keep all primitives and attributes. Light is
/// that of a place: of nodes that share a core all but the first get a copy of their own, with the
/// same attachments.
///
/// Null does nothing. The last argument has no effect.
MORLU_API void AddAmbientOcclusion(::osg::NodePtr node, bool overwrite, int samples,
                                   unsigned int reserved);

/// Takes geometry out of the scene that other geometry shuts in: each of its vertices has a value
/// of at most `threshold`. Rays start a hundred-thousandth of the diagonal off the surface, and
/// what they meet within a twentieth blocks them. A value that is not a number is visible. What is
/// removed goes on blocking rays for others, so that the order has no influence.
///
/// Geometry is removed as a whole node; its children stay, below a Group in its place. A node
/// without parent stays. All geometry gets a single index and new normals, also what stays.
///
/// Null does nothing. The last argument has no effect. A geometry costs its vertices up to the
/// first that is visible, and some more.
MORLU_API void gutOutModelPerAmbientOcclusion(::osg::NodePtr node, int samples, float threshold,
                                              unsigned int reserved);

/// The `target` - 1 most visible triangles, lines and points of a model, merged by `mergeGeo` with
/// `setup` (its `opt` counts as 1, its `cacheopt` as false): a new Group node without parent, with
/// a node for each merged one, geometry of single primitives and one index. What `mergeGeo` moves
/// from the input is moved.
///
/// An element counts as visible as its vertices on the mean. Rays go from a vertex in all
/// directions; what they meet within three quarters of the diagonal blocks them. `two_sided`: back
/// faces block too. Of equally visible elements the first in walking order stay; the cut is made at
/// a float, so that one more may stay or go. With `target` 0 all stay that are visible at all. From
/// the number of elements on, nothing is reduced, and no ray is shot.
///
/// Elements keep all attributes but texture coordinates 6, which hold the values meanwhile. A
/// reduced geometry that there is no memory for leaves a node without core and a line on standard
/// error. Geometry that `setup` keeps hidden comes along whole.
MORLU_API ::osg::NodePtr buildModelHull(::osg::NodePtr node, const mergeGeo_setup& setup,
                                        unsigned int target, unsigned int samples, bool two_sided);

/// The same by the brightness of the vertex colours, on the nodes of `node` themselves: no rays, no
/// merge. Elements keep all attributes but the colours. A geometry without colours gets no core.
/// Nodes move below the result, where they stood in the world; their children stay behind. A colour
/// that is not a number is the brightest. With `target` 0, or from the number of elements on, all
/// stay that are not black. O(elements log elements).
MORLU_API ::osg::NodePtr buildModelHullWithVertexColors(::osg::NodePtr node, unsigned int target);

}  // namespace morlu::osg
