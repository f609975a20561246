#pragma once

#include <filesystem>
#include <string>

namespace morlu::bench {

/// A path in the system's temporary folder; removes the file in the end.
class temporary_file {
 public:
  explicit temporary_file(const std::string& name)
      : path_(std::filesystem::temp_directory_path() / ("morlu_bench_" + name)) {}
  temporary_file(const temporary_file&) = delete;
  temporary_file& operator=(const temporary_file&) = delete;
  ~temporary_file() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace morlu::bench
