#pragma once

#include <cstdint>

#include "morlu/geoset.h"

namespace morlu::osg {

/// Whether anything can be taken out of `geo`: it has types, lengths and positions, and none is
/// empty. Other attributes of it that sets carry, but for ids, are taken away where they are empty.
/// False for null.
bool checkGeometry(const ::osg::GeometryPtr& geo);

// Elements that types and lengths promise, unusable ones included, without a look at the data. 0
// for null and without types or lengths; more than fit an int count as the largest.

/// Quad strips promise nothing.
int countPrimitiveTriangles(const ::osg::GeometryPtr& geo);
int countPrimitiveLines(const ::osg::GeometryPtr& geo);
int countPrimitivePoints(const ::osg::GeometryPtr& geo);

/// The id as sets store it. The first that a float can't hold exactly says so on standard error.
float stored_id(std::uint32_t id);

}  // namespace morlu::osg
