#include "bench/merge_peer.h"

#ifdef MORLU_BENCH_ASSIMP
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <memory>
#include <stdexcept>

#include "bench/temporary_file.h"
#include "osg/scene_file_handler.h"

namespace morlu::bench {

std::optional<contender> merging_steps_peer(const ::osg::NodePtr& root, std::size_t triangles) {
  const auto file = std::make_shared<temporary_file>("merge.glb");
  if (!::osg::SceneFileHandler::the().writeScene(root, file->path()))
    throw std::runtime_error("can't write " + file->path());
  const auto importer = std::make_shared<Assimp::Importer>();
  return contender{.name = "assimp",
                   .prepare = [=] { importer->ReadFile(file->path(), 0); },
                   .run =
                       [=] {
                         importer->ApplyPostProcessing(
                             aiProcess_PreTransformVertices | aiProcess_OptimizeMeshes |
                             aiProcess_JoinIdenticalVertices | aiProcess_ImproveCacheLocality);
                       },
                   .fault = [=]() -> std::string {
                     std::size_t sum = 0;
                     for (unsigned i = 0; i < importer->GetScene()->mNumMeshes; ++i)
                       sum += importer->GetScene()->mMeshes[i]->mNumFaces;
                     return sum >= triangles ? "" : "triangles are lost";
                   }};
}

}  // namespace morlu::bench
#else
namespace morlu::bench {

std::optional<contender> merging_steps_peer(const ::osg::NodePtr&, std::size_t) {
  return {};
}

}  // namespace morlu::bench
#endif
