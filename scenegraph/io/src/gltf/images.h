#pragma once

#include <map>
#include <string>
#include <vector>

#include "gltf/buffers.h"
#include "osg/image.h"

namespace osg::io {

/// The images of a document, each decoded when it is first asked for. Entries for one file or one
/// buffer view are one image.
class GltfImages {
 public:
  /// Keeps references to all three.
  GltfImages(const GltfDocument& document, GltfBuffers& buffers, Warnings& warnings);

  /// Null for an image that can't be had; a warning then tells why, once.
  ImagePtr image(int index);

 private:
  struct Entry {
    std::string name;
    bool has_name = false;  // without one it is the file's
    std::string uri;
    std::string mime_type;
    int view = -1;
    bool loaded = false;
    ImagePtr image;
  };
  ImagePtr load(const Entry& entry, const std::string& place);
  ImagePtr decode(std::span<const UInt8> bytes, const Entry& entry, const std::string& mime_type,
                  const std::string& place);

  GltfBuffers& buffers_;
  Warnings& warnings_;
  std::vector<Entry> entries_;
  std::map<std::string, ImagePtr> by_file_;
  std::map<int, ImagePtr> by_view_;
  UInt64 pixel_bytes_ = 0;
  UInt64 file_bytes_ = 0;
};

}  // namespace osg::io
