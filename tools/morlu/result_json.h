#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace morlu::program {

/// Of what the commands print; it grows when a key changes its meaning or goes.
constexpr int json_schema = 1;

/// The number as the nearest float, told in as few digits as that takes.
nlohmann::ordered_json short_number(double value);

/// Three such numbers.
template <class Tuple>
nlohmann::ordered_json short_numbers(const Tuple& tuple) {
  return {short_number(tuple[0]), short_number(tuple[1]), short_number(tuple[2])};
}

// Indented, with a line end; bytes of names that are no UTF-8 are replaced.

/// On standard output.
void print_json(const nlohmann::ordered_json& json);
/// Into a file. Throws `Failure` if it can't be written.
void write_json(const nlohmann::ordered_json& json, const std::string& file);

}  // namespace morlu::program
