#include "bench/index_peer.h"

#ifdef MORLU_BENCH_ASSIMP
#include <assimp/BaseImporter.h>
#include <assimp/importerdesc.h>
#include <assimp/mesh.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <stdexcept>

namespace morlu::bench {

namespace {

/// "Reads" corners that are in memory: its way to a scene that can be processed.
class corner_importer : public Assimp::BaseImporter {
 public:
  explicit corner_importer(const flat_corners& of) : of_(of) {}

  bool CanRead(const std::string&, Assimp::IOSystem*, bool) const override { return true; }
  const aiImporterDesc* GetInfo() const override {
    static const aiImporterDesc info{"corners", "", "", "", 0, 0, 0, 0, 0, "corners"};
    return &info;
  }

 protected:
  void InternReadFile(const std::string&, aiScene* scene, Assimp::IOSystem*) override {
    scene->mRootNode = new aiNode;
    scene->mRootNode->mNumMeshes = 1;
    scene->mRootNode->mMeshes = new unsigned[1]{0};
    scene->mNumMeshes = 1;
    scene->mMeshes = new aiMesh* [1] { new aiMesh };
    scene->mNumMaterials = 1;
    scene->mMaterials = new aiMaterial* [1] { new aiMaterial };
    fill(*scene->mMeshes[0]);
  }

 private:
  void fill(aiMesh& mesh) const {
    const std::uint32_t corners = of_.size();
    mesh.mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    mesh.mNumVertices = corners;
    mesh.mVertices = new aiVector3D[corners];
    mesh.mNormals = new aiVector3D[corners];
    for (unsigned set = 0; set < 2; ++set) {
      mesh.mTextureCoords[set] = new aiVector3D[corners];
      mesh.mNumUVComponents[set] = 2;
    }
    for (std::uint32_t i = 0; i < corners; ++i) {
      const float* row = &of_.rows[std::size_t{i} * flat_corners::floats];
      mesh.mVertices[i] = {row[0], row[1], row[2]};
      mesh.mNormals[i] = {row[3], row[4], row[5]};
      for (unsigned set = 0; set < 2; ++set)
        mesh.mTextureCoords[set][i] = {row[6 + 2 * set], row[7 + 2 * set], 0};
    }
    mesh.mNumFaces = corners / 3;
    mesh.mFaces = new aiFace[mesh.mNumFaces];
    for (std::uint32_t i = 0; i < mesh.mNumFaces; ++i) {
      mesh.mFaces[i].mNumIndices = 3;
      mesh.mFaces[i].mIndices = new unsigned[3]{3 * i, 3 * i + 1, 3 * i + 2};
    }
  }

  const flat_corners& of_;
};

}  // namespace

std::optional<contender> joining_peer(const std::shared_ptr<const flat_corners>& of) {
  const auto importer = std::make_shared<Assimp::Importer>();
  importer->RegisterLoader(new corner_importer(*of));  // the importer's from here on
  return contender{.name = "assimp",
                   .prepare =
                       [=] {
                         // It insists on bytes to read, at which nobody looks.
                         if (!importer->ReadFileFromMemory("", 1, 0, "corners"))
                           throw std::runtime_error(importer->GetErrorString());
                       },
                   .run = [=] { importer->ApplyPostProcessing(aiProcess_JoinIdenticalVertices); },
                   .fault = [=]() -> std::string {
                     return importer->GetScene()->mMeshes[0]->mNumVertices == of->vertices
                                ? ""
                                : "other vertices";
                   }};
}

}  // namespace morlu::bench
#else
namespace morlu::bench {

std::optional<contender> joining_peer(const std::shared_ptr<const flat_corners>&) {
  return {};
}

}  // namespace morlu::bench
#endif
