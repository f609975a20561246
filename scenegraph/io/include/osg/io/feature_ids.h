#pragma once

#include "osg/geometry.h"
#include "osg/io/export.h"

/// Feature ids: which part of a whole each vertex belongs to. They travel in the first component of
/// a set of texture coordinates, as whole numbers from 0 to 2^24 - 1; any other number, -1 by
/// custom, means no part. A mark on the geometry tells which set holds them; it goes along into osb
/// files.
namespace osg::io {

/// Marks set `set` of the core as feature ids, in place of a former mark. -1 takes the mark away.
/// Null, and any other number: nothing.
OSG_IO_API void setFeatureIdSet(const GeometryPtr& geometry, Int32 set);

/// The set that is marked, whether or not it is there; -1 without a mark.
OSG_IO_API Int32 getFeatureIdSet(const Geometry& geometry);

/// The id that a value of the marked set stands for, without its fraction; -1 for none. O(1).
OSG_IO_API Int32 featureIdOf(Real32 value);

}  // namespace osg::io
