#include <assimp/BaseImporter.h>
#include <assimp/config.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/Importer.hpp>
#include <filesystem>

#include "assimp/announced_counts.h"
#include "assimp/collada.h"
#include "assimp/import_files.h"
#include "assimp/nesting.h"
#include "assimp/node_tree.h"
#include "osg/io/model_files.h"

namespace osg::io {
namespace {

/// Leaves the importers of that suffix only: others would be tried on a file with foreign content,
/// that of glTF among them.
void keep_importers_of(const std::string& suffix, Assimp::Importer& importer) {
  std::vector<Assimp::BaseImporter*> others;
  for (std::size_t i = 0; i < importer.GetImporterCount(); ++i) {
    const std::string name = importer.GetImporterInfo(i)->mName;
    const std::string suffixes =
        std::string(" ") + importer.GetImporterInfo(i)->mFileExtensions + " ";
    const bool gltf = name.find("glTF") != name.npos;
    if (gltf || suffixes.find(" " + suffix + " ") == suffixes.npos)
      others.push_back(importer.GetImporter(i));
  }
  for (Assimp::BaseImporter* other : others) {
    importer.UnregisterLoader(other);
    delete other;  // which is ours from then on
  }
}

void configure(Assimp::Importer& importer) {
  importer.SetPropertyBool(AI_CONFIG_IMPORT_NO_SKELETON_MESHES, true);
  importer.SetPropertyBool(AI_CONFIG_IMPORT_COLLADA_USE_COLLADA_NAMES, true);
  // Pivots are for animation; without it the transforms of a node are one.
  importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
}

/// In one line.
std::string reason_of(const Assimp::Importer& importer) {
  std::string reason = importer.GetErrorString();
  std::replace(reason.begin(), reason.end(), '\n', ' ');
  return reason.empty() ? "can't be read" : reason;
}

void warn_of_content(const aiScene& scene, Warnings& warnings) {
  warnings.count("animations are left out", "animation", scene.mNumAnimations);
  warnings.count("cameras are left out", "camera", scene.mNumCameras);
  warnings.count("lights are left out", "light", scene.mNumLights);
  if (scene.mNumMeshes == 0) warnings.add("the file holds no geometry");
}

void warn_of_missing(const ImportFiles& files, const std::string& file, Warnings& warnings) {
  // Where an OBJ file's materials are missing, those under its own name are asked for as well.
  const std::string guess = std::filesystem::path(file).replace_extension("mtl").string();
  const auto& missing = files.missing();
  for (std::size_t i = 0; i < missing.size(); ++i)
    if (i == 0 || missing[i] != guess)
      warnings.add("'" + missing[i] + "' can't be read; what it holds is left out");
}

NodePtr read_scene(const std::string& file, const AssimpFormat& format, FileBytes bytes,
                   Warnings& warnings) {
  Assimp::Importer importer;
  keep_importers_of(suffix_of(file), importer);
  configure(importer);
  auto owned_files = std::make_unique<ImportFiles>(file, std::move(bytes));
  const ImportFiles& files = *owned_files;
  importer.SetIOHandler(owned_files.release());
  const aiScene* scene = importer.ReadFile(file, 0);
  if (!scene || !scene->mRootNode) throw ReadError{"", reason_of(importer)};
  warn_of_missing(files, file, warnings);
  warn_of_content(*scene, warnings);
  const std::string directory = std::filesystem::path(file).parent_path().string();
  ModelImages images(*scene, directory.empty() ? "." : directory, files.total_bytes(), warnings);
  ModelMaterials materials(*scene, images, warnings);
  ModelMeshes meshes(*scene, materials, warnings);
  return build_node_tree(*scene, file, format, meshes);
}

}  // namespace

SceneReadResult readOtherModel(const std::string& file) {
  return guarded_read(file, [&](Warnings& warnings) {
    const AssimpFormat* format = assimp_format_of(file);
    if (!format) throw ReadError{"", "its suffix is none of a known format"};
    FileBytes bytes = read_file(file, "");
    if (bytes.size == 0) throw ReadError{"", "is empty"};
    const std::string_view text(reinterpret_cast<const char*>(bytes.data.get()), bytes.size);
    check_announced_counts(suffix_of(file), text);
    check_nesting(suffix_of(file), text);
    if (suffix_of(file) == "dae") bytes = with_material_for_none(std::move(bytes));
    return read_scene(file, *format, std::move(bytes), warnings);
  });
}

}  // namespace osg::io
