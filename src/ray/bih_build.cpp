// Builds bounding interval hierarchies.
//
// After C. Waechter, A. Keller, "Instant ray tracing: the bounding interval hierarchy" (2006):
// no cost function and no sorting, one in-place partition a node. Two things are ours: an element's
// own centre decides its side, and the clip planes are widened by one percent of the cell, so that
// rounding in a walk never cuts an element off.

#include "ray/bih_build.h"

#include "ray/bih_partition.h"
#include "ray/stream_trace.h"

namespace morlu {

namespace {

bih_cut cut_run(bih_record* run, std::uint32_t count, const bounding_box& box, int axis,
                float mid) {
#ifdef MORLU_VECTOR_UNITS
  static const bool has_avx2 = widest_unit() >= vector_unit::avx2;
  if (has_avx2) return avx2::partition(run, count, box.min[axis], box.max[axis], axis, mid);
#endif
  return partition_run<two_registers>(run, count, box.min[axis], box.max[axis], axis, mid);
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
  const bih_cut at = cut_run(records_.get() + start, count, box, axis, mid);

  const float widening = (box.max[axis] - box.min[axis]) * 0.01f;
  tree_.nodes[node].axis = static_cast<std::int16_t>(axis);
  tree_.nodes[node].empty =
      static_cast<std::uint16_t>((at.left_count == 0 ? 1 : 0) | (at.left_count == count ? 2 : 0));
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
  leaf.empty = 0;
  leaf.right_child = -1;
  leaf.leaf_start = static_cast<std::int32_t>(start);
  leaf.leaf_count = static_cast<std::int32_t>(count);
  if (count > tree_.stats.max_leaf_size) tree_.stats.max_leaf_size = count;
  ++tree_.stats.leaves;
}

}  // namespace morlu
