#pragma once

#include <span>
#include <vector>

#include "osg/vector.h"

namespace osg::io {

/// Whether a fan from the first corner covers the polygon: its corners turn one way only, seen
/// along the area's normal. Polygons without area, and with numbers that aren't finite, count as
/// convex: no triangulation of them is better than another. O(corners).
bool is_convex(std::span<const Pnt3f> polygon);

/// Cuts a simple polygon into corners - 2 triangles, three corner numbers each, which turn the way
/// it does. One that crosses itself gives as many triangles, which then overlap.
/// Ears are cut off one after the other, after G. Meisters, "Polygons have ears" (1975).
/// O(corners^2) for shapes that occur, O(corners^3) at worst.
std::vector<UInt32> triangulate(std::span<const Pnt3f> polygon);

}  // namespace osg::io
