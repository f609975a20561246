#pragma once

#include <osg/geometry.h>

#include <random>
#include <vector>

#include "ray/bih_build.h"
#include "ray/stream_trace.h"
#include "ray/triangle_set.h"
#include "support/scene_parts.h"

/// Triangles, sets and geometry for the tests of rays and collisions.
namespace morlu::tests {

using math::vector3;

inline osg::triangle_set make_set(const std::vector<triangle>& triangles) {
  osg::triangle_set set;
  set.resize(triangles.size());
  std::copy(triangles.begin(), triangles.end(), set.triangles.get());
  set.box = compute_bounding_box(set);
  return set;
}

inline void build(bih_tree<float>& tree, const osg::triangle_set& set) {
  bih_builder(tree, build_setup()).build(set, set.box);
  tree.active = true;
}

inline vector3 random_point(std::mt19937& random, float reach) {
  std::uniform_real_distribution<float> coordinate(-reach, reach);
  const float x = coordinate(random), y = coordinate(random), z = coordinate(random);
  return {x, y, z};
}

/// Small triangles strewn in a cube, some large ones among them.
inline std::vector<triangle> random_soup(std::mt19937& random, std::size_t count) {
  std::vector<triangle> soup;
  while (soup.size() < count) {
    const vector3 at = random_point(random, 10);
    const float size = random() % 16 ? 0.7f : 6.0f;
    soup.push_back({{at, at + random_point(random, size), at + random_point(random, size)}});
  }
  return soup;
}

/// A closed ball of about 4 n * n triangles, seen from outside by their front faces.
inline std::vector<triangle> ball(int n, const vector3& centre = {0, 0, 0}, float radius = 1) {
  const auto point = [&](int ring, int step) {
    const double theta = 3.14159265358979 * ring / n, phi = 3.14159265358979 * step / n;
    const double s = ring == 0 || ring == n ? 0 : std::sin(theta);
    return centre + vector3{static_cast<float>(s * std::cos(phi)),
                            static_cast<float>(s * std::sin(phi)),
                            static_cast<float>(std::cos(theta))} *
                        radius;
  };
  std::vector<triangle> mesh;
  for (int ring = 0; ring < n; ++ring) {
    for (int step = 0; step < 2 * n; ++step) {
      const int next = (step + 1) % (2 * n);
      const vector3 a = point(ring, step), b = point(ring + 1, step);
      const vector3 c = point(ring + 1, next), d = point(ring, next);
      if (ring < n - 1) mesh.push_back({{a, b, c}});
      if (ring > 0) mesh.push_back({{a, c, d}});
    }
  }
  return mesh;
}

inline ::osg::GeometryPtr make_geometry(const std::vector<triangle>& triangles) {
  std::vector<::osg::Pnt3f> corners;
  for (const triangle& each : triangles)
    for (const vector3& corner : each.corners) corners.push_back({corner[0], corner[1], corner[2]});
  return ::triangles(corners);
}

inline ::osg::NodePtr mesh_node(const std::vector<triangle>& triangles) {
  return node_with(make_geometry(triangles));
}

inline ::osg::NodePtr placed(const ::osg::NodePtr& node, const ::osg::Matrix& world) {
  return node_with(transform(world), {node});
}

/// The vector units of this machine.
inline std::vector<vector_unit> units_here() {
  std::vector<vector_unit> units;
  for (const vector_unit each : {vector_unit::none, vector_unit::avx2, vector_unit::avx512})
    if (each <= widest_unit()) units.push_back(each);
  return units;
}

}  // namespace morlu::tests
