#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "osb/byte_sink.h"
#include "osb/byte_source.h"

namespace osg::osb {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

/// A regular file; its size is taken when it is opened. Throws a `Failure` if it can't be.
class FileSource final : public ByteSource {
 public:
  explicit FileSource(const std::string& path);

 private:
  void read_at(UInt64 offset, std::byte* to, std::size_t count) override;
  std::span<std::byte> buffer() override { return buffer_; }

  FileHandle file_;
  UInt64 file_offset_ = 0;  // where the system's file stands
  std::vector<std::byte> buffer_;
};

/// A file that appears under its name when it is whole. Until `finish` it stands beside it under
/// another name, which is removed if it never gets that far. What stands there before is replaced
/// and gives the new file its permissions. Throws a `Failure` where the system refuses.
class FileSink final : public ByteSink {
 public:
  explicit FileSink(const std::string& path);
  ~FileSink() override;
  void finish();

 private:
  void open_beside_target();
  void pass_on(const std::byte* from, std::size_t count) override;

  std::filesystem::path target_;
  std::filesystem::path temporary_;  // empty: none to remove
  FileHandle file_;
};

}  // namespace osg::osb
