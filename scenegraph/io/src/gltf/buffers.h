#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "gltf/document.h"

namespace osg::io {

/// The bytes behind a document: buffers and views into them, each loaded once when it is first
/// asked for, files by several buffers too.
class GltfBuffers {
 public:
  /// Keeps references to both.
  GltfBuffers(const GltfDocument& document, std::string base_dir);

  /// The bytes of a buffer view, checked against its buffer. Throws `ReadError`.
  ByteSpan view(int index);
  const std::string& base_dir() const { return base_dir_; }
  /// Bytes that were loaded or came with the document, which bound what may be made of them.
  std::size_t total_bytes() const { return total_bytes_; }

 private:
  struct Buffer {
    std::string uri;
    std::size_t byte_length = 0;
    bool has_uri = false;
    bool loaded = false;
    ByteSpan bytes;
  };
  ByteSpan buffer(std::size_t index);
  ByteSpan load(const Buffer& buffer, std::size_t index, const std::string& place);
  ByteSpan keep(FileBytes bytes);

  const GltfDocument& document_;
  std::string base_dir_;
  std::vector<Buffer> buffers_;
  std::deque<FileBytes> owned_;
  std::map<std::string, ByteSpan> files_;
  std::size_t total_bytes_;
};

}  // namespace osg::io
