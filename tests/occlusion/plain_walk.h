#pragma once

#include <osg/image.h>
#include <osg/material.h>

#include <map>

#include "morlu/occlusion.h"
#include "occlusion/occlusion_scenes.h"

/// The walks over a scene's vertices as they are told, one point after the other.
namespace morlu::tests {

struct plain_walk {
  const test_scene& scene;
  float distance;
  bool two_sided = false;
  float offset = 0;   // off the surface
  bool leans = true;  // along the normals

  float value_at(const ::osg::NodePtr& node, std::uint32_t i) const {
    const auto geometry = ::osg::Geometry::dcast(node->getCore());
    const ::osg::Matrix world = node->getToWorld();
    ::osg::Vec3f n = geometry->getNormals() && leans ? world * geometry->getNormals()->getValue(i)
                                                     : ::osg::Vec3f();
    vector3 position, normal;
    osg::set(position, world * geometry->getPositions()->getValue(i));
    osg::set(normal, n);
    if (!(math::length(normal) < 1e-6f)) normal = math::unit(normal);
    return scene.at(position + normal * offset, normal, distance, two_sided);
  }

  /// Of all vertices, those of one position as the first.
  std::vector<float> values(const ::osg::NodePtr& node) const {
    const auto& positions = *::osg::Geometry::dcast(node->getCore())->getPositions();
    std::map<std::array<float, 3>, float> known;
    std::vector<float> all;
    for (std::uint32_t i = 0; i < positions.size(); ++i) {
      const ::osg::Pnt3f p = positions.getValue(i);
      if (p != p) {  // no key
        all.push_back(value_at(node, i));
        continue;
      }
      const auto [entry, fresh] = known.try_emplace({p[0], p[1], p[2]}, 0.0f);
      if (fresh) entry->second = value_at(node, i);
      all.push_back(entry->second);
    }
    return all;
  }
};

inline std::vector<::osg::NodePtr> geometry_nodes(const ::osg::NodePtr& root) {
  std::vector<::osg::NodePtr> nodes;
  osg::getGeometryNodes(root, nodes, false);
  return nodes;
}

inline ::osg::GeometryPtr core(const ::osg::NodePtr& node) {
  return ::osg::Geometry::dcast(node->getCore());
}

inline float diagonal_of(const ::osg::NodePtr& root) {
  ::osg::Pnt3f low, high;
  root->getVolume(true).getBounds(low, high);
  return math::distance({high[0], high[1], high[2]}, {low[0], low[1], low[2]});
}

}  // namespace morlu::tests
