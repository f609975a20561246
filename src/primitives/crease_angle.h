#pragma once

namespace morlu::osg {

/// Faces that meet at more than this share no normal where normals are made anew: 30 degrees.
inline constexpr float crease_angle = 0.5235988f;

}  // namespace morlu::osg
