#pragma once

#include <string>
#include <vector>

#include "picture/camera.h"
#include "picture/ray_caster.h"

namespace morlu::program {

/// What the colours of a picture tell.
enum class ShadeMode { Lit, Normals, Parts, Materials };

/// What a ray sees of a surface: light from 0 to 1.
struct Shade {
  ::osg::Vec3d color;
  double opacity;  // 0: the surface has a hole here
};

/// The colour, as displayed, of a part or material with that number: neighbours differ.
::osg::Vec3d palette_color(std::uint32_t number);

/// Colours surfaces. The lights move with the camera: one over its left shoulder, a weaker one at
/// the eye, and some from everywhere. Scene and camera are referred to.
class Shader {
 public:
  Shader(const DrawnScene& scene, const Camera& camera, ShadeMode mode);

  Shade shade(const Ray& ray, const SceneHit& hit) const;

 private:
  struct Surface;

  Surface surface_at(const Ray& ray, const SceneHit& hit) const;
  Shade paint_of(const Surface& surface) const;
  ::osg::Vec3d lit(const ::osg::Vec3d& color, const Surface& surface) const;
  ::osg::Vec3d highlight(const Surface& surface) const;

  const DrawnScene& scene_;
  const Camera& camera_;
  ShadeMode mode_;
  ::osg::Vec3d to_key_;
};

}  // namespace morlu::program
