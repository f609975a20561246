#include "sample/catalogue.h"

#include <algorithm>
#include <array>
#include <limits>

namespace morlu::sample {
namespace {

using ::osg::Vec2f;

constexpr float repeats_a_metre = 2.0f;

// The whole image once around and along the part.
std::vector<Vec2f> fitted_coords(const Mesh& mesh) {
  Vec2f low = mesh.coords[0], high = low;
  for (const Vec2f& coord : mesh.coords) {
    for (unsigned i = 0; i < 2; ++i) {
      low[i] = std::min(low[i], coord[i]);
      high[i] = std::max(high[i], coord[i]);
    }
  }
  std::vector<Vec2f> fitted;
  for (const Vec2f& coord : mesh.coords) {
    fitted.emplace_back((coord[0] - low[0]) / (high[0] - low[0]),
                        (coord[1] - low[1]) / (high[1] - low[1]));
  }
  return fitted;
}

// A box stands centred on its ground, so that signs tell its corners apart.
std::vector<Vec2f> box_coords(const Mesh& mesh) {
  std::vector<Vec2f> coords;
  for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
    const auto& normal = mesh.normals[i];
    const float x = mesh.positions[i][0] > 0.0f, y = mesh.positions[i][1] > 0.0f,
                z = mesh.positions[i][2] > 0.0f;
    const float to_the_right = normal[0] != 0.0f ? y : x;
    const bool seen_from_behind = normal[0] < 0.0f || normal[1] > 0.0f;
    if (normal[2] != 0.0f)
      coords.emplace_back(x, y);
    else
      coords.emplace_back(seen_from_behind ? 1.0f - to_the_right : to_the_right, z);
  }
  return coords;
}

std::vector<Vec2f> tiled_coords(const Mesh& mesh) {
  std::vector<Vec2f> tiled;
  for (const Vec2f& coord : mesh.coords) tiled.push_back(coord * repeats_a_metre);
  return tiled;
}

std::vector<Vec2f> coords_of(const Mesh& mesh, Kind kind, bool tiled) {
  if (tiled) return tiled_coords(mesh);
  return kind == Kind::Box ? box_coords(mesh) : fitted_coords(mesh);
}

// From clean on top to rust at the bottom.
std::vector<::osg::Color3f> weathering(const Mesh& mesh) {
  float low = std::numeric_limits<float>::max(), high = -low;
  for (const auto& position : mesh.positions) {
    low = std::min(low, position[2]);
    high = std::max(high, position[2]);
  }
  std::vector<::osg::Color3f> colors;
  for (const auto& position : mesh.positions) {
    const float clean = (position[2] - low) / (high - low);
    colors.emplace_back(0.55f + 0.45f * clean, 0.35f + 0.65f * clean, 0.25f + 0.75f * clean);
  }
  return colors;
}

/// A property with a copy of the values.
template <class Property, class Values>
::osg::FCPtr<Property> property_of(const Values& values) {
  const auto property = Property::create();
  property->resize(values.size());
  std::transform(values.begin(), values.end(), property->values().begin(),
                 [](const auto& value) { return static_cast<typename Property::Element>(value); });
  return property;
}

::osg::GeometryPtr geometry_of(const Mesh& mesh) {
  const auto geometry = ::osg::Geometry::create();
  geometry->setTypes(property_of<::osg::GeoPTypesUI8>(std::array{::osg::kTriangles}));
  geometry->setLengths(property_of<::osg::GeoPLengthsUI32>(std::array{mesh.indices.size()}));
  geometry->setPositions(property_of<::osg::GeoPositions3f>(mesh.positions));
  geometry->setNormals(property_of<::osg::GeoNormals3f>(mesh.normals));
  if (mesh.positions.size() <= 0xffff)
    geometry->setIndices(property_of<::osg::GeoIndicesUI16>(mesh.indices));
  else
    geometry->setIndices(property_of<::osg::GeoIndicesUI32>(mesh.indices));
  return geometry;
}

}  // namespace

::osg::GeometryPtr Catalogue::core(const Shape& shape, const Look& look) {
  ::osg::GeometryPtr& core = cores_[{shape, look}];
  if (!core) core = make_core(shape, look);
  return core;
}

::osg::GeometryPtr Catalogue::make_core(const Shape& shape, const Look& look) const {
  const Mesh mesh = make_mesh(shape);
  const ::osg::GeometryPtr geometry = geometry_of(mesh);
  if (look.weathered) geometry->setColors(property_of<::osg::GeoColors3f>(weathering(mesh)));
  if (paints_.empty()) return geometry;
  const Paint& paint = paints_[look.paint];
  geometry->setMaterial(paint.material);
  if (paint.textured) {
    geometry->setTexCoords(
        property_of<::osg::GeoTexCoords2f>(coords_of(mesh, shape.kind, paint.tiled)));
  }
  return geometry;
}

}  // namespace morlu::sample
