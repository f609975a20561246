#pragma once

#include <map>
#include <string>

#include "osg/image.h"
#include "report.h"

struct aiScene;
struct aiTexture;

namespace osg::io {

/// The textures of a model, each decoded when it is first asked for: those within the file by
/// their number or name, others beside it.
class ModelImages {
 public:
  /// Keeps references. `file_bytes`: what was read so far, which bounds the pixels.
  ModelImages(const aiScene& scene, std::string base_dir, UInt64 file_bytes, Warnings& warnings);

  /// `name` as the material has it. Null for an image that can't be had; a warning then tells why,
  /// once.
  ImagePtr image(const std::string& name);

 private:
  ImagePtr load(const std::string& name);
  ImagePtr embedded(const aiTexture& texture, const std::string& name);
  ImagePtr external(const std::string& name);
  ImagePtr decode(std::span<const UInt8> bytes, const std::string& place);

  const aiScene& scene_;
  std::string base_dir_;
  Warnings& warnings_;
  std::map<std::string, ImagePtr> by_name_;
  std::map<std::string, ImagePtr> by_file_;
  std::map<const aiTexture*, ImagePtr> embedded_;
  UInt64 pixel_bytes_ = 0;
  UInt64 file_bytes_;
};

}  // namespace osg::io
