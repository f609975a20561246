#pragma once

#include <charconv>
#include <cstddef>
#include <string>

#include "primitives/say.h"

/// The share of the work that is done before item `index`, as a percentage over what the line of
/// the standard output says.
namespace morlu::osg {

inline std::string percentage_text(std::size_t index, std::size_t count, std::chars_format format,
                                   int precision) {
  char digits[32];
  const double percentage = static_cast<double>(index) / static_cast<double>(count) * 100.0;
  const auto end = std::to_chars(digits, digits + sizeof digits, percentage, format, precision).ptr;
  std::string text = "\r";
  text.append(digits, end) += '%';
  return text;
}

/// With four digits.
inline void say_share_done(std::size_t index, std::size_t count) {
  say(percentage_text(index, count, std::chars_format::general, 4) + ' ');
}

/// In whole numbers.
inline void say_percentage(std::size_t index, std::size_t count) {
  say(percentage_text(index, count, std::chars_format::fixed, 0));
}

}  // namespace morlu::osg
