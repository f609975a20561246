#pragma once

#include <array>
#include <cfloat>
#include <cmath>

#include "geoset/element.h"

/// Values of an element at points on it, in single precision.
namespace morlu::osg {

/// How much of each corner's value a point takes.
template <std::size_t N>
struct corner_blend {
  int corner = -1;  // takes just this corner's value, without rounding
  std::array<float, N> weights{};

  attribute_value of(const std::array<attribute_value, N>& values) const {
    if (corner >= 0) return values[static_cast<std::size_t>(corner)];
    attribute_value sum{};
    for (std::size_t i = 0; i < sum.size(); ++i)
      for (std::size_t k = 0; k < N; ++k)
        sum[i] = k == 0 ? weights[0] * values[0][i] : sum[i] + weights[k] * values[k][i];
    return sum;
  }
};

/// The first corner within 1e-6 of `p` on all axes, or -1.
template <std::size_t N>
int corner_at(const std::array<point, N>& corners, const point& p) {
  constexpr float near = 1e-6f;
  for (std::size_t k = 0; k < N; ++k) {
    const auto within = [&](unsigned axis) {
      return std::fabs(p[axis] - corners[k][axis]) <= near;
    };
    if (within(0) && within(1) && within(2)) return static_cast<int>(k);
  }
  return -1;
}

/// The share of the way from `a` to `b` on which `p` lies; 0 where there is no way.
inline float share_of_way(const point& a, const point& b, const point& p) {
  const ::osg::Vec3f way = b - a;
  const float square = way.dot(way);
  return square > 0 ? (p - a).dot(way) / square : 0.0f;
}

/// Blends at the points of one element.
template <std::size_t N>
class blender;

template <>
class blender<2> {
 public:
  explicit blender(const std::array<point, 2>& ends) : ends_(ends) {}

  corner_blend<2> at(const point& p) const {
    if (const int corner = corner_at(ends_, p); corner >= 0) return {corner};
    const float share = share_of_way(ends_[0], ends_[1], p);
    return {-1, {1 - share, share}};
  }

 private:
  std::array<point, 2> ends_;
};

/// By the areas that a point makes with the edges. What floats can't tell from a line is one: there
/// the share of the longest edge decides, and the third corner counts nothing.
template <>
class blender<3> {
 public:
  explicit blender(const std::array<point, 3>& corners) : corners_(corners) {
    const ::osg::Vec3f doubled = (corners[1] - corners[0]).cross(corners[2] - corners[0]);
    float longest_square = 0;
    for (unsigned k = 0; k < 3; ++k) {
      const ::osg::Vec3f edge = corners[(k + 1) % 3] - corners[k];
      const float square = edge.dot(edge);
      if (square > longest_square) {
        longest_square = square;
        longest_ = k;
      }
    }
    normal_ = doubled;
    normal_.normalize();  // a short one stays; it cancels out in the shares
    area_ = normal_.dot(doubled);
    is_line_ =
        !(doubled.length() > FLT_EPSILON * longest_square) || !(area_ > 0) || !std::isfinite(area_);
  }

  corner_blend<3> at(const point& p) const {
    if (const int corner = corner_at(corners_, p); corner >= 0) return {corner};
    if (is_line_) return along_edge(p);
    const auto& [p0, p1, p2] = corners_;
    const float first = normal_.dot((p1 - p).cross(p2 - p)) / area_;
    const float second = normal_.dot((p2 - p).cross(p0 - p)) / area_;
    return {-1, {first, second, 1 - first - second}};
  }

 private:
  corner_blend<3> along_edge(const point& p) const {
    const unsigned end = (longest_ + 1) % 3;
    const float share = share_of_way(corners_[longest_], corners_[end], p);
    corner_blend<3> result;
    result.weights[longest_] = 1 - share;
    result.weights[end] = share;
    return result;
  }

  std::array<point, 3> corners_;
  ::osg::Vec3f normal_;
  float area_;
  unsigned longest_ = 0;  // start of the longest edge
  bool is_line_;
};

/// The values of the element's corners.
template <class Set>
auto values_of(const Set& set, const attribute_row& row, const ::osg::GeoProperty& property,
               std::uint64_t element) {
  std::array<attribute_value, corners_of<Set>> values;
  for (unsigned k = 0; k < corners_of<Set>; ++k)
    values[k] = row.read(property, first_vertex(set, element) + k);
  return values;
}

/// Writes the value of `attribute` at `p` to `out`, if the set and the element are there.
template <class Set>
void interpolate(const Set& set, ::osg::Attribute attribute, std::uint64_t element, const point& p,
                 float* out) {
  if (element >= set.num_objects) return;
  for (const attribute_row& row : rows_of<Set>) {
    const auto* property = row.attribute == attribute ? row.of(set) : nullptr;
    if (!property) continue;
    const blender<corners_of<Set>> blends(positions_of(set, element));
    const auto value = blends.at(p).of(values_of(set, row, *property, element));
    std::copy_n(value.begin(), row.components, out);
  }
}

}  // namespace morlu::osg
