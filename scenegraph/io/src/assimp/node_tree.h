#pragma once

#include "assimp/formats.h"
#include "assimp/meshes.h"
#include "osg/node.h"

namespace osg::io {

/// Builds the nodes of the scene of that file. Throws `ReadError` for trees that are too deep.
NodePtr build_node_tree(const aiScene& scene, const std::string& file, const AssimpFormat& format,
                        ModelMeshes& meshes);

}  // namespace osg::io
