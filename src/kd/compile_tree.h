#pragma once

#include "kd/kd_tree.h"

namespace morlu {

/// Puts the plane where both sides get about as many elements and few stand on both.
struct kd_strategy_ObjMedian;
/// Puts the plane where a ray is expected to meet the fewest elements, or makes a leaf.
struct kd_strategy_SurfaceArea;

/// Compiles the tree over all elements of a set, in place of what `tree` held. The set gets its box
/// computed and, with strategy 1, the pieces of what is cut. Equal input gives equal trees. Throws
/// `std::bad_alloc` or `std::length_error`; the tree then has no arrays.
///
/// Over `osg_geoset`, `osg_line_geoset` and `osg_point_geoset` with `kd_strategy_ObjMedian`, over
/// `osg_geoset` with `kd_strategy_SurfaceArea`. Include kd/build.h for sets of another type.
template <class Set, class Strategy>
void compile_tree(Set& set, kd_tree& tree, const kd_build_setup& setup, Strategy strategy);

}  // namespace morlu
