#pragma once

#include <cstddef>
#include <string>

namespace osg::io {

/// How the n-th of equal names is told apart, n from 1: "Box", "Box_2", "Box_3". No name stays
/// none.
inline std::string numbered_name(const std::string& name, std::size_t n) {
  return n < 2 || name.empty() ? name : name + "_" + std::to_string(n);
}

}  // namespace osg::io
