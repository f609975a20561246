#include "assimp/nesting.h"

#include <algorithm>
#include <string>

#include "report.h"

namespace osg::io {
namespace {

constexpr int kMaxLevels = 4096;  // nodes may lie 1024 deep, and few elements stand between two

constexpr std::string_view kXml[] = {"dae", "x3d", "amf", "irr", "irrmesh", "xgl"};
constexpr std::string_view kBraces[] = {"x", "ase", "ask", "ogex"};

/// Counts levels. What closes more than was open doesn't count.
class Levels {
 public:
  void open(std::size_t at) {
    if (++levels_ > kMaxLevels)
      throw ReadError{"byte " + std::to_string(at),
                      "lies deeper than " + std::to_string(kMaxLevels) + " levels"};
  }
  void close() { levels_ = std::max(levels_ - 1, 0); }

 private:
  int levels_ = 0;
};

/// Behind the `end` that comes next.
std::size_t behind(std::string_view text, std::string_view end, std::size_t at) {
  const std::size_t found = text.find(end, at);
  return found == text.npos ? text.size() : found + end.size();
}

/// Where the tag ends that begins before `at`; a ">" may stand in quotes.
std::size_t end_of_tag(std::string_view text, std::size_t at) {
  while ((at = text.find_first_of("\"'>", at)) != text.npos && text[at] != '>')
    at = behind(text, text.substr(at, 1), at + 1);
  return std::min(at, text.size());
}

void check_xml(std::string_view text) {
  Levels levels;
  for (std::size_t at = text.find('<'); at < text.size(); at = text.find('<', at)) {
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("<!--")) {
      at = behind(text, "-->", at);
    } else if (rest.starts_with("<![CDATA[")) {
      at = behind(text, "]]>", at);
    } else {
      const std::size_t begin = at;
      at = end_of_tag(text, at);
      if (rest.starts_with("</"))
        levels.close();
      else if (!rest.starts_with("<!") && !rest.starts_with("<?") && text[at - 1] != '/')
        levels.open(begin);
    }
  }
}

void check_braces(std::string_view text) {
  Levels levels;
  for (std::size_t at = 0; (at = text.find_first_of("\"{}", at)) != text.npos; ++at) {
    if (text[at] == '{') levels.open(at);
    if (text[at] == '}') levels.close();
    if (text[at] == '"') at = std::min(text.find('"', at + 1), text.size() - 1);
  }
}

}  // namespace

void check_nesting(std::string_view suffix, std::string_view text) {
  const auto is_one_of = [&](const auto& suffixes) {
    return std::find(std::begin(suffixes), std::end(suffixes), suffix) != std::end(suffixes);
  };
  if (is_one_of(kXml)) check_xml(text);
  const bool is_binary =
      suffix == "x" && !text.starts_with("xof 0303txt") && !text.starts_with("xof 0302txt");
  if (is_one_of(kBraces) && !is_binary) check_braces(text);
}

}  // namespace osg::io
