#pragma once

#include "kd/kd_tree.h"

namespace morlu {

/// Parts the leaves of more than `limit` elements, which no plane of the strategy has parted, at
/// the middle of their elements by the centre along the longest axis, equal ones by number.
/// Afterwards none has more, and nodes with an empty side are gone. For sets of each kind. `limit`
/// is at least 1, and no element stands in the tree twice. O(nodes + entries log entries).
/// `std::bad_alloc` leaves the tree with its nodes as they were.
template <class Set>
void part_large_leaves(kd_tree& tree, const Set& set, unsigned limit);

}  // namespace morlu
