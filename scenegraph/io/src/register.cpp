#include <mutex>

#include "assimp/formats.h"
#include "osg/io/model_files.h"

namespace osg::io {
namespace {

[[maybe_unused]] const bool registered_at_load = (registerModelFormats(), true);

}  // namespace

void registerModelFormats() {
  static std::once_flag once;
  std::call_once(once, [] {
    SceneFileHandler::the().registerFormat({"glTF 2.0", {"gltf", "glb"}, readGltf, writeGltf});
    for (const AssimpFormat& format : assimp_formats())
      SceneFileHandler::the().registerFormat(
          {format.name, {format.suffixes.begin(), format.suffixes.end()}, readOtherModel, {}});
  });
}

}  // namespace osg::io
