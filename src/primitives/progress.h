#pragma once

#include <cstddef>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace morlu {

/// Writes the share of the work that is done before item `index`, over what the line says. The
/// stream's own settings stay.
inline void printShareDone(std::size_t index, std::size_t count) {
  std::ostringstream text;
  text << std::setprecision(4) << static_cast<double>(index) / static_cast<double>(count) * 100.0;
  std::cout << '\r' << text.str() << "% " << std::flush;
}

}  // namespace morlu
