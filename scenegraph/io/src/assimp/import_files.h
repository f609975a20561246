#pragma once

#include <assimp/IOSystem.hpp>
#include <memory>
#include <string>
#include <vector>

#include "file_bytes.h"

namespace osg::io {

/// What an importer gets to read: the model's file, which is in memory already, and regular files
/// beside it. Backslashes in names part folders. Nothing can be written.
class ImportFiles : public Assimp::IOSystem {
 public:
  /// `main_bytes` stand for the file `main_file`.
  ImportFiles(std::string main_file, FileBytes main_bytes);

  bool Exists(const char* file) const override;
  char getOsSeparator() const override { return '/'; }
  /// Null, and the file is remembered as missing, if it can't be read.
  Assimp::IOStream* Open(const char* file, const char* mode) override;
  void Close(Assimp::IOStream* stream) override;

  /// Files that were asked for in vain, in order, each once.
  const std::vector<std::string>& missing() const { return missing_; }
  /// Bytes of all files that were opened.
  std::size_t total_bytes() const { return total_bytes_; }

 private:
  std::string main_file_;
  std::shared_ptr<const FileBytes> main_;
  std::vector<std::string> missing_;
  std::size_t total_bytes_ = 0;
};

}  // namespace osg::io
