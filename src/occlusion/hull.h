#pragma once

#include <osg/geometry.h>

#include <functional>
#include <span>
#include <vector>

#include "occlusion/occlusion_scene.h"

/// A model reduced to its most visible elements: what each is worth, where the cut is made, and the
/// copy of what stays.
///
/// Elements are points, lines and triangles, in the order of the primitives; strips, fans, quads
/// and polygons count as their triangles, strips and loops of lines as their lines.
namespace morlu::osg {

/// What types and lengths promise: points, lines, triangles, a quad as two; other types than those
/// of triangles, lines and points nothing where they are quad strips and strips and loops of lines.
/// 0 for null and without geometry. In 32 bits.
std::uint32_t countPrimitives(const ::osg::NodePtr& node);

/// Puts how open each vertex is into the geometry's texture coordinates 6; rays go in all
/// directions. Without positions a line on standard output and false.
bool storeOcclusion(const ::osg::NodePtr& node, occlusion_scene& scene,
                    const occlusion_query& query);

/// What is above `threshold` stays, and the first `ties` of what equals it.
struct hull_cut {
  float threshold = 0;
  unsigned ties = 0;

  bool keeps(double worth) {
    if (ties == 0 || worth != threshold) return worth > threshold;
    --ties;
    return true;
  }
};

/// The cut that `target` - 1 of the worths pass; with 0 or from their number on all above 0 do.
/// Sorts them.
hull_cut cut_for(std::vector<double>& worths, unsigned target);

/// Appends the worth of each element: the mean of the first texture coordinate 6 of its vertices.
void append_occlusion_worths(const ::osg::NodePtr& node, std::vector<double>& worths);
/// The mean of all components of its vertices' colours.
void append_color_worths(const ::osg::NodePtr& node, std::vector<double>& worths);

// The elements that pass the cut, each a primitive of its own, under a single index, with the
// material and all attributes of the source but the one named. Null for null, without geometry and
// without the attribute that tells their worth; null and a line on standard error where the copy
// fails.

/// Without texture coordinates 6.
::osg::GeometryPtr copyPrimitivesWithAOThreshold(const ::osg::NodePtr& node, hull_cut& cut);
/// Without colours.
::osg::GeometryPtr copyTrianglesWithColorThreshold(const ::osg::NodePtr& node, hull_cut& cut);

/// A new Group node with the nodes below it, each in its place in the world and with the core that
/// `core_of` gives. Their children stay behind.
::osg::NodePtr make_hull(std::span<const ::osg::NodePtr> nodes,
                         const std::function<::osg::NodeCorePtr(const ::osg::NodePtr&)>& core_of);

}  // namespace morlu::osg
