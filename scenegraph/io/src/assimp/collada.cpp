#include "assimp/collada.h"

#include <cstring>
#include <string>

namespace osg::io {
namespace {

constexpr std::string_view kLibraries =
    "<library_effects><effect id=\"!effect\"><profile_COMMON><technique sid=\"c\"><lambert/>"
    "</technique></profile_COMMON></effect></library_effects>"
    "<library_materials><material id=\"!none\" name=\"!none\">"
    "<instance_effect url=\"#!effect\"/></material></library_materials>";
constexpr std::string_view kBinding = "<instance_material symbol=\"!none\" target=\"#!none\"/>";

/// Where the content of the next element of that name begins, from `from` on; npos without one.
std::size_t content_of(std::string_view text, std::string_view start, std::size_t from) {
  const std::size_t tag = text.find(start, from);
  const std::size_t end = tag == text.npos ? tag : text.find('>', tag);
  if (end == text.npos || text[end - 1] == '/') return text.npos;
  return end + 1;
}

std::string with_insertions(std::string_view text, std::size_t end) {
  std::string result;
  result.reserve(text.size() + 4096);
  std::size_t done = 0;
  for (;;) {
    const std::size_t binding = content_of(text, "<bind_material", done);
    const std::size_t content =
        binding == text.npos ? binding : content_of(text, "<technique_common", binding);
    if (content == text.npos || content > end) break;
    result.append(text, done, content - done).append(kBinding);
    done = content;
  }
  result.append(text, done, end - done).append(kLibraries).append(text, end);
  return result;
}

}  // namespace

FileBytes with_material_for_none(FileBytes bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data.get()), bytes.size);
  const std::size_t end = text.rfind("</COLLADA>");
  if (end == text.npos) return bytes;
  const std::string changed = with_insertions(text, end);
  FileBytes result;
  result.size = changed.size();
  result.data = std::make_unique_for_overwrite<std::byte[]>(result.size);
  std::memcpy(result.data.get(), changed.data(), result.size);
  return result;
}

}  // namespace osg::io
