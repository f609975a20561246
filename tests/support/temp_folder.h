#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace support {

/// An empty folder that no other test has, in this process or another; gone with the object. Its
/// name holds a blank, since users' folders do.
class TempFolder : public std::filesystem::path {
 public:
  TempFolder() : path(make()) {}
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(*this, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

 private:
  static std::string make() {
    std::string name = (std::filesystem::temp_directory_path() / "morlu test XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder: " + name);
    return name;
  }
};

}  // namespace support
