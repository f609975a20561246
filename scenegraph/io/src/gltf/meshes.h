#pragma once

#include <array>
#include <map>
#include <vector>

#include "gltf/accessors.h"
#include "gltf/materials.h"
#include "osg/geometry.h"

namespace osg::io {

/// The name under which secondary colours, which glTF doesn't know, are written and read.
inline constexpr const char* kSecondaryColors = "_SECONDARY_COLOR";

/// The meshes of a document as geometry cores, one a primitive, each made when it is first asked
/// for. Properties of accessors that several primitives use are shared.
class GltfMeshes {
 public:
  /// Keeps references to all.
  GltfMeshes(const GltfDocument& document, GltfAccessors& accessors, GltfMaterials& materials,
             Warnings& warnings);

  /// One core a primitive that has positions. Throws `ReadError`, also for no such mesh.
  const std::vector<GeometryPtr>& cores(int mesh, const std::string& place);
  const std::string& name(int mesh) const {
    return document_.model.meshes[static_cast<std::size_t>(mesh)].name;
  }

 private:
  struct Mesh {
    bool built = false;
    std::vector<GeometryPtr> cores;
  };
  struct CoordsKey {
    int accessor;
    TextureTransform transform;
    auto operator<=>(const CoordsKey&) const = default;
  };

  GeometryPtr build(const tinygltf::Primitive& source, const std::string& place);
  void add_attributes(const tinygltf::Primitive& source, const GltfMaterial& material,
                      const GeometryPtr& core, const std::string& place);
  void add_primitive(const tinygltf::Primitive& source, const GeometryPtr& core,
                     const std::string& place);
  void add_feature_ids(const tinygltf::Primitive& source, const GeometryPtr& core);
  GeoPropertyPtr attribute(const std::string& name, int accessor, const GltfMaterial& material,
                           Attribute& attribute);
  GeoPropertyPtr colors(int accessor);
  GeoPropertyPtr tex_coords(int accessor, const TextureTransform& transform);
  template <class Property>
  GeoPropertyPtr read_floats(int accessor, const char* what);

  const GltfDocument& document_;
  GltfAccessors& accessors_;
  GltfMaterials& materials_;
  Warnings& warnings_;
  std::vector<Mesh> meshes_;
  std::map<std::pair<int, Attribute>, GeoPropertyPtr> properties_;  // of all but coordinates
  std::map<CoordsKey, GeoPropertyPtr> tex_coords_;
  std::map<std::pair<int, std::optional<double>>, GeoPropertyPtr> feature_ids_;  // and null's id
  std::map<int, GltfAccessors::Indices> indices_;
  std::array<GeoPTypesPtr, 7> types_;
  std::map<UInt32, GeoPLengthsPtr> lengths_;
};

}  // namespace osg::io
