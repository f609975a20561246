#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include <osg/vector.h>

namespace morlu::program {

/// Gives `command` an option whose value is three numbers, as "1,-2.5,3e4", each in the range of
/// floats. Anything else is an error of the command line that names the option.
CLI::Option* add_vector_option(CLI::App& command, const std::string& name, ::osg::Vec3d& vector,
                               const std::string& help);

}  // namespace morlu::program
