#include "osb/files.h"

#include <cerrno>
#include <system_error>

namespace osg::osb {
namespace {

namespace fs = std::filesystem;

std::string system_message(int code) {
  return std::generic_category().message(code);
}

[[noreturn]] void fail_by_system(const char* action, int code) {
  throw Failure{std::string(action) + ": " + system_message(code)};
}

/// Size of a regular file. Pipes, devices and folders have none to rely on.
UInt64 size_of(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) throw Failure{error ? error.message() : "there is no such file"};
  if (!fs::is_regular_file(status)) throw Failure{"this is not a regular file"};
  const auto size = fs::file_size(path, error);
  if (error) throw Failure{error.message()};
  return size;
}

}  // namespace

// --- Reading -------------------------------------------------------------------------------------

FileSource::FileSource(const std::string& path)
    : ByteSource({}, size_of(path)), file_(std::fopen(path.c_str(), "rb")), buffer_(256 * 1024) {
  if (!file_) fail_by_system("it can't be opened", errno);
  std::setvbuf(file_.get(), nullptr, _IONBF, 0);
}

void FileSource::read_at(UInt64 offset, std::byte* to, std::size_t count) {
  if (offset != file_offset_ && fseeko(file_.get(), static_cast<off_t>(offset), SEEK_SET) != 0) {
    throw Failure{"it can't be read: " + system_message(errno), offset};
  }
  errno = 0;
  const std::size_t got = std::fread(to, 1, count, file_.get());
  file_offset_ = offset + got;
  if (got == count) return;
  throw Failure{errno ? "it can't be read: " + system_message(errno)
                      : "the file became shorter while it was read",
                file_offset_};
}

// --- Writing -------------------------------------------------------------------------------------

FileSink::FileSink(const std::string& path) : target_(path) {
  std::error_code error;
  const fs::file_status status = fs::status(target_, error);
  if (fs::exists(status)) {
    if (!fs::is_regular_file(status)) throw Failure{"something else than a file stands there"};
    // A link stays, and what it leads to is replaced.
    if (fs::path real = fs::canonical(target_, error); !error) target_ = std::move(real);
  }
  open_beside_target();
  std::setvbuf(file_.get(), nullptr, _IONBF, 0);
  if (fs::exists(status)) fs::permissions(temporary_, status.permissions(), error);
}

void FileSink::open_beside_target() {
  constexpr int most_tries = 1000;  // names that others hold, or left behind when they died
  for (int i = 0; i < most_tries; ++i) {
    const fs::path candidate =
        target_.parent_path() / (".unfinished-" + std::to_string(i) + ".osb");
    file_.reset(std::fopen(candidate.c_str(), "wbx"));
    if (file_) {
      temporary_ = candidate;
      return;
    }
    if (errno != EEXIST) break;
  }
  fail_by_system("nothing can be written to its folder", errno);
}

void FileSink::pass_on(const std::byte* from, std::size_t count) {
  errno = 0;
  if (std::fwrite(from, 1, count, file_.get()) != count)
    fail_by_system("it can't be written", errno);
}

void FileSink::finish() {
  flush();
  if (std::fclose(file_.release()) != 0) fail_by_system("it can't be written", errno);
  std::error_code error;
  fs::rename(temporary_, target_, error);
  if (error) throw Failure{"it can't be put in place: " + error.message()};
  temporary_.clear();
}

FileSink::~FileSink() {
  file_.reset();
  std::error_code ignored;
  if (!temporary_.empty()) fs::remove(temporary_, ignored);
}

}  // namespace osg::osb
