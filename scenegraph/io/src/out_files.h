#pragma once

#include <string>
#include <vector>

#include "file_bytes.h"
#include "report.h"

namespace osg::io {

/// The files of one export: all of them or none.
class OutFiles {
 public:
  OutFiles() = default;
  OutFiles(const OutFiles&) = delete;
  OutFiles& operator=(const OutFiles&) = delete;
  /// Removes what was written, unless it was kept.
  ~OutFiles();

  /// Writes the pieces one after the other. Throws `WriteError`.
  void write(const std::string& file, const std::vector<ByteSpan>& pieces);
  void keep() { files_.clear(); }

 private:
  std::vector<std::string> files_;
};

inline ByteSpan bytes_of(std::string_view text) {
  return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

}  // namespace osg::io
