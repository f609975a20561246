#pragma once

#include "osg/geometry.h"

/// Tools that rewrite a geometry in place: normals, index layouts, strips.
///
/// All of them keep the triangles, lines and points that the iterators deliver, with their winding,
/// order and attribute values, unless their comment says otherwise. They run in near linear time,
/// give the same bytes for the same input, and may work on different geometries at the same time.
/// A null geometry and one without primitives stay as they are; attachments do always. Out of
/// memory leaves as `std::bad_alloc` or `std::length_error`, with the geometry as it was before
/// or, in the crease form of the normals, with its strips taken apart.
///
/// Properties may be shared with other geometries, so they are never edited but replaced by new
/// objects of the same class. The one exception is the geometry's normals object, see below.
namespace osg {

/// Sets one normal per position entry: the normalised sum of the area weighted normals of the
/// triangles that use the entry, summed in double precision and triangle order.
///
/// The index layout stays; `Normals` has as many entries as `Positions`. With an index mapping, a
/// column of the normals' own is rewritten, else the normals join the positions' column (a column
/// that they have in common with other attributes is left to these, and one of their own is added).
/// Triangles without area or with a coordinate that is not finite contribute nothing. Entries that
/// no triangle contributes to keep their normal, zeros if there were none. Normals that cancel each
/// other out, to a millionth of their lengths' sum, give zeros. A geometry without triangles, or
/// without positions, stays as it is.
///
/// A normals object of class `GeoNormals3f` is filled in place, so that handles of it stay good;
/// other geometries that hold the same object see the new values. Other classes are replaced.
OSG_API void calcVertexNormals(const GeometryPtr& geometry);

/// Sets one normal per triangle corner: the normalised sum of the area weighted normals of those
/// triangles that meet at the corner's position, compared by value, and whose normals lie within
/// `creaseAngle` (radians, bound included) of the corner's own triangle's normal. A negative or
/// NaN angle counts as 0.
///
/// The index layout stays. Without indices, `Normals` has as many entries as `Positions`. With one
/// index column, vertices whose corners differ are split, in all attributes: the first use keeps
/// the index, others are appended. With a mapping the normals get a column of their own, which
/// lists each distinct normal once. Strips, fans, quads and polygons in which corners of one vertex
/// differ become `kTriangles`. All else is as above.
///
/// Where m triangles meet at a position: for few of them all pairs are compared, for many a tree
/// over their normals is asked, which takes normals within 1e-9 for equal. That is O(m log m) time
/// for normals along a line, as around the tip of a cone, and O(m sqrt(m)) for normals in all
/// directions. The worst case is O(m^2), for m/2 normals that all lie about the crease angle away
/// from m/2 others, none of them equal.
OSG_API void calcVertexNormals(const GeometryPtr& geometry, Real32 creaseAngle);

/// Gives every attribute an index column of its own: each property holds each distinct value that
/// is used once, in first-use order, and the mapping has one entry per attribute, without ORed
/// flags. -0.0 and 0.0 are one value (the first used one stays), NaNs compare by their bits.
/// Entries that nothing uses vanish; empty properties stay and get no column. Types, Lengths and
/// the order of corners stay; the indices are `GeoIndicesUI32`. Returns the corners that the
/// primitives reach.
OSG_API Int32 createSharedIndex(const GeometryPtr& geometry);

/// Makes every distinct combination of the attributes' indices (not of their values) one vertex,
/// in first-use order, so that all properties run in step under one index column and the mapping
/// is empty. Types, Lengths and the order of corners stay; the indices are `GeoIndicesUI32`.
/// Returns the number of vertices, 0 if there are no primitives.
OSG_API Int32 createSingleIndex(const GeometryPtr& geometry);

/// Turns triangles that share vertices (all attributes' indices) into triangle strips, and what
/// remains into one primitive of `kTriangles`; strips, fans, quads and polygons are taken apart for
/// it. Without stitching: there are the same triangles as before with the same winding, in another
/// order and with the corners turned. Points, lines and primitives of unknown type come first, in
/// their order. The index layout stays. Where nothing would be saved, or with `strips` false, the
/// geometry stays as it is. Returns the running vertices of the result.
///
/// The other arguments are taken for the sake of calls that give them, and ignored: one greedy pass
/// is made, and no fans.
OSG_API Int32 createOptimizedPrimitives(const GeometryPtr& geometry, UInt32 iterations = 1,
                                        bool strips = true, bool fans = false,
                                        UInt32 minFanTriangles = 16, bool colorCode = false,
                                        bool stitch = true, bool randomize = false);

}  // namespace osg
