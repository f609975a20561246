#pragma once

#include <string>

#include "picture/picture.h"

namespace morlu::program {

/// Throws `Failure` if no PNG can be written under that name: before the work, not after.
void expect_png_file(const std::string& file);
/// Writes the picture. Throws `Failure`, with no file left behind, if that isn't possible.
void write_png(const Picture& picture, const std::string& file);

}  // namespace morlu::program
