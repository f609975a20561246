#pragma once

#include <charconv>
#include <initializer_list>
#include <string>

namespace morlu::osg {

/// Numbers with single blanks between, each as a stream in its default state writes it, whatever
/// the locale: six significant digits at most.
inline std::string number_text(std::initializer_list<double> numbers) {
  std::string text;
  for (const double number : numbers) {
    char digits[32];  // "-1.17549e-308" is the longest
    const auto end =
        std::to_chars(digits, digits + sizeof digits, number, std::chars_format::general, 6).ptr;
    if (!text.empty()) text += ' ';
    text.append(digits, end);
  }
  return text;
}

template <class Point>
std::string point_text(const Point& point) {
  return number_text({point[0], point[1], point[2]});
}

}  // namespace morlu::osg
