#pragma once

#include <random>

#include "osg/geometry.h"

namespace morlu::test {

enum class layout { none, single, multi };

/// A small geometry that leaves little out: all primitive types and an unknown one, odd lengths,
/// lengths past the data, unused data, indices past the properties' ends, absent, empty, short and
/// narrow properties, ORed and missing mapping flags, equal values at several entries, -0.0.
///
/// Positions are few, so that triangles meet, coincide and degenerate. The same state of `random`
/// gives the same geometry everywhere.
::osg::GeometryPtr random_geometry(std::mt19937& random, layout kind);

}  // namespace morlu::test
