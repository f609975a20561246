#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace morlu::program {

// Both are made from the program's own table of options, so that they can't fall behind it.

/// The manual page in troff, for section 1.
std::string manual_page(const CLI::App& program, const std::string& version);
/// What bash needs to complete subcommands, options and file names.
std::string bash_completion(const CLI::App& program);

}  // namespace morlu::program
