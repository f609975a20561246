#pragma once

#include <assimp/material.h>

#include <optional>
#include <vector>

#include "assimp/images.h"
#include "material_look.h"
#include "osg/material.h"

namespace osg::io {

/// A material, and what the coordinates of its geometries have to take over from it.
struct ModelMaterial {
  MaterialPtr material;  // null: the file names none
  UInt32 set = 0;        // of texture coordinates, which `transform` is for
  std::optional<aiUVTransform> transform;
};

/// The materials of a scene, each made when it is first asked for.
class ModelMaterials {
 public:
  /// Keeps references to all three.
  ModelMaterials(const aiScene& scene, ModelImages& images, Warnings& warnings);

  /// Throws `ReadError` if there is no such material.
  const ModelMaterial& material(UInt32 index, const std::string& place);

 private:
  ModelMaterial build(const aiMaterial& source);

  const aiScene& scene_;
  ModelImages& images_;
  Warnings& warnings_;
  std::vector<std::optional<ModelMaterial>> materials_;
};

}  // namespace osg::io
