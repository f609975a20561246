#pragma once

#include <array>
#include <compare>
#include <cstdint>

#include "sample/sweep.h"

namespace morlu::sample {

/// The kinds of part, and what their sizes mean.
enum class Kind : std::uint8_t {
  Box,      // x, y, z; stands on z = 0, centred in x and y
  Beam,     // height, width, thickness: an I profile of 1 m along y, centred
  Channel,  // width, height, thickness: a U profile of 1 m along y, open at the top
  Angle,    // leg, thickness: an L profile of 1 m along y
  Rod,      // radius: 1 m along z
  Pipe,     // radius, wall: 1 m along z
  Flange,   // bore, radius, thickness: along z
  Elbow,    // radius, bend radius: from (bend, 0, 0) towards y, to (0, bend, 0) towards -x
  Reducer,  // radius, other radius, length: along z
  Bolt,     // diameter, length: head on z = 0, shank below
  Nut,      // diameter: on z = 0
  Tank,     // radius, height of the shell, height of the domes: shell from z = 0
  Valve,    // radius, length: along z, bonnet towards x
  Wheel,    // radius: around z
  Motor,    // radius, length: along z, with cooling fins
  Pump,     // radius: casing around z, outlet towards x
};

/// A part's form, told exactly: sizes in whole millimetres.
struct Shape {
  Kind kind;
  std::array<int, 3> millimetres{};

  auto operator<=>(const Shape&) const = default;
};

/// The closed surface of the shape, in metres; finer segments for larger radii.
Mesh make_mesh(const Shape& shape);

}  // namespace morlu::sample
