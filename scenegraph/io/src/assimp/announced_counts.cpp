#include "assimp/announced_counts.h"

#include <algorithm>
#include <string>

#include "osg/base_types.h"
#include "report.h"

namespace osg::io {
namespace {

/// A word at the start of a line that counts follow.
struct Announcement {
  std::string_view suffix;
  std::string_view keyword;
  int counts;                 // how many follow
  bool named = false;         // a name stands between
  std::string_view end = {};  // where announcements end
};

constexpr Announcement kAnnouncements[] = {
    {"ply", "element", 1, true, "end_header"},
    {"off", "OFF", 3},
    {"off", "COFF", 3},
    {"off", "NOFF", 3},
    {"ase", "*MESH_NUM", 1, true},  // the rest of the keyword is the name
    {"ask", "*MESH_NUM", 1, true},
    {"ac", "numvert", 1},
    {"ac", "numsurf", 1},
    {"ac", "refs", 1},
    {"md5mesh", "num", 1, true},
};

constexpr std::string_view kBlanks = " \t\r\n";

/// The next word from `at` on, which moves behind it.
std::string_view next_word(std::string_view text, std::size_t& at) {
  const std::size_t begin = std::min(text.find_first_not_of(kBlanks, at), text.size());
  at = std::min(text.find_first_of(kBlanks, begin), text.size());
  return text.substr(begin, at - begin);
}

bool begins_line(std::string_view text, std::size_t at) {
  const std::size_t before = at == 0 ? text.npos : text.find_last_not_of(" \t", at - 1);
  return before == text.npos || text[before] == '\n' || text[before] == '\r';
}

void check_count(std::string_view word, std::string_view keyword, std::size_t size) {
  UInt64 count = 0;
  for (const char c : word.substr(0, 19)) {
    if (c < '0' || c > '9') return;
    count = count * 10 + static_cast<UInt64>(c - '0');
  }
  if (count > size || word.size() > 19)
    throw ReadError{std::string(keyword), "announces " + std::string(word.substr(0, 40)) +
                                              " entries in a file of " + std::to_string(size) +
                                              " bytes"};
}

void check(std::string_view text, const Announcement& announcement) {
  const std::size_t size = text.size();
  if (!announcement.end.empty()) text = text.substr(0, text.find(announcement.end));
  const std::string_view keyword = announcement.keyword;
  for (std::size_t at = text.find(keyword); at != text.npos; at = text.find(keyword, at)) {
    const bool meant = begins_line(text, at);
    at += keyword.size();
    if (!meant) continue;
    std::size_t after = at;
    if (announcement.named) next_word(text, after);
    for (int i = 0; i < announcement.counts; ++i)
      check_count(next_word(text, after), keyword, size);
  }
}

}  // namespace

void check_announced_counts(std::string_view suffix, std::string_view text) {
  for (const Announcement& announcement : kAnnouncements)
    if (suffix == announcement.suffix) check(text, announcement);
}

}  // namespace osg::io
