#pragma once

#include <string>

#include <osg/geometry.h>

namespace morlu::program {

/// The triangles of `source`, about `wanted` of them, in a new geometry with the same material;
/// null if there are no more already, and where all would go at once. More stay where the library
/// takes next to none away. `name` is for the ids, which need one. Leaves a file in the working
/// directory.
///
/// In one call only the first collapses of the library join neighbours. Later ones move vertices
/// without effect, or fold the surface. So it is called for few collapses at a time, the last time
/// for that number which comes nearest to `wanted`, with lengths in a unit of their own, so that
/// the unit of the scene makes no difference.
::osg::GeometryPtr fewer_triangles(const ::osg::GeometryPtr& source, const std::string& name,
                                   unsigned wanted);

}  // namespace morlu::program
