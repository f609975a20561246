#include "ray/placed_graph.h"

#include <osg/geometry.h>

#include <cmath>

namespace morlu::osg {

namespace {

/// Matrices are products of single precision, and collisions carry corners by one more such product
/// and an inverse. What that may shift a point by, in shares of how far its parts lie from the
/// origin; good for matrices whose columns are not too far from standing upright on each other.
constexpr float rounding = 128 * 0x1p-24f;
constexpr double least_upright = 0.1;  // 1: right angles; 0: in one plane

axis_box box_in_world(const axis_box& box, const ::osg::Matrix& world) {
  axis_box result;
  for (unsigned k = 0; k < 3; ++k) {
    float centre = world[12 + k], half = 0, reach = std::fabs(world[12 + k]);
    for (unsigned j = 0; j < 3; ++j) {
      const float c = box.min[j] * 0.5f + box.max[j] * 0.5f;
      const float h = box.max[j] * 0.5f - box.min[j] * 0.5f;
      const float scale = world[4 * j + k];
      centre += scale * c;
      half += std::fabs(scale) * h;
      reach += std::fabs(scale) * (std::fabs(c) + h);
    }
    half += rounding * reach;
    result.min[k] = centre - half;
    result.max[k] = centre + half;
  }
  return result;
}

bool has_good_inverse(const ::osg::Matrix& m) {
  if (!(m[3] == 0 && m[7] == 0 && m[11] == 0 && m[15] == 1)) return false;
  double column[3][3], length = 1;
  for (unsigned j = 0; j < 3; ++j) {
    double square = 0;
    for (unsigned k = 0; k < 3; ++k) {
      column[j][k] = m[4 * j + k];
      square += column[j][k] * column[j][k];
    }
    length *= std::sqrt(square);
  }
  const auto& [a, b, c] = column;
  const double volume =
      std::fabs(a[0] * (b[1] * c[2] - b[2] * c[1]) + a[1] * (b[2] * c[0] - b[0] * c[2]) +
                a[2] * (b[0] * c[1] - b[1] * c[0]));
  constexpr double far_from_none = 1e-29;  // below 1e-30 an inverse is the identity
  return volume > far_from_none && volume >= least_upright * length;
}

}  // namespace

placed_graph::placed_graph(const ::osg::NodePtr& root) {
  const auto parent = root->getParent();
  add(root, parent ? parent->getToWorld() : ::osg::Matrix());
  nodes_.front().world = root->getToWorld();  // times an identity, infinities would be NaN
}

void placed_graph::add(const ::osg::NodePtr& node, const ::osg::Matrix& parent) {
  const ::osg::NodeCorePtr& core = node->getCore();
  const auto* own = core ? core->getLocalMatrix() : nullptr;
  placed& added = nodes_.emplace_back();
  added.node = &node;
  added.world = own ? parent * *own : parent;
  added.box = box_in_world(stored_volume(node), parent);
  added.is_geometry = core && core->getType() == ::osg::Geometry::getClassType();
}

void placed_graph::open(std::uint32_t number) {
  if (nodes_[number].is_open) return;
  const ::osg::Node& node = **nodes_[number].node;
  const ::osg::Matrix world = nodes_[number].world;
  nodes_[number].is_open = true;
  nodes_[number].first_child = static_cast<std::uint32_t>(nodes_.size());
  nodes_[number].child_count = node.getNChildren();
  for (const ::osg::NodePtr& child : node.getChildren()) add(child, world);
}

axis_box reach_of(const placed_graph::placed& first) {
  return has_good_inverse(first.world) ? first.box : everywhere();
}

}  // namespace morlu::osg
