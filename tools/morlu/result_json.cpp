#include "result_json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <iostream>
#include <limits>

namespace morlu::program {

using nlohmann::ordered_json;

ordered_json short_number(double value) {
  if (std::fabs(value) > static_cast<double>(std::numeric_limits<float>::max())) return value;
  std::array<char, 32> text;
  const auto end = std::to_chars(text.begin(), text.end(), static_cast<float>(value)).ptr;
  double shortest = 0.0;
  std::from_chars(text.begin(), end, shortest);
  return shortest;
}

std::string json_text(const ordered_json& json) {
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

void print_json(const ordered_json& json) {
  std::cout << json_text(json);
}

}  // namespace morlu::program
