#include "out_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

namespace osg::io {
namespace {

struct Close {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

[[noreturn]] void fail(const std::string& file, const char* what) {
  throw WriteError{"'" + file + "'", std::string(what) + ": " + std::strerror(errno)};
}

}  // namespace

OutFiles::~OutFiles() {
  std::error_code ignored;
  for (const std::string& file : files_) std::filesystem::remove(file, ignored);
}

void OutFiles::write(const std::string& file, const std::vector<ByteSpan>& pieces) {
  std::unique_ptr<std::FILE, Close> out(std::fopen(file.c_str(), "wb"));
  if (!out) fail(file, "can't be opened for writing");
  // A device is not ours to remove.
  if (std::filesystem::is_regular_file(file)) files_.push_back(file);
  for (const ByteSpan piece : pieces)
    if (!piece.empty() && std::fwrite(piece.data(), 1, piece.size(), out.get()) != piece.size())
      fail(file, "can't be written");
  if (std::fclose(out.release()) != 0) fail(file, "can't be written");
}

}  // namespace osg::io
