#pragma once

#include <sys/resource.h>

#include <csignal>

namespace support {

/// While it lives, files of this process end at that many bytes, as on a disk that is almost full.
class ShortFiles {
 public:
  explicit ShortFiles(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit few{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &few);
  }
  ~ShortFiles() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_;
  void (*handler_)(int);
};

}  // namespace support
