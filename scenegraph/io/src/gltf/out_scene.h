#pragma once

#include <map>
#include <string>
#include <vector>

#include "gltf/out_geometry.h"
#include "gltf/out_materials.h"
#include "osg/node.h"

namespace osg::io {

/// The meshes and nodes of a scene to write, numbered in the order of the walk.
struct OutScene {
  struct Primitive {
    std::size_t geometry;  // in `geometries`
    std::size_t part;      // of its primitives
    int material;
  };
  struct Mesh {
    std::string name;
    std::string extras;
    std::vector<Primitive> primitives;
  };
  struct Node {
    std::string name;
    std::string extras;
    const Matrix* matrix = nullptr;  // null: identity
    int mesh = -1;
    std::vector<std::size_t> children;
  };

  std::string name;
  std::string extras;
  std::vector<std::size_t> roots;
  std::vector<Node> nodes;
  std::vector<Mesh> meshes;
  std::vector<PreparedGeometry> geometries;
};

/// Walks the graph. Throws `WriteError` if it is deeper than the reader takes.
OutScene collect_scene(const NodePtr& root, OutMaterials& materials, Warnings& warnings);

}  // namespace osg::io
