#pragma once

#include <string_view>

namespace osg::io {

/// Importers of text formats call themselves once a level, until the stack is used up. Throws
/// `ReadError` with the place where levels are more than any scene has that can be read. For
/// suffixes of other formats: nothing. O(text).
void check_nesting(std::string_view suffix, std::string_view text);

}  // namespace osg::io
