#include "out_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace osg::io {
namespace {

namespace fs = std::filesystem;

struct Close {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, Close>;

[[noreturn]] void fail(const std::string& file, const char* what, int error = errno) {
  throw WriteError{"'" + file + "'", std::string(what) + ": " + std::strerror(error)};
}

/// Opens a new file beside the target. Null, with `errno`, if there can't be one.
FileHandle opened_beside(const fs::path& target, fs::path& written) {
  constexpr int most_tries = 1000;  // names that others hold, or left behind when they died
  for (int i = 0; i < most_tries; ++i) {
    written = target.parent_path() / (".unfinished-" + std::to_string(i));
    written += target.extension();
    if (FileHandle file{std::fopen(written.c_str(), "wbx")}; file || errno != EEXIST) return file;
  }
  return nullptr;
}

}  // namespace

OutFiles::~OutFiles() {
  std::error_code ignored;
  for (const Unfinished& each : files_) fs::remove(each.written, ignored);
}

void OutFiles::write(const std::string& file, const std::vector<ByteSpan>& pieces) {
  std::error_code error;
  const fs::file_status status = fs::status(file, error);
  FileHandle out;
  if (!fs::exists(status) || fs::is_regular_file(status)) {
    fs::path target = file;
    // A link stays, and what it leads to is replaced.
    if (fs::path real = fs::canonical(target, error); !error) target = std::move(real);
    fs::path written;
    out = opened_beside(target, written);
    if (out) files_.push_back({file, written, target});
    if (out && fs::exists(status)) fs::permissions(written, status.permissions(), error);
  } else {
    out.reset(std::fopen(file.c_str(), "wb"));
  }
  if (!out) fail(file, "can't be opened for writing");
  for (const ByteSpan piece : pieces)
    if (!piece.empty() && std::fwrite(piece.data(), 1, piece.size(), out.get()) != piece.size())
      fail(file, "can't be written");
  if (std::fclose(out.release()) != 0) fail(file, "can't be written");
}

void OutFiles::put_in_place() {
  for (const Unfinished& each : files_) {
    std::error_code error;
    fs::rename(each.written, each.target, error);
    if (error) fail(each.file, "can't be put in place", error.value());
  }
  files_.clear();
}

}  // namespace osg::io
