#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <osg/image.h>
#include <osg/node.h>

#include "boxes.h"

namespace morlu::program {

/// What a scene is made of. "Drawn" figures count every node that shows a core, all others count a
/// core once. Nodes that are masked, or that a switch doesn't choose, count like others.
struct SceneStats {
  std::uint64_t nodes = 0;
  std::uint64_t geometry_nodes = 0;
  std::uint64_t cores = 0;  // distinct geometry cores

  std::uint64_t triangles = 0;           // drawn
  std::uint64_t lines = 0;               // drawn
  std::uint64_t points = 0;              // drawn
  std::uint64_t unusable_triangles = 0;  // drawn; `is_rogue` in the core's own space

  std::uint64_t vertices = 0;       // distinct tuples of indices among the corners of a core
  std::uint64_t index_entries = 0;  // entries of the cores' `Indices`
  std::uint64_t core_triangles = 0;
  std::uint64_t cache_misses = 0;  // of the cores' triangles, each core on an empty FIFO of 32

  std::uint64_t materials = 0;  // distinct handles on geometry cores and material groups
  std::uint64_t images = 0;     // distinct handles in those materials

  /// The smallest box around all corners of triangles, lines and points in world space, formed in
  /// double precision; positions that aren't finite there don't count. None without corners.
  std::optional<Box> bounds;
  std::vector<std::string> warnings;

  /// Average cache misses a triangle; none without triangles.
  std::optional<double> acmr() const;
};

/// Counts the subgraph at `root`, whose parents don't count. A null root has nothing in it.
/// O(nodes + corners of the cores + positions drawn) time; positions of nodes whose box adds
/// nothing to the bounds are passed over.
SceneStats count_scene(const ::osg::NodePtr& root);

/// The images that `SceneStats` counts, each once, in the order of the scene.
std::vector<::osg::ImagePtr> find_images(const ::osg::NodePtr& root);

}  // namespace morlu::program
