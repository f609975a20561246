#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "file_bytes.h"
#include "report.h"

namespace osg::io {

/// The files of one export: all of them or none. They are written beside their places and put there
/// in the end, so that what stood there before is gone only when the new is whole. Devices and the
/// like are written at once.
class OutFiles {
 public:
  OutFiles() = default;
  OutFiles(const OutFiles&) = delete;
  OutFiles& operator=(const OutFiles&) = delete;
  /// Removes what was written, unless it was put in place.
  ~OutFiles();

  /// Writes the pieces one after the other. Throws `WriteError`.
  void write(const std::string& file, const std::vector<ByteSpan>& pieces);
  /// In the order of writing. Throws `WriteError`.
  void put_in_place();

 private:
  struct Unfinished {
    std::string file;  // as it was asked for
    std::filesystem::path written, target;
  };

  std::vector<Unfinished> files_;
};

inline ByteSpan bytes_of(std::string_view text) {
  return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

}  // namespace osg::io
