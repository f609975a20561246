#pragma once

#include <vector>

#include "assimp/materials.h"
#include "osg/geometry.h"

struct aiMesh;

namespace osg::io {

/// The meshes of a scene as geometry cores, each made when it is first asked for.
class ModelMeshes {
 public:
  /// Keeps references to all three.
  ModelMeshes(const aiScene& scene, ModelMaterials& materials, Warnings& warnings);

  /// Null for a mesh without vertices. Throws `ReadError`, also if there is no such mesh.
  ///
  /// Kinds and order of the faces stay: runs of points, lines, triangles or quads are one
  /// primitive, polygons one each; what isn't convex becomes triangles. Where the importer gave
  /// every corner a vertex of its own, equal ones are joined.
  const GeometryPtr& core(UInt32 mesh, const std::string& place);
  std::string name(UInt32 mesh) const;

 private:
  struct Mesh {
    bool built = false;
    GeometryPtr core;
  };
  GeometryPtr build(const aiMesh& source, const std::string& place);
  void warn_of(const aiMesh& source);

  const aiScene& scene_;
  ModelMaterials& materials_;
  Warnings& warnings_;
  std::vector<Mesh> meshes_;
};

}  // namespace osg::io
