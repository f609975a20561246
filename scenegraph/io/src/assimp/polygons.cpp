#include "assimp/polygons.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace osg::io {
namespace {

struct Flat {
  double x, y;
};

/// Twice the signed area of the triangle.
double turn(const Flat& a, const Flat& b, const Flat& c) {
  return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

/// The polygon without the axis along which its normal is longest, turning counter-clockwise.
/// Empty if it has no area.
std::vector<Flat> flattened(std::span<const Pnt3f> polygon) {
  double normal[3] = {0.0, 0.0, 0.0};
  for (std::size_t i = 0; i < polygon.size(); ++i) {
    // Differences to the first corner keep far-off polygons exact.
    double a[3], b[3];
    for (UInt32 k = 0; k < 3; ++k) {
      a[k] = double(polygon[i][k]) - double(polygon[0][k]);
      b[k] = double(polygon[(i + 1) % polygon.size()][k]) - double(polygon[0][k]);
    }
    for (std::size_t k = 0; k < 3; ++k)
      normal[k] += a[(k + 1) % 3] * b[(k + 2) % 3] - a[(k + 2) % 3] * b[(k + 1) % 3];
  }
  UInt32 axis = std::abs(normal[0]) > std::abs(normal[1]) ? 0 : 1;
  if (std::abs(normal[2]) > std::abs(normal[axis])) axis = 2;
  const double area = normal[axis];
  if (!(std::abs(area) > 0.0) || !std::isfinite(area)) return {};
  std::vector<Flat> flat(polygon.size());
  const UInt32 first = (axis + 1) % 3, second = (axis + 2) % 3;
  for (std::size_t i = 0; i < polygon.size(); ++i) {
    flat[i] = {polygon[i][first], polygon[i][second]};
    if (area < 0.0) std::swap(flat[i].x, flat[i].y);
  }
  return flat;
}

/// What a corner may turn the wrong way, twice an area, and still be a straight one: positions are
/// rounded to floats.
double tolerance_of(const std::vector<Flat>& flat) {
  double extent = 0.0;
  for (const Flat& p : flat)
    extent = std::max({extent, std::abs(p.x - flat[0].x), std::abs(p.y - flat[0].y)});
  return 1e-6 * extent * extent;
}

class EarCutter {
 public:
  explicit EarCutter(const std::vector<Flat>& flat) : flat_(flat), left_(flat.size()) {
    std::iota(left_.begin(), left_.end(), 0u);
  }

  std::vector<UInt32> run() {
    std::vector<UInt32> triangles;
    triangles.reserve(3 * (flat_.size() - 2));
    std::size_t at = 0;
    while (left_.size() > 3) {
      at = next_ear(at % left_.size());
      triangles.insert(triangles.end(), {corner(at, -1), left_[at], corner(at, 1)});
      left_.erase(left_.begin() + static_cast<std::ptrdiff_t>(at));
    }
    triangles.insert(triangles.end(), {left_[0], left_[1], left_[2]});
    return triangles;
  }

 private:
  UInt32 corner(std::size_t at, int step) const {
    return left_[(at + left_.size() + static_cast<std::size_t>(step)) % left_.size()];
  }

  /// The first ear from `from` on; `from` itself if there is none, as in polygons that cross
  /// themselves.
  std::size_t next_ear(std::size_t from) const {
    for (std::size_t i = 0; i < left_.size(); ++i)
      if (is_ear((from + i) % left_.size())) return (from + i) % left_.size();
    return from;
  }

  bool is_ear(std::size_t at) const {
    const Flat& a = flat_[corner(at, -1)];
    const Flat& b = flat_[left_[at]];
    const Flat& c = flat_[corner(at, 1)];
    if (!(turn(a, b, c) > 0.0)) return false;
    for (const UInt32 other : left_) {
      const Flat& p = flat_[other];
      const bool is_corner =
          (p.x == a.x && p.y == a.y) || (p.x == b.x && p.y == b.y) || (p.x == c.x && p.y == c.y);
      if (!is_corner && turn(a, b, p) >= 0.0 && turn(b, c, p) >= 0.0 && turn(c, a, p) >= 0.0)
        return false;
    }
    return true;
  }

  const std::vector<Flat>& flat_;
  std::vector<UInt32> left_;  // corners that are not cut off yet
};

}  // namespace

bool is_convex(std::span<const Pnt3f> polygon) {
  const std::vector<Flat> flat = flattened(polygon);
  if (flat.empty()) return true;
  const double tolerance = tolerance_of(flat);
  const std::size_t n = flat.size();
  for (std::size_t i = 0; i < n; ++i) {
    if (turn(flat[i], flat[(i + 1) % n], flat[(i + 2) % n]) < -tolerance) return false;
    // A star turns one way as well, but not seen from its first corner.
    if (turn(flat[0], flat[i], flat[(i + 1) % n]) < -tolerance) return false;
  }
  return true;
}

std::vector<UInt32> triangulate(std::span<const Pnt3f> polygon) {
  if (polygon.size() < 3) return {};
  std::vector<Flat> flat = flattened(polygon);
  if (flat.empty()) flat.resize(polygon.size());  // every cut is as good as another
  return EarCutter(flat).run();
}

}  // namespace osg::io
