#pragma once

#include <algorithm>
#include <limits>
#include <set>

#include "osg/geometry.h"
#include "osg/material.h"

namespace support {

/// What the iterators deliver of a subgraph, every instance counted, and its exact world box, in
/// double precision over the corners in use.
struct SceneCounts {
  std::size_t nodes = 0;
  std::size_t geometry_nodes = 0;
  std::size_t triangles = 0;
  std::size_t lines = 0;
  std::size_t points = 0;
  std::set<osg::UInt64> cores;
  std::set<osg::MaterialPtr> materials;
  std::set<osg::ImagePtr> images;
  bool has_null_material = false;
  double low[3] = {1e300, 1e300, 1e300};
  double high[3] = {-1e300, -1e300, -1e300};
};

inline void count_corner(const osg::Matrix4d& world, const osg::Pnt3f& p, SceneCounts& counts) {
  const osg::Pnt3d q = world * osg::Pnt3d(p[0], p[1], p[2]);
  for (osg::UInt32 k = 0; k < 3; ++k) {
    counts.low[k] = std::min(counts.low[k], q[k]);
    counts.high[k] = std::max(counts.high[k], q[k]);
  }
}

inline void count_geometry(const osg::GeometryPtr& geometry, const osg::Matrix4d& world,
                           SceneCounts& counts) {
  ++counts.geometry_nodes;
  counts.cores.insert(geometry->getSerial());
  const osg::MaterialPtr& material = geometry->getMaterial();
  if (!material) counts.has_null_material = true;
  if (material) counts.materials.insert(material);
  if (const auto chunks = osg::ChunkMaterial::dcast(material))
    if (const auto pbr = chunks->findFirstChunk<osg::PBRChunk>())
      counts.images.insert(pbr->getImages().begin(), pbr->getImages().end());
  for (auto at = geometry->beginTriangles(); !at.isAtEnd(); ++at, ++counts.triangles)
    for (osg::UInt32 i = 0; i < 3; ++i) count_corner(world, at.getPosition(i), counts);
  for (auto at = geometry->beginLines(); !at.isAtEnd(); ++at, ++counts.lines)
    for (osg::UInt32 i = 0; i < 2; ++i) count_corner(world, at.getPosition(i), counts);
  for (auto at = geometry->beginPrimitives(); !at.isAtEnd(); ++at) {
    if (at.getType() != osg::kPoints) continue;
    counts.points += at.getLength();
    for (osg::UInt32 i = 0; i < at.getLength(); ++i) count_corner(world, at.getPosition(i), counts);
  }
}

inline void count_node(const osg::NodePtr& node, osg::Matrix4d world, SceneCounts& counts) {
  ++counts.nodes;
  if (node->getCore())
    if (const osg::Matrix* local = node->getCore()->getLocalMatrix()) {
      osg::Matrix4d wide;
      for (osg::UInt32 i = 0; i < 16; ++i) wide[i] = (*local)[i];
      world = world * wide;
    }
  if (const auto geometry = osg::Geometry::dcast(node->getCore()))
    count_geometry(geometry, world, counts);
  for (const osg::NodePtr& child : node->getChildren()) count_node(child, world, counts);
}

inline SceneCounts count_scene(const osg::NodePtr& root) {
  SceneCounts counts;
  count_node(root, osg::Matrix4d(), counts);
  return counts;
}

}  // namespace support
