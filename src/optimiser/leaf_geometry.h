#pragma once

#include <cstdint>
#include <span>

#include "occlusion/scene_geoset.h"

namespace morlu::osg {

using object_scene = Morlu_osg_scene_geoset<kd_tree>;

struct leaf_setup {
  unsigned level = 1;   // form of new geometry, see `MakeGeoCore`
  int optimize_tc = 2;  // bound of `optimizeGeosetTexCoords`
};

/// New geometry of objects that lie together, below a Group: one core of all whose texture goes
/// into an atlas of their own, and what the merge makes of the others and of lines and points of
/// their nodes.
///
/// A texture goes into the atlas if it is the last TextureChunk of a material that mixes and blends
/// as that of the first object with one does, and if nobody sees a difference but for filters:
/// coordinates are the first, within 50 repeats, and repeat where they leave the image. What the
/// atlas has no place for keeps its own material. The core with the atlas gets new normals.
/// The sets of the objects are changed; nodes are only read. Throws `std::bad_alloc`. Failures that
/// end on the way are told of, and counted in `ended_failures`: the geometry then has gaps.
::osg::NodePtr buildLeafGeometry(object_scene& scene, std::span<const std::uint64_t> objects,
                                 const leaf_setup& setup);

}  // namespace morlu::osg
