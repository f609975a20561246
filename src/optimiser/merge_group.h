#pragma once

#include "morlu/kd.h"
#include "morlu/optimiser.h"
#include "optimiser/material_groups.h"

namespace morlu::osg {

/// Elements that a set takes before it is built and emptied.
inline constexpr unsigned merge_limit = 3000000;

/// Merges a group's triangles, lines and points into new geometry: a Group node with a Group for
/// each filling of a set, over what `Splitmodel` makes of it. Null for an empty group. Throws what
/// the build of a tree throws.
::osg::NodePtr mergeMaterialGroup(const ::osg::MaterialPtr& material, const material_group& group,
                                  const kd_build_setup& kd, const mergeGeo_setup& setup,
                                  unsigned limit);

/// The same for parts of the group that lie together, of less than `limit` triangles where the
/// group can be parted.
::osg::NodePtr mergeMaterialGroupSpatial(const ::osg::MaterialPtr& material,
                                         const material_group& group, const kd_build_setup& kd,
                                         const mergeGeo_setup& setup, unsigned limit);

}  // namespace morlu::osg
