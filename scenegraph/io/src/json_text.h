#pragma once

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>

#include "attribute_json.h"

namespace osg::io {

/// Writes JSON text front to back. Floats take the shortest text that reads back as the same float;
/// they have to be finite.
class JsonText {
 public:
  JsonText& begin_object() { return open('{'); }
  JsonText& end_object() { return close('}'); }
  JsonText& begin_array() { return open('['); }
  JsonText& end_array() { return close(']'); }
  JsonText& key(std::string_view name) {
    raw(json_string(name));
    text_ += ':';
    comma_ = false;
    return *this;
  }
  JsonText& string(std::string_view value) { return raw(json_string(value)); }
  template <class Number>
  requires std::integral<Number> || std::floating_point<Number> JsonText& number(Number value) {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    const std::string_view text(digits, static_cast<std::size_t>(end - digits));
    return raw(text == "-0" ? "-0.0" : text);  // without a point it would be the integer 0
  }
  /// Text that is JSON already.
  JsonText& raw(std::string_view json) {
    separate();
    text_ += json;
    comma_ = true;
    return *this;
  }
  /// A member with a number.
  template <class Number>
  JsonText& member(std::string_view name, Number value) {
    return key(name).number(value);
  }
  template <class Range>
  JsonText& numbers(const Range& values) {
    begin_array();
    for (const auto& value : values) number(value);
    return end_array();
  }

  const std::string& text() const { return text_; }

 private:
  void separate() {
    if (comma_) text_ += depth_ <= 2 ? ",\n" : ",";  // a line for each entry of the sections
  }
  JsonText& open(char bracket) {
    separate();
    text_ += bracket;
    comma_ = false;
    ++depth_;
    return *this;
  }
  JsonText& close(char bracket) {
    text_ += bracket;
    comma_ = true;
    --depth_;
    return *this;
  }

  std::string text_;
  int depth_ = 0;
  bool comma_ = false;
};

}  // namespace osg::io
