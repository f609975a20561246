#pragma once

#include <cstdint>
#include <vector>

#include <osg/geometry.h>
#include <osg/vector.h>

namespace morlu::program {

/// What one geometry core holds.
struct CoreStats {
  std::uint64_t triangles = 0, lines = 0, points = 0;
  std::uint64_t unusable_triangles = 0;
  std::uint64_t vertices = 0;           // distinct tuples of indices among the corners
  std::uint64_t index_entries = 0;      // entries of `Indices`
  std::uint64_t cache_misses = 0;       // of the triangles in order, on a FIFO of 32 vertices
  std::vector<::osg::Pnt3f> positions;  // each that a corner uses, once
};

/// O(corners + entries of the properties) time.
CoreStats count_core(const ::osg::Geometry& geometry);

}  // namespace morlu::program
