#include "scratch_folder.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "cli.h"

namespace morlu::program {
namespace {

namespace fs = std::filesystem;

/// Where the system wants them, else beside what is worked on.
std::string folder_pattern() {
  std::error_code error;
  const fs::path folder = fs::temp_directory_path(error);
  return (error ? fs::path(".") : folder) / "morlu-XXXXXX";
}

}  // namespace

ScratchFolder::ScratchFolder() : before_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  std::string name = folder_pattern();
  const bool is_made = before_ >= 0 && mkdtemp(name.data());
  std::error_code error;
  if (is_made) folder_ = fs::absolute(name, error);
  if (is_made && !error && chdir(folder_.c_str()) == 0) return;
  const std::string reason = std::strerror(errno);
  if (is_made) rmdir(name.c_str());
  if (before_ >= 0) close(before_);
  throw Failure(work_failed, "no temporary folder can be made as " + name + ": " + reason);
}

ScratchFolder::~ScratchFolder() {
  // Whoever writes by a relative name would say that it can't be written, if this failed.
  const bool is_back = fchdir(before_) == 0;
  close(before_);
  std::error_code ignored;
  if (is_back) fs::remove_all(folder_, ignored);
}

}  // namespace morlu::program
