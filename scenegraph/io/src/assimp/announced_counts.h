#pragma once

#include <string_view>

namespace osg::io {

/// Text formats announce how many vertices or faces follow, and importers take memory for as many
/// before they read the first. A count beyond the bytes of the file can't be meant: throws
/// `ReadError` with the place and the count. For suffixes whose formats don't announce: nothing.
void check_announced_counts(std::string_view suffix, std::string_view text);

}  // namespace osg::io
