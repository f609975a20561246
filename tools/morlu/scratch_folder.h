#pragma once

#include <filesystem>

namespace morlu::program {

/// The working directory is an empty folder of its own while this lives, for work that leaves files
/// there which nobody asked for. They are gone in the end. For programs of one thread.
class ScratchFolder {
 public:
  /// Throws `Failure` with the reason if there is none to be had.
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

 private:
  const int before_;  // the former one, held open: its name may lead elsewhere by then
  std::filesystem::path folder_;
};

}  // namespace morlu::program
