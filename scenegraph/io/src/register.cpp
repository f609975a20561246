#include <mutex>

#include "osg/io/model_files.h"

namespace osg::io {
namespace {

[[maybe_unused]] const bool registered_at_load = (registerModelFormats(), true);

}  // namespace

void registerModelFormats() {
  static std::once_flag once;
  std::call_once(once, [] {
    SceneFileHandler::the().registerFormat({"glTF 2.0", {"gltf", "glb"}, readGltf, writeGltf});
  });
}

}  // namespace osg::io
