// Smooth groups at one point: sums over all faces within an angle of each face.
//
// Where few faces meet, each pair is compared. Where many meet (the tip of a finely divided cone,
// a point on which a whole fan turns), a tree over the unit normals answers: a node whose box lies
// within the angle adds its sum, one whose box lies outside is passed over. This is range search in
// a kd tree (J. L. Bentley, 1975) with ready sums, with a ball of directions as the range.

#include "crease_normals.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numbers>

namespace osg::detail {

namespace {

constexpr std::size_t kPairwise = 64;    // faces up to which comparing all pairs is quicker
constexpr double kRounding = 1e-15;      // of the product of two unit normals
constexpr double kMargin = 1e-14;        // about nodes that leave no doubt, in squared distances
constexpr double kSameDirection = 1e-9;  // far below what float positions can tell apart
constexpr UInt32 kNone = ~UInt32{0};

double lowest_cosine(double crease_angle) {
  if (!(crease_angle > 0)) return 1 - kRounding;
  if (crease_angle >= std::numbers::pi) return -2;  // any
  return std::cos(crease_angle) - kRounding;
}

/// In the order of the faces, which is that of the triangles.
void smooth_pairwise(std::span<const Face> faces, double cosine, std::span<Vec3f> out) {
  for (std::size_t i = 0; i < faces.size(); ++i) {
    Face sum;
    for (std::size_t j = 0; j < faces.size(); ++j)
      if (i == j || faces[i].dot(faces[j]) >= cosine * faces[i].length * faces[j].length)
        sum += faces[j];
    out[i] = direction_of(sum);
  }
}

class DirectionTree {
 public:
  explicit DirectionTree(std::span<const Face> faces) : faces_(faces) {
    order_.resize(faces.size());
    units_.reserve(faces.size());
    for (UInt32 i = 0; i < faces.size(); ++i) {
      const Face& face = faces[i];
      order_[i] = i;
      units_.push_back({face.x / face.length, face.y / face.length, face.z / face.length});
    }
    nodes_.reserve(2 * faces.size());
    build(0, static_cast<UInt32>(faces.size()));
  }

  /// Faces of one leaf have one direction, and so one result.
  void smooth(double cosine, std::span<Vec3f> out) const {
    for (const Node& leaf : nodes_) {
      if (leaf.right != kNone) continue;
      Face sum;
      add_within(0, units_[order_[leaf.first]], cosine, sum);
      const Vec3f normal = direction_of(sum);
      for (UInt32 k = leaf.first; k < leaf.end; ++k) out[order_[k]] = normal;
    }
  }

 private:
  using Unit = std::array<double, 3>;
  struct Node {
    Unit low, high;     // box of the unit normals
    Face sum;           // of the faces
    UInt32 first, end;  // in order_
    UInt32 right;       // the left child is the next node; kNone for a leaf
  };

  static double product(const Unit& a, const Unit& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
  }

  /// Depth is the logarithm of the number of faces.
  UInt32 build(UInt32 first, UInt32 end) {
    const auto index = static_cast<UInt32>(nodes_.size());
    nodes_.push_back(bounds_of(first, end));
    const UInt32 axis = widest_axis(nodes_[index]);
    if (nodes_[index].high[axis] - nodes_[index].low[axis] <= kSameDirection) {
      std::sort(order_.begin() + first, order_.begin() + end);
      for (UInt32 k = first; k < end; ++k) nodes_[index].sum += faces_[order_[k]];
      return index;
    }
    const UInt32 middle = first + (end - first) / 2;
    std::nth_element(order_.begin() + first, order_.begin() + middle, order_.begin() + end,
                     [&](UInt32 a, UInt32 b) {
                       return units_[a][axis] != units_[b][axis] ? units_[a][axis] < units_[b][axis]
                                                                 : a < b;
                     });
    build(first, middle);
    const UInt32 right = build(middle, end);
    nodes_[index].right = right;
    nodes_[index].sum = nodes_[index + 1].sum;
    nodes_[index].sum += nodes_[right].sum;
    return index;
  }

  Node bounds_of(UInt32 first, UInt32 end) const {
    Node node{units_[order_[first]], units_[order_[first]], {}, first, end, kNone};
    for (UInt32 k = first + 1; k < end; ++k) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const double x = units_[order_[k]][axis];
        node.low[axis] = std::min(node.low[axis], x);
        node.high[axis] = std::max(node.high[axis], x);
      }
    }
    return node;
  }

  static UInt32 widest_axis(const Node& node) {
    UInt32 widest = 0;
    for (UInt32 axis = 1; axis < 3; ++axis)
      if (node.high[axis] - node.low[axis] > node.high[widest] - node.low[widest]) widest = axis;
    return widest;
  }

  /// From `sign` times `unit` to the nearest and the farthest point of the box.
  static std::pair<double, double> squared_distances(const Node& node, const Unit& unit,
                                                     double sign) {
    double nearest = 0, farthest = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double below = node.low[axis] - sign * unit[axis];
      const double above = sign * unit[axis] - node.high[axis];
      const double outside = std::max({below, above, 0.0}), across = std::min(below, above);
      nearest += outside * outside;
      farthest += across * across;
    }
    return {nearest, farthest};
  }

  void add_within(UInt32 index, const Unit& unit, double cosine, Face& sum) const {
    const Node& node = nodes_[index];
    if (node.right == kNone) {
      if (product(unit, units_[order_[node.first]]) >= cosine) sum += node.sum;
      return;
    }
    // The angle to `unit`, or for wide ranges to the other side, is told by the distance: unlike
    // the product it changes as fast as the angle does.
    const bool wide = cosine < 0;
    const double limit = 2 - 2 * std::abs(cosine);  // squared
    const auto [nearest, farthest] = squared_distances(node, unit, wide ? -1 : 1);
    if (nearest > limit + kMargin || farthest < limit - kMargin) {
      if ((nearest > limit) == wide) sum += node.sum;
      return;
    }
    add_within(index + 1, unit, cosine, sum);
    add_within(node.right, unit, cosine, sum);
  }

  std::span<const Face> faces_;
  std::vector<Unit> units_;
  std::vector<UInt32> order_;  // faces, those of a node side by side
  std::vector<Node> nodes_;
};

}  // namespace

void smooth_faces(std::span<const Face> faces, double crease_angle, std::span<Vec3f> out) {
  const double cosine = lowest_cosine(crease_angle);
  if (faces.size() <= kPairwise)
    smooth_pairwise(faces, cosine, out);
  else
    DirectionTree(faces).smooth(cosine, out);
}

}  // namespace osg::detail
