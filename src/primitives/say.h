#pragma once

#include <iostream>
#include <string_view>

namespace morlu::osg {

/// Writes a text to the standard output at once and as it stands, whatever width or base the stream
/// is set to.
inline void say(std::string_view text) {
  std::cout.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
}

}  // namespace morlu::osg
