#include "picture/shading.h"

#include <algorithm>
#include <cmath>

#include "picture/color_space.h"

namespace morlu::program {
namespace {

using ::osg::Attribute;
using ::osg::Pnt3d;
using ::osg::Vec3d;

constexpr double ambient = 0.11, key = 0.55, fill = 0.22;
const Vec3d plain_grey(0.8, 0.8, 0.8);  // as displayed; in a picture of materials, of what has none
constexpr double highlight_strength = 0.5;
constexpr double sharp_highlight =
    20.0;  // a duller one fades: it would lie over all of the surface

Vec3d multiplied(const Vec3d& a, const Vec3d& b) {
  return {a[0] * b[0], a[1] * b[1], a[2] * b[2]};
}

Vec3d mixed(const Vec3d& a, const Vec3d& b, double share_of_b) {
  return a * (1.0 - share_of_b) + b * share_of_b;
}

/// Transposed times `n`: the normal in world space of what has the normal `n` in object space.
Vec3d normal_to_world(const ::osg::Matrix4d& object_from_world, const Vec3d& n) {
  Vec3d sum;
  for (unsigned column = 0; column < 3; ++column)
    for (unsigned row = 0; row < 3; ++row)
      sum[column] += n[row] * object_from_world[4 * column + row];
  return sum;
}

/// Of unit length, or zero where that can't be.
Vec3d unit(const Vec3d& v) {
  const double length = v.length();
  return length > 0.0 && std::isfinite(length) ? v / length : Vec3d();
}

void apply_texture(const Texel& texel, ::osg::UInt32 mode, Shade& paint) {
  namespace gl = ::osg::gl;
  const Vec3d color(texel.r, texel.g, texel.b);
  switch (mode) {
    case gl::kReplace:
      paint = {color, texel.a};
      break;
    case gl::kDecal:
      paint.color = mixed(paint.color, color, texel.a);
      break;
    case gl::kAdd:
      paint = {paint.color + color, paint.opacity * texel.a};
      break;
    default:
      paint = {multiplied(paint.color, color), paint.opacity * texel.a};
  }
}

}  // namespace

/// All that is known of the point that a ray meets.
struct Shader::Surface {
  const DrawnCore& core;
  const Placement& placement;
  const SurfaceLook& look;
  std::array<::osg::UInt32, 3> corners;
  Vec3d weights;  // of the corners
  Vec3d normal;   // in world space, on the side of the viewer
  Vec3d to_viewer;
  double pixel;  // what a pixel covers of the surface, seen at right angles; world units
  std::uint32_t number;

  /// A value of the corners, mixed for the point.
  template <class Single, ::osg::UInt32 N>
  ::osg::Vector<double, N> value(Attribute attribute) const {
    ::osg::Vector<double, N> sum;
    for (unsigned corner = 0; corner < 3; ++corner) {
      const auto at_corner = core.layout.getValue<Single>(attribute, corners[corner]);
      for (unsigned i = 0; i < N; ++i) sum[i] += weights[corner] * double{at_corner[i]};
    }
    return sum;
  }
  Vec3d position(unsigned corner) const {
    const auto p = core.layout.getValue<::osg::Pnt3f>(Attribute::Positions, corners[corner]);
    return {p[0], p[1], p[2]};
  }
  ::osg::Vector<double, 4> vertex_color() const {
    auto color = value<::osg::Color4f, 4>(Attribute::Colors);
    if (core.layout.getProperty(Attribute::Colors)->getDimension() < 4) color[3] = 1.0;
    return color;
  }
  double texture_footprint(Attribute coords) const;
};

/// How much of the image's size a pixel covers: what a length on the surface is in the image, by
/// the areas of the triangle in both.
double Shader::Surface::texture_footprint(Attribute coords) const {
  const auto& to_world = placement.world_from_object;
  const Vec3d first = to_world.transformVector(position(1) - position(0));
  const Vec3d second = to_world.transformVector(position(2) - position(0));
  std::array<::osg::Vec2f, 3> at;
  for (unsigned corner = 0; corner < 3; ++corner)
    at[corner] = core.layout.getValue<::osg::Vec2f>(coords, corners[corner]);
  const ::osg::Vec2f a = at[1] - at[0], b = at[2] - at[0];
  const double in_image = std::fabs(double{a[0]} * b[1] - double{a[1]} * b[0]);
  const double on_surface = first.cross(second).length();
  return on_surface > 0.0 ? pixel * std::sqrt(in_image / on_surface) : 0.0;
}

Vec3d palette_color(std::uint32_t number) {
  // Steps of the golden ratio never come near a hue twice in a row; lightness changes in turn.
  const double hue = std::fmod(0.07 + number * 0.6180339887498949, 1.0) * 6.0;
  const double light = number % 3 == 0 ? 0.95 : number % 3 == 1 ? 0.75 : 0.85;
  Vec3d color;
  for (unsigned i = 0; i < 3; ++i) {
    const double distance = std::fabs(std::fmod(hue + 6.0 - 2.0 * i, 6.0) - 3.0);
    color[i] = light * (0.35 + 0.65 * std::clamp(distance - 1.0, 0.0, 1.0));
  }
  return color;
}

Shader::Shader(const DrawnScene& scene, const Camera& camera, ShadeMode mode)
    : scene_(scene),
      camera_(camera),
      mode_(mode),
      to_key_(unit(camera.right() * -0.5 + camera.up() * 0.7 + camera.back())) {}

Shader::Surface Shader::surface_at(const Ray& ray, const SceneHit& hit) const {
  const Placement& placement = scene_.placements[hit.placement];
  const DrawnCore& core = scene_.cores[placement.core];
  Surface surface{core,
                  placement,
                  scene_.looks[placement.look],
                  core.triangles[hit.triangle],
                  {},
                  {},
                  -ray.direction,
                  hit.t * camera_.pixel_width(),
                  0};
  const Vec3d corner = surface.position(0);
  const Vec3d first = surface.position(1) - corner, second = surface.position(2) - corner;
  const Vec3d across = first.cross(second);
  const Vec3d from_corner =
      placement.object_from_world.transformPoint(ray.at(hit.t)).subZero() - corner;
  const double square = across.dot(across);
  if (square > 0.0) {
    const double b = from_corner.cross(second).dot(across) / square;
    const double c = first.cross(from_corner).dot(across) / square;
    surface.weights = {1.0 - b - c, b, c};
  } else {
    surface.weights = {1.0, 0.0, 0.0};
  }

  Vec3d face = unit(normal_to_world(placement.object_from_world, unit(across)));
  if (face.dot(surface.to_viewer) < 0.0) face = -face;
  surface.normal = face;
  if (core.layout.isPresent(Attribute::Normals)) {
    const Vec3d own = surface.value<::osg::Vec3f, 3>(Attribute::Normals);
    const Vec3d smooth = unit(normal_to_world(placement.object_from_world, own));
    // On the viewer's side of the face, whatever the winding; a zero one tells nothing.
    const double side = smooth.dot(face);
    if (side != 0.0) surface.normal = side < 0.0 ? -smooth : smooth;
  }
  return surface;
}

Shade Shader::paint_of(const Surface& surface) const {
  const SurfaceLook& look = surface.look;
  Shade paint{look.diffuse, look.opacity};
  const auto& layout = surface.core.layout;
  if (layout.isPresent(Attribute::Colors)) {
    const auto color = surface.vertex_color();
    const Vec3d rgb(color[0], color[1], color[2]);
    if (look.vertex_color_replaces)
      paint = {rgb, color[3]};
    else
      paint = {multiplied(paint.color, rgb), paint.opacity * color[3]};
  }
  const Attribute coords = ::osg::texCoordsAttribute(look.texture_set);
  if (look.texture && layout.isPresent(coords)) {
    const auto st = surface.value<::osg::Vec2f, 2>(coords);
    const Texel texel =
        look.texture->at(st[0], st[1], surface.texture_footprint(coords), look.sampler);
    apply_texture(texel, look.texture_mode, paint);
  }
  switch (look.alpha) {
    case SurfaceLook::Alpha::Opaque:
      paint.opacity = 1.0;
      break;
    case SurfaceLook::Alpha::Masked:
      paint.opacity = paint.opacity < look.cutoff ? 0.0 : 1.0;
      break;
    case SurfaceLook::Alpha::Blended:
      break;
  }
  return paint;
}

Vec3d Shader::lit(const Vec3d& color, const Surface& surface) const {
  const double towards_key = std::max(0.0, surface.normal.dot(to_key_));
  const double towards_viewer = std::max(0.0, surface.normal.dot(surface.to_viewer));
  return color * (ambient + key * towards_key + fill * towards_viewer);
}

Vec3d Shader::highlight(const Surface& surface) const {
  const double shininess = surface.look.shininess;
  if (!(shininess > 0.0) || !(surface.normal.dot(to_key_) > 0.0)) return {};
  const Vec3d half = unit(to_key_ + surface.to_viewer);
  const double towards_half = std::max(0.0, surface.normal.dot(half));
  const double strength = highlight_strength * std::min(1.0, shininess / sharp_highlight);
  return surface.look.specular * (strength * std::pow(towards_half, shininess));
}

Shade Shader::shade(const Ray& ray, const SceneHit& hit) const {
  const Surface surface = surface_at(ray, hit);
  Shade paint = paint_of(surface);
  // What isn't a picture of the materials shows all that is there, glass too.
  if (mode_ != ShadeMode::Lit && paint.opacity > 0.0) paint.opacity = 1.0;
  const std::uint32_t look = surface.placement.look;
  switch (mode_) {
    case ShadeMode::Lit:
      paint.color = lit(paint.color, surface) + highlight(surface) + surface.look.emission;
      break;
    case ShadeMode::Normals:
      paint.color = to_linear(Vec3d(0.5, 0.5, 0.5) + surface.normal * 0.5);
      break;
    case ShadeMode::Parts:
      paint.color = lit(to_linear(palette_color(hit.placement)), surface);
      break;
    case ShadeMode::Materials:
      paint.color =
          lit(to_linear(surface.look.has_material ? palette_color(look) : plain_grey), surface);
      break;
  }
  for (unsigned i = 0; i < 3; ++i) paint.color[i] = std::clamp(paint.color[i], 0.0, 1.0);
  paint.opacity = std::clamp(paint.opacity, 0.0, 1.0);
  return paint;
}

}  // namespace morlu::program
