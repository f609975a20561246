#include "assimp/import_files.h"

#include <algorithm>
#include <assimp/IOStream.hpp>
#include <cstring>
#include <filesystem>

#include "report.h"

namespace osg::io {
namespace {

class BytesStream : public Assimp::IOStream {
 public:
  explicit BytesStream(std::shared_ptr<const FileBytes> bytes) : bytes_(std::move(bytes)) {}

  std::size_t Read(void* to, std::size_t size, std::size_t count) override {
    if (size == 0) return 0;
    const std::size_t whole = std::min(count, (bytes_->size - at_) / size);
    std::memcpy(to, bytes_->data.get() + at_, whole * size);
    at_ += whole * size;
    return whole;
  }
  std::size_t Write(const void*, std::size_t, std::size_t) override { return 0; }
  aiReturn Seek(std::size_t offset, aiOrigin origin) override {
    const std::size_t from = origin == aiOrigin_SET   ? 0
                             : origin == aiOrigin_CUR ? at_
                                                      : bytes_->size;
    const std::size_t to = from + offset;  // wraps for an offset that was negative
    if (to > bytes_->size) return aiReturn_FAILURE;
    at_ = to;
    return aiReturn_SUCCESS;
  }
  std::size_t Tell() const override { return at_; }
  std::size_t FileSize() const override { return bytes_->size; }
  void Flush() override {}

 private:
  std::shared_ptr<const FileBytes> bytes_;
  std::size_t at_ = 0;
};

std::string plain_path(const char* file) {
  std::string path(file);
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

}  // namespace

ImportFiles::ImportFiles(std::string main_file, FileBytes main_bytes)
    : main_file_(std::move(main_file)),
      main_(std::make_shared<FileBytes>(std::move(main_bytes))),
      total_bytes_(main_->size) {}

bool ImportFiles::Exists(const char* file) const {
  std::error_code ignored;
  return file == main_file_ || std::filesystem::is_regular_file(plain_path(file), ignored);
}

Assimp::IOStream* ImportFiles::Open(const char* file, const char* mode) {
  if (mode[0] != 'r') return nullptr;
  if (file == main_file_) return new BytesStream(main_);
  const std::string path = plain_path(file);
  try {
    auto bytes = std::make_shared<FileBytes>(read_file(path, ""));
    total_bytes_ += bytes->size;
    return new BytesStream(std::move(bytes));
  } catch (const ReadError&) {
    if (std::find(missing_.begin(), missing_.end(), path) == missing_.end())
      missing_.push_back(path);
    return nullptr;
  }
}

void ImportFiles::Close(Assimp::IOStream* stream) {
  delete stream;
}

}  // namespace osg::io
