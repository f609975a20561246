#pragma once

#include <string>

#include <osg/node.h>

namespace morlu::program {

/// Warns of each image of a scene from `file` that an atlas would show another image in place of.
/// The numbers are those of `createTextureAtlasForScene`.
void warn_of_mix_ups(const ::osg::NodePtr& scene, const std::string& file, unsigned max_size,
                     unsigned coordinate_limit);

}  // namespace morlu::program
