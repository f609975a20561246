#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace osg::io {

/// A format that is read through assimp, and how far its importer there stays with the file.
struct AssimpFormat {
  const char* name;  // for messages
  std::vector<std::string_view> suffixes;
  bool turns_root = false;  // puts axes and units of its own into the root's transform
};

/// All of them; no suffix stands in two.
///
/// Not among them: glTF, which this library reads itself; formats that hold nothing but motion;
/// dumps of programs' memory, which are not checked when they are read; suffixes that could mean
/// anything.
std::span<const AssimpFormat> assimp_formats();

/// The format of the file's suffix, whatever its case; null if there is none.
const AssimpFormat* assimp_format_of(std::string_view file);

/// The file's suffix in lower case, without the dot.
std::string suffix_of(std::string_view file);

}  // namespace osg::io
