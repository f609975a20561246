#pragma once

#include <cstdint>

#include <osg/node.h>

namespace morlu::sample {

/// What the sample assembly is made of.
struct SampleOptions {
  std::uint32_t parts = 1000;    // geometry nodes, but for lines and points; at least 1
  std::uint32_t materials = 24;  // a tenth of them transparent, at least one of two or more
  std::uint32_t textures = 8;    // how many of the materials are textured; at most `materials`
  std::uint64_t seed = 1;        // another seed, another plant of the same kind
  bool with_lines = false;       // centre lines and leaders of labels as line sets
  bool with_points = false;      // survey scans as point sets
};

/// A plant of halls, tanks, pipe runs, steelwork, cable trays and pump skids, in metres, z up:
/// plant, areas, units, assemblies, parts, all with names; assemblies carry attributes.
///
/// Parts of one shape and material share a core; some placements mirror, some scale unevenly. Every
/// part is a closed surface of triangles with outward normals. All of the materials are in use
/// when there are as many parts; with fewer parts the first ones are. Lines and points come on top
/// and change nothing else.
///
/// The result depends on the options alone: no library's random numbers and no function whose last
/// bits differ between machines goes into it. O(parts) time.
::osg::NodePtr make_sample_assembly(const SampleOptions& options);

}  // namespace morlu::sample
