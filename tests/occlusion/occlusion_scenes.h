#pragma once

#include <osg/cores.h>

#include <cmath>
#include <random>

#include "occlusion/occlusion.h"
#include "occlusion/scene_trace.h"
#include "ray/ray_scenes.h"
#include "support/said.h"

/// Scenes of several objects, and what they look like to a test of brute force.
namespace morlu::tests {

inline ::osg::NodePtr group(const std::vector<::osg::NodePtr>& children) {
  return node_with(::osg::Group::create(), children);
}

/// Columns scaled by `scale`, then moved.
inline ::osg::Matrix scaled(const vector3& scale, const vector3& at) {
  return ::osg::Matrix(std::array<float, 16>{scale[0], 0, 0, 0, 0, scale[1], 0, 0, 0, 0, scale[2],
                                             0, at[0], at[1], at[2], 1});
}

/// Two triangles, seen from where a, b, c, d run counter-clockwise.
inline std::vector<triangle> quad(const vector3& a, const vector3& b, const vector3& c,
                                  const vector3& d) {
  return {{{a, b, c}}, {{a, c, d}}};
}

/// Their backs to the front.
inline std::vector<triangle> turned(std::vector<triangle> all) {
  for (triangle& each : all) std::swap(each.corners[1], each.corners[2]);
  return all;
}

/// What is said on standard output; nothing may be on the other.
template <class Work>
std::string said_on_out(Work work) {
  test::said lines;
  work();
  lines.end();
  EXPECT_EQ(lines.err, "");
  return lines.out;
}

struct test_scene {
  std::unique_ptr<ray_scene> objects;
  bih_tree<float> top_tree;

  explicit test_scene(const ::osg::NodePtr& root) {
    test::said progress;
    objects = std::make_unique<ray_scene>(root, build_setup{5, 100}, true);
    osg::build_top_tree(*objects, top_tree);
    progress.end();
    EXPECT_EQ(progress.err, "");
  }

  float at(const vector3& position, const vector3& normal, float distance,
           bool two_sided = false) const {
    return osg::occlusion_at(top_tree, *objects, position, normal, 3, distance, two_sided);
  }
  float diagonal() const {
    return math::length(vector3{objects->box.size[0], objects->box.size[1], objects->box.size[2]});
  }
};

}  // namespace morlu::tests
