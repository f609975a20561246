#pragma once

#include <osg/geometry.h>
#include <osg/node.h>

#include <cstdint>

namespace morlu::osg {

/// Whether a geometry node keeps its own texture, since
/// - a side of the image is `halfSize` pixels or more,
/// - the coordinates of a triangle, brought near zero, are greater than `limit` + 0.05,
/// - the image lies on other coordinates than the first, or
/// - it clamps or mirrors and there are coordinates outside of 0 to 1.
/// O(triangles).
bool excludedFromAtlas(const ::osg::NodePtr& node, float limit, std::uint32_t halfSize);

/// Whether an atlas can't show a geometry node's texture, since it lies on other coordinates than
/// the first, or clamps or mirrors and there are coordinates outside of 0 to 1. O(coordinates).
bool isShownOtherwise(const ::osg::NodePtr& node);

/// Whether `remapTexCoord` can map the geometry: two float coordinates a vertex or more, none below
/// 0.
bool has_mappable_coords(const ::osg::Geometry& geometry);

/// Turns coordinates on an image into coordinates on the atlas that has it at (x, y): those within
/// a texel of an edge of the image move a texel inside, so that filters don't take up what stands
/// beside it. A property that anything else holds too is copied. Nothing without coordinates.
/// O(coordinates); a `std::bad_alloc` leaves the geometry as it was.
void remapTexCoord(const ::osg::GeometryPtr& geometry, std::uint32_t atlasWidth,
                   std::uint32_t atlasHeight, std::uint32_t imageWidth, std::uint32_t imageHeight,
                   std::int32_t x, std::int32_t y);

}  // namespace morlu::osg
