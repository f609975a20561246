#include "picture/box_tree.h"

#include <algorithm>
#include <numeric>

namespace morlu::program {
namespace {

double middle(const Box& box, unsigned axis) {
  return box.min[axis] / 2.0 + box.max[axis] / 2.0;
}

unsigned longest_axis(const Box& box) {
  const ::osg::Vec3d extent = box.max - box.min;
  return static_cast<unsigned>(std::max_element(&extent[0], &extent[0] + 3) - &extent[0]);
}

}  // namespace

BoxTree::BoxTree(std::span<const Box> boxes) {
  std::vector<std::uint32_t> items(boxes.size());
  std::iota(items.begin(), items.end(), 0u);
  if (!items.empty()) build(boxes, items);
}

void BoxTree::build(std::span<const Box> boxes, std::span<std::uint32_t> items) {
  const std::size_t place = nodes_.size();
  Box around = boxes[items[0]];
  for (const std::uint32_t item : items) around = box_around(std::array{around, boxes[item]});
  const unsigned axis = longest_axis(around);
  nodes_.push_back({around, items[0], static_cast<std::uint8_t>(axis), items.size() == 1});
  if (items.size() == 1) return;
  const auto half = items.begin() + static_cast<std::ptrdiff_t>(items.size() / 2);
  std::nth_element(items.begin(), half, items.end(), [&](std::uint32_t a, std::uint32_t b) {
    const double at_a = middle(boxes[a], axis), at_b = middle(boxes[b], axis);
    return at_a < at_b || (at_a == at_b && a < b);
  });
  build(boxes, {items.begin(), half});
  nodes_[place].index = static_cast<std::uint32_t>(nodes_.size());
  build(boxes, {half, items.end()});
}

}  // namespace morlu::program
