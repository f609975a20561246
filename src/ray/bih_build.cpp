// Builds bounding interval hierarchies.
//
// After C. Waechter, A. Keller, "Instant ray tracing: the bounding interval hierarchy" (2006):
// no cost function and no sorting, one in-place partition a node. Two things are ours: an element's
// own centre decides its side, and the clip planes are widened by one percent of the cell, so that
// rounding in a walk never cuts an element off.

#include "ray/bih_build.h"

#include <bit>
#include <cstring>

namespace morlu {

namespace {

/// The longest axis; of equal ones the last.
int longest_axis(const bounding_box& box) {
  const float x = box.size[0], y = box.size[1], z = box.size[2];
  if (x > y) return x > z ? 0 : 2;
  return y > z ? 1 : 2;
}

/// Exchanges two records if `wanted`, without a branch: partitions of a scene's triangles are as
/// good as random to a branch predictor.
template <class Record>
void exchange_if(bool wanted, Record& a, Record& b) {
  struct words {
    std::uint64_t value[sizeof(Record) / 8];
  };
  const std::uint64_t mask = std::uint64_t{0} - std::uint64_t{wanted};
  auto first = std::bit_cast<words>(a);
  auto second = std::bit_cast<words>(b);
  for (std::size_t i = 0; i < sizeof(Record) / 8; ++i) {
    const std::uint64_t difference = (first.value[i] ^ second.value[i]) & mask;
    first.value[i] ^= difference;
    second.value[i] ^= difference;
  }
  a = std::bit_cast<Record>(first);
  b = std::bit_cast<Record>(second);
}

}  // namespace

/// Splits the cell `box` of the node that was taken last and goes on with both sides. The right
/// side's node comes after the whole left subtree.
void bih_builder::split(std::uint64_t node, std::uint32_t start, std::uint32_t count,
                        const bounding_box& box, std::uint32_t depth) {
  tree_.ensure_node(node);
  if (depth > tree_.stats.max_depth) tree_.stats.max_depth = depth;
  const int axis = longest_axis(box);
  const float mid = box.size[axis] * 0.5f + box.min[axis];
  const cut at = partition(start, count, box, axis, mid);

  const float widening = (box.max[axis] - box.min[axis]) * 0.01f;
  tree_.nodes[node].axis = axis;
  tree_.nodes[node].left_plane = at.left_plane + widening;
  tree_.nodes[node].right_plane = at.right_plane - widening;

  bounding_box side = box;
  side.max[axis] = mid;
  side.update_size();
  make_side(start, at.left_count, side, depth);

  side = box;
  side.min[axis] = mid;
  side.update_size();
  tree_.nodes[node].right_child = static_cast<std::int32_t>(tree_.stats.nodes + 1);
  make_side(start + at.left_count, count - at.left_count, side, depth);
}

bih_builder::cut bih_builder::partition(std::uint32_t start, std::uint32_t count,
                                        const bounding_box& box, int axis, float mid) {
  record* const run = records_.get() + start;
  float left_plane = box.min[axis];
  float right_plane = box.max[axis];
  std::uint32_t write = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const float low = run[i].low[axis];
    const float high = run[i].high[axis];
    const float centre = (high - low) * 0.5f + low;
    const bool left = mid > centre;
    const float reach_up = left ? high : left_plane;
    const float reach_down = left ? right_plane : low;
    left_plane = reach_up > left_plane ? reach_up : left_plane;
    right_plane = reach_down < right_plane ? reach_down : right_plane;
    exchange_if(left, run[i], run[write]);
    write += left;
  }
  return {write, left_plane, right_plane};
}

void bih_builder::make_side(std::uint32_t start, std::uint32_t count, const bounding_box& box,
                            std::uint32_t depth) {
  const std::uint64_t node = ++tree_.stats.nodes;
  if (count > setup_.max_leaf_size && depth < setup_.max_depth)
    split(node, start, count, box, depth + 1);
  else
    write_leaf(node, start, count);
}

void bih_builder::write_leaf(std::uint64_t node, std::uint32_t start, std::uint32_t count) {
  tree_.ensure_node(node);
  bih_node& leaf = tree_.nodes[node];
  leaf.axis = -1;
  leaf.right_child = -1;
  leaf.leaf_start = static_cast<std::int32_t>(start);
  leaf.leaf_count = static_cast<std::int32_t>(count);
  if (count > tree_.stats.max_leaf_size) tree_.stats.max_leaf_size = count;
  ++tree_.stats.leaves;
}

}  // namespace morlu
