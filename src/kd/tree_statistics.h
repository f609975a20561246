#pragma once

#include <cstdint>

#include "kd/kd_tree.h"

namespace morlu {

/// What a compile over `objects` things has made, eight lines to the standard output whatever its
/// state. O(nodes).
void print_tree_statistics(const kd_tree& tree, std::uint64_t objects);

}  // namespace morlu
