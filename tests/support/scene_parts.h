#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <initializer_list>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/material.h>
#include <osg/scene_file_handler.h>

// Small scenes for the program to read.

inline osg::NodePtr node_with(const osg::NodeCorePtr& core,
                              std::initializer_list<osg::NodePtr> children = {}) {
  const auto node = osg::Node::create();
  node->setCore(core);
  for (const auto& child : children) node->addChild(child);
  return node;
}

inline osg::NodePtr named(const std::string& name, const osg::NodePtr& node) {
  osg::setName(node, name);
  return node;
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

/// Triangles of three corners each.
inline osg::GeometryPtr triangles(std::span<const osg::Pnt3f> corners) {
  const auto types = osg::GeoPTypesUI8::create();
  types->push_back(osg::kTriangles);
  const auto lengths = osg::GeoPLengthsUI32::create();
  lengths->push_back(static_cast<osg::UInt32>(corners.size()));
  const auto positions = osg::GeoPositions3f::create();
  for (const osg::Pnt3f& corner : corners) positions->push_back(corner);
  const auto geometry = osg::Geometry::create();
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setPositions(positions);
  return geometry;
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

/// A material that shines in that colour, whatever light falls on it.
inline osg::ChunkMaterialPtr shining(const osg::Color3f& color, float opacity = 1.0f) {
  const auto colors = osg::MaterialChunk::create();
  colors->setDiffuse({0.0f, 0.0f, 0.0f, opacity});
  colors->setEmission({color[0], color[1], color[2], 1.0f});
  const auto material = osg::ChunkMaterial::create();
  material->addChunk(colors);
  return material;
}

inline void save(const osg::NodePtr& root, const std::filesystem::path& file) {
  const auto result = osg::SceneFileHandler::the().writeScene(root, file.string());
  ASSERT_TRUE(result) << result.error;
}
