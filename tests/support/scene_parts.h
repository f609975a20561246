#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/material.h>
#include <osg/scene_file_handler.h>

// Small scenes, put together in few words.

inline osg::NodePtr node_with(const osg::NodeCorePtr& core,
                              const std::vector<osg::NodePtr>& children = {}) {
  const auto node = osg::Node::create();
  node->setCore(core);
  for (const auto& child : children) node->addChild(child);
  return node;
}

inline osg::NodePtr named(const std::string& name, const osg::NodePtr& node) {
  osg::setName(node, name);
  return node;
}

/// "" where there is none.
inline std::string name_of(const osg::AttachmentContainerPtr& container) {
  const char* name = osg::getName(container);
  return name ? name : "";
}

/// Calls `use(node, geometry)` for each geometry node, depth first.
template <class Use>
void for_each_geometry(const osg::NodePtr& node, const Use& use) {
  if (const auto geometry = osg::Geometry::dcast(node->getCore())) use(node, geometry);
  for (const auto& child : node->getChildren()) for_each_geometry(child, use);
}

inline osg::TransformPtr transform(const osg::Matrix& matrix) {
  const auto core = osg::Transform::create();
  core->setMatrix(matrix);
  return core;
}

inline osg::ImagePtr noise(std::mt19937& random, osg::UInt32 format, int width, int height) {
  const auto image = osg::Image::create();
  image->set(format, width, height);
  std::generate_n(image->getData(), image->getSize(),
                  [&] { return static_cast<osg::UInt8>(random()); });
  return image;
}

inline osg::ImagePtr black_pixel() {
  const auto image = osg::Image::create();
  image->set(osg::gl::kRGB, 1, 1);
  return image;
}

template <class Property>
auto property_of(const std::vector<typename Property::Value>& values) {
  const auto property = Property::create();
  for (const auto& value : values) property->push_back(value);
  return property;
}

/// Types and lengths.
using PrimitiveList = std::vector<std::pair<osg::UInt32, osg::UInt32>>;

/// Gives `geometry` these primitives and positions, without indices.
inline osg::GeometryPtr primitives_over(const std::vector<osg::Pnt3f>& positions,
                                        const PrimitiveList& primitives,
                                        osg::GeometryPtr geometry = osg::Geometry::create()) {
  geometry->setTypes(osg::GeoPTypesUI8::create());
  geometry->setLengths(osg::GeoPLengthsUI32::create());
  for (const auto& [type, length] : primitives) {
    geometry->getTypes()->push_back(type);
    geometry->getLengths()->push_back(length);
  }
  geometry->setPositions(property_of<osg::GeoPositions3f>(positions));
  return geometry;
}

inline osg::GeometryPtr one_primitive(osg::UInt32 type, const std::vector<osg::Pnt3f>& corners,
                                      const osg::GeometryPtr& geometry = osg::Geometry::create()) {
  return primitives_over(corners, {{type, static_cast<osg::UInt32>(corners.size())}}, geometry);
}

/// Triangles of three corners each.
inline osg::GeometryPtr triangles(std::span<const osg::Pnt3f> corners) {
  return one_primitive(osg::kTriangles, {corners.begin(), corners.end()});
}

/// Corners of the box from (-1, -1, -1) to (1, 1, 1), counter-clockwise from outside: two triangles
/// for each of the sides -x, x, -y, y, -z, z.
inline std::vector<osg::Pnt3f> box_corners() {
  std::vector<osg::Pnt3f> corners;
  for (const int axis : {0, 1, 2}) {
    for (const float side : {-1.0f, 1.0f}) {
      for (const auto& [a, b] : {std::pair{-1, -1}, {1, -1}, {1, 1}, {-1, -1}, {1, 1}, {-1, 1}}) {
        osg::Pnt3f corner;
        corner[static_cast<osg::UInt32>(axis)] = side;
        corner[static_cast<osg::UInt32>((axis + 1) % 3)] = static_cast<float>(a) * side;
        corner[static_cast<osg::UInt32>((axis + 2) % 3)] = static_cast<float>(b);
        corners.push_back(corner);
      }
    }
  }
  return corners;
}

inline osg::ChunkMaterialPtr of_chunks(const std::vector<osg::StateChunkPtr>& chunks) {
  const auto material = osg::ChunkMaterial::create();
  for (const auto& chunk : chunks) material->addChunk(chunk);
  return material;
}

inline osg::MaterialChunkPtr diffuse(const osg::Color4f& color) {
  const auto chunk = osg::MaterialChunk::create();
  chunk->setDiffuse(color);
  return chunk;
}

inline osg::SimpleMaterialPtr simple_material(const osg::Color3f& color) {
  const auto material = osg::SimpleMaterial::create();
  material->setDiffuse(color);
  return material;
}

inline osg::TextureChunkPtr texture_of(const osg::ImagePtr& image) {
  const auto chunk = osg::TextureChunk::create();
  chunk->setImage(image);
  return chunk;
}

inline osg::SimpleTexturedMaterialPtr simple_textured(const osg::ImagePtr& image = black_pixel()) {
  const auto material = osg::SimpleTexturedMaterial::create();
  material->setImage(image);
  return material;
}

/// What stands below has that material.
inline osg::NodePtr below_material(const osg::MaterialPtr& material,
                                   const std::vector<osg::NodePtr>& children) {
  const auto core = osg::MaterialGroup::create();
  core->setMaterial(material);
  return node_with(core, children);
}

/// A material that shines in that colour, whatever light falls on it.
inline osg::ChunkMaterialPtr shining(const osg::Color3f& color, float opacity = 1.0f) {
  const auto colors = diffuse({0.0f, 0.0f, 0.0f, opacity});
  colors->setEmission({color[0], color[1], color[2], 1.0f});
  return of_chunks({colors});
}

inline void expect_box(const osg::DynamicVolume& volume, const osg::Pnt3f& min,
                       const osg::Pnt3f& max) {
  EXPECT_TRUE(volume.isValid());
  EXPECT_EQ(volume.getMin(), min);
  EXPECT_EQ(volume.getMax(), max);
}

inline void save(const osg::NodePtr& root, const std::filesystem::path& file) {
  const auto result = osg::SceneFileHandler::the().writeScene(root, file.string());
  ASSERT_TRUE(result) << result.error;
}
