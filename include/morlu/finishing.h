#pragma once

#include <osg/geometry.h>

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

}  // namespace morlu::osg
