#pragma once

#include <cstring>
#include <sstream>
#include <string>

#include "osg/geometry.h"
#include "osg/material.h"
#include "osg/node.h"

namespace support {

/// What is to be seen of a scene: nodes with their kinds and names, every corner of every triangle,
/// line and point with its values, bit for bit, and what a material shows. Two scenes that store
/// the same in different ways, polygons as triangles for one, look the same.
class SceneLook {
 public:
  static std::string of(const osg::NodePtr& root) {
    SceneLook look;
    look.add(root, 0);
    return look.out_.str();
  }

 private:
  void add(const osg::NodePtr& node, int depth) {
    const char* name = osg::getName(node);
    out_ << depth << ' ' << node->getCore()->getType().getCName() << " '" << (name ? name : "")
         << "'";
    if (const osg::Matrix* matrix = node->getCore()->getLocalMatrix())
      for (osg::UInt32 i = 0; i < 16; ++i) out_ << ' ' << (*matrix)[i];
    if (const auto geometry = osg::Geometry::dcast(node->getCore())) add_geometry(*geometry);
    out_ << '\n';
    for (const osg::NodePtr& child : node->getChildren()) add(child, depth + 1);
  }

  void add_geometry(const osg::Geometry& geometry) {
    corners_ = 0;
    hash_ = 0;
    for (auto at = geometry.beginTriangles(); !at.isAtEnd(); ++at) add_corners(geometry, at, 3);
    out_ << " triangles " << corners_ / 3;
    for (auto at = geometry.beginLines(); !at.isAtEnd(); ++at) add_corners(geometry, at, 2);
    for (auto at = geometry.beginPrimitives(); !at.isAtEnd(); ++at)
      if (at.getType() == osg::kPoints) add_corners(geometry, at, at.getLength());
    out_ << " corners " << corners_ << " values " << std::hex << hash_ << std::dec;
    add_material(osg::ChunkMaterial::dcast(geometry.getMaterial()));
  }

  template <class Iterator>
  void add_corners(const osg::Geometry& geometry, const Iterator& at, osg::UInt32 count) {
    for (osg::UInt32 i = 0; i < count; ++i, ++corners_) {
      mix(at.getPosition(i));
      if (geometry.getNormals()) mix(at.getNormal(i));
      if (geometry.getColors()) mix(at.getColor(i));
      for (osg::UInt32 set = 0; set < osg::kTexCoordSets; ++set)
        if (geometry.getTexCoordsSet(set)) mix(at.getTexCoordsOfSet(set, i));
    }
  }

  template <class Value>
  void mix(const Value& value) {
    osg::UInt32 words[sizeof(Value) / 4];
    std::memcpy(words, &value, sizeof(Value));
    for (const osg::UInt32 word : words) hash_ = (hash_ ^ word) * 0x9e3779b97f4a7c15u + 1;
  }

  void add_material(const osg::ChunkMaterialPtr& material) {
    if (!material) return void(out_ << " no material");
    const char* name = osg::getName(material);
    out_ << " '" << (name ? name : "") << "'";
    if (const auto chunk = material->findFirstChunk<osg::MaterialChunk>())
      out_ << " diffuse " << chunk->getDiffuse() << " emission " << chunk->getEmission();
    if (const auto chunk = material->findFirstChunk<osg::TextureChunk>())
      out_ << " image " << chunk->getImage()->getName() << ' ' << std::hex
           << chunk->getImage()->getContentHash() << std::dec << " wrap " << chunk->getWrapS()
           << ' ' << chunk->getWrapT();
    out_ << (material->findFirstChunk<osg::BlendChunk>() ? " blended" : "");
  }

  std::ostringstream out_;
  std::size_t corners_ = 0;
  osg::UInt64 hash_ = 0;
};

}  // namespace support
