#include <filesystem>

#include "gltf/scene.h"
#include "osg/io/model_files.h"

namespace osg::io {
namespace {

NodePtr read_document(ByteSpan bytes, const std::string& base_dir, Warnings& warnings) {
  const GltfDocument document = parse_gltf(bytes, warnings);
  GltfBuffers buffers(document, base_dir);
  GltfImages images(document, buffers, warnings);
  GltfAccessors accessors(document, buffers);
  GltfMaterials materials(document, images, warnings);
  GltfMeshes meshes(document, accessors, materials, warnings);
  return build_scene(document, meshes, warnings);
}

}  // namespace

SceneReadResult readGltf(const std::string& file) {
  return guarded_read(file, [&](Warnings& warnings) {
    const FileBytes bytes = read_file(file, "");
    const std::string directory = std::filesystem::path(file).parent_path().string();
    return read_document(bytes.span(), directory.empty() ? "." : directory, warnings);
  });
}

SceneReadResult readGltfMemory(std::span<const std::byte> bytes, const std::string& base_dir,
                               const std::string& name) {
  return guarded_read(name,
                      [&](Warnings& warnings) { return read_document(bytes, base_dir, warnings); });
}

}  // namespace osg::io
