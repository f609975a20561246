#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace osg::io {

/// A member of the document's root object.
struct JsonSection {
  std::string_view name;
  std::size_t begin = 0;  // of the value, in the text
  std::size_t end = 0;
  std::size_t entries = 0;  // of an array or object
};

/// What a glTF document looks like from outside: found in one pass over the text that builds
/// nothing, before any parser gets to see it.
struct JsonOutline {
  std::string_view text;
  std::vector<JsonSection> sections;

  /// The last of that name, which is what a parser takes; null if there is none.
  const JsonSection* find(std::string_view name) const;
  /// The text of that section; empty if there is none.
  std::string_view text_of(std::string_view name) const;
  std::size_t entries_of(std::string_view name) const;
};

/// Outlines the text and checks, with the exact place, that values nest no deeper than 64 and that
/// members which this library relies on have the type that glTF gives them: a parser that passes
/// over a member of a wrong type would lose data without a word. Syntax beyond brackets and strings
/// is left to the parser. Throws `ReadError`.
JsonOutline outline_gltf(std::string_view text);

}  // namespace osg::io
