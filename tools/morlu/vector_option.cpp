#include "vector_option.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>

namespace morlu::program {
namespace {

/// The number that stands between blanks, if there is nothing else.
std::optional<double> to_number(std::string_view text) {
  constexpr const char* blanks = " \t";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return std::nullopt;
  text = text.substr(first, text.find_last_not_of(blanks) - first + 1);
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  // A NaN is in no range.
  if (!(std::fabs(value) <= double{std::numeric_limits<float>::max()})) return std::nullopt;
  return value;
}

std::optional<::osg::Vec3d> to_vector(std::string_view text) {
  ::osg::Vec3d vector;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const auto comma = axis < 2 ? text.find(',') : text.size();
    if (comma == std::string_view::npos) return std::nullopt;
    const auto value = to_number(text.substr(0, comma));
    if (!value) return std::nullopt;
    vector[axis] = *value;
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return vector;
}

}  // namespace

CLI::Option* add_vector_option(CLI::App& command, const std::string& name, ::osg::Vec3d& vector,
                               const std::string& help) {
  const auto take = [name, &vector](const std::string& text) {
    const auto value = to_vector(text);
    if (!value)
      throw CLI::ValidationError(name, "'" + text + "' is not three numbers such as 1,-2.5,3");
    vector = *value;
  };
  return command.add_option_function<std::string>(name, take, help)->type_name("X,Y,Z");
}

}  // namespace morlu::program
