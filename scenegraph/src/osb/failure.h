#pragma once

#include <optional>
#include <string>

#include "osg/base_types.h"

namespace osg::osb {

/// Thrown inside reader and writer, caught where they begin.
struct Failure {
  std::string reason;
  std::optional<UInt64> offset = {};  // byte of the file that it is about
};

/// "scene.osb: byte 12: the reason"
inline std::string message_of(const Failure& failure, std::string_view file) {
  std::string text(file);
  if (failure.offset) text += ": byte " + std::to_string(*failure.offset);
  return text + ": " + failure.reason;
}

}  // namespace osg::osb
