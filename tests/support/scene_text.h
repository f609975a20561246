#pragma once

#include <string>

#include "osg/node.h"

namespace support {

/// Everything that a subgraph holds as text: nodes, cores, geometry with the bits of its values,
/// materials, images, names, attributes, and which of them are the same object. Two scenes are
/// alike if and only if their texts are equal. Says where they differ better than a comparison.
std::string scene_text(const osg::NodePtr& root);

}  // namespace support
