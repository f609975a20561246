#pragma once

#include <CLI/CLI.hpp>

namespace morlu::program {

/// Refuses what is no number that `is_good`: "'abc' is no number above 0", where `wanted` tells
/// what the number is to be.
CLI::Validator number_check(const char* wanted, bool (*is_good)(float number));

/// Of a number above 0 and at most 1.
CLI::Validator share_check();

}  // namespace morlu::program
