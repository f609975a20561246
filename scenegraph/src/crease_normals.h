#pragma once

#include <span>
#include <vector>

#include "triangle_faces.h"

namespace osg::detail {

/// For each of `faces`, which meet at one point, the direction of the sum of those faces that lie
/// within `crease_angle` of it. `out` is as long as `faces`.
void smooth_faces(std::span<const Face> faces, double crease_angle, std::span<Vec3f> out);

}  // namespace osg::detail
