#pragma once

#include <cstdint>
#include <vector>

#include <osg/matrix.h>
#include <osg/node.h>

#include "picture/box_tree.h"
#include "picture/drawn_core.h"
#include "picture/surface_look.h"

namespace morlu::program {

/// A place where a core is drawn.
struct Placement {
  std::uint32_t core;
  std::uint32_t look;
  ::osg::Matrix4d world_from_object, object_from_world;
  double run_up;  // how far before its box a ray starts
};

/// All that a picture shows, as a flat list.
struct DrawnScene {
  std::vector<DrawnCore> cores;
  std::vector<SurfaceLook> looks;       // one a material, and one for none
  std::vector<Placement> placements;    // in the order of the nodes
  std::vector<Box> boxes;               // of the placements, in world space, a little wide
  BoxTree tree;                         // over `boxes`
  std::uint64_t lines = 0, points = 0;  // which have no triangles and aren't drawn
  std::uint64_t unplaced = 0;           // drawings of a core under a matrix that can't be undone

  /// The distance at which surfaces are told apart: it is larger than what rounding does to a hit.
  double thinnest_gap() const;
};

/// Collects what is drawn of the graph, which may be null: what rays would be carried to. Nodes
/// that are masked are left out, switches show their choice, distance levels their finest. A
/// MaterialGroup's material, the topmost one's, serves geometry that has none of its own. Builds
/// the trees. O(nodes + n log n) time for n triangles of the cores.
DrawnScene collect_drawn(const ::osg::NodePtr& root);

}  // namespace morlu::program
