#pragma once

#include "gltf/meshes.h"
#include "osg/node.h"

namespace osg::io {

/// The extra that carries a traversal mask which isn't all ones.
inline constexpr const char* kTravMaskKey = "osg:travMask";

/// Builds the node tree of the document's scene. Throws `ReadError` for nodes that are no tree.
NodePtr build_scene(const GltfDocument& document, GltfMeshes& meshes, Warnings& warnings);

}  // namespace osg::io
