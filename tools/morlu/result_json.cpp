#include "result_json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iostream>
#include <limits>

#include "cli.h"

namespace morlu::program {

using nlohmann::ordered_json;

namespace {

std::string text_of(const ordered_json& json) {
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace

ordered_json short_number(double value) {
  if (std::fabs(value) > static_cast<double>(std::numeric_limits<float>::max())) return value;
  std::array<char, 32> text;
  const auto end = std::to_chars(text.begin(), text.end(), static_cast<float>(value)).ptr;
  double shortest = 0.0;
  std::from_chars(text.begin(), end, shortest);
  return shortest;
}

void print_json(const ordered_json& json) {
  std::cout << text_of(json);
}

void write_json(const ordered_json& json, const std::string& file) {
  std::ofstream out(file, std::ios::binary);
  out << text_of(json) << std::flush;
  if (!out) throw Failure(unwritable_output, file + ": cannot be written");
}

}  // namespace morlu::program
