#include "ray/triangle_pairs.h"

#include "ray/intersect.h"

namespace morlu {

namespace {

/// One segment against one triangle, of the two that are tested.
struct segment_test {
  bool of_b;  // the segment runs on b, against a
  int from;
  int to;
};

// A test sees front faces only, so the direction of a segment decides. What detects a contact runs
// the third and sixth from corner 0 to corner 2, what looks for its point the other way round.
constexpr segment_test detection[6] = {{true, 0, 1},  {true, 1, 2},  {true, 0, 2},
                                       {false, 0, 1}, {false, 1, 2}, {false, 0, 2}};
constexpr segment_test location[6] = {{true, 0, 1},  {true, 1, 2},  {true, 2, 0},
                                      {false, 0, 1}, {false, 1, 2}, {false, 2, 0}};

ray_hit run_test(const segment_test& test, const triangle& a, const triangle& b) {
  const triangle& face = test.of_b ? a : b;
  const triangle& edge = test.of_b ? b : a;
  ray_hit hit{};
  intersect_triangle(face[0], face[1], face[2], edge[test.from], edge[test.to], hit);
  return hit;
}

float4x3 all(const math::vector3& v) {
  return {morlu::all(v[0]), morlu::all(v[1]), morlu::all(v[2])};
}

float4 load4(const float (&lane)[4]) {
  float4 value;
  std::memcpy(&value, lane, sizeof value);
  return value;
}

/// What a triangle_test is made of, without the segment.
struct face_lanes {
  const float4x3& corner;
  const float4x3& ab;
  const float4x3& ac;
  const float4x3& normal;
};

/// The three tested segments of an edge's triangle against a face, in two steps: which lanes have
/// one that starts in front and ends behind, which of these pass within the edges.
class three_segments {
 public:
  three_segments(const face_lanes& face, const float4x3 (&corner)[3], const float4x3 (&edge)[3])
      : face_(face), edge_(edge), from_{corner[0] - face.corner, corner[1] - face.corner} {
    const float4 height[2] = {dot(face.normal, from_[0]), dot(face.normal, from_[1])};
    for (int i = 0; i < 3; ++i) {
      const float4 t = height[i & 1];
      d_[i] = dot(face.normal, edge[i]);
      crossing_[i] = (d_[i] > 0) & ~(t < 0) & ~(t > d_[i]);
    }
  }

  mask4 crossing() const { return crossing_[0] | crossing_[1] | crossing_[2]; }

  mask4 hits() const {
    mask4 found{};
    for (int i = 0; i < 3; ++i) {
      if (!lanes_of(crossing_[i])) continue;
      const float4 d = d_[i];
      const float4x3 e = cross(edge_[i], from_[i & 1]);
      const float4 v = dot(face_.ac, e);
      const float4 w = -dot(face_.ab, e);
      found |= crossing_[i] & ~(v < 0) & ~(v > d) & ~(w < 0) & ~(v + w > d);
    }
    return found;
  }

 private:
  const face_lanes face_;
  const float4x3 (&edge_)[3];
  float4x3 from_[2];  // starts of the segments: corner 0, 1 and 0 again
  float4 d_[3];
  mask4 crossing_[3];
};

}  // namespace

bool triangles_intersect(const triangle& a, const triangle& b) {
  for (const segment_test& test : detection) {
    const triangle& face = test.of_b ? a : b;
    const triangle& edge = test.of_b ? b : a;
    if (segment_hits_triangle(face[0], face[1], face[2], edge[test.from], edge[test.to]))
      return true;
  }
  return false;
}

math::vector3 contact_point(const triangle& a, const triangle& b) {
  for (const auto& tests : {location, detection}) {
    for (int i = 0; i < 6; ++i) {
      const ray_hit hit = run_test(tests[i], a, b);
      if (hit.hit) return hit.point;
    }
  }
  return {};
}

triangle_lanes::triangle_lanes(const triangle* triangles, std::uint32_t count)
    : used_((1u << count) - 1) {
  for (int corner = 0; corner < 3; ++corner) {
    float lane[3][most];
    for (std::uint32_t i = 0; i < most; ++i)
      for (int axis = 0; axis < 3; ++axis)
        lane[axis][i] = triangles[i < count ? i : 0][corner][axis];
    corner_[corner] = {load4(lane[0]), load4(lane[1]), load4(lane[2])};
  }
  edge_[0] = corner_[0] - corner_[1];
  edge_[1] = corner_[1] - corner_[2];
  edge_[2] = corner_[0] - corner_[2];
  sides_[0] = corner_[1] - corner_[0];
  sides_[1] = corner_[2] - corner_[0];
  normal_ = cross(sides_[0], sides_[1]);
}

unsigned triangle_lanes::hit_by(const triangle& a) const {
  const math::vector3 ab = a[1] - a[0], ac = a[2] - a[0];
  const float4x3 corner[3] = {all(a[0]), all(a[1]), all(a[2])};
  const float4x3 edge[3] = {all(a[0] - a[1]), all(a[1] - a[2]), all(a[0] - a[2])};
  const float4x3 a_sides[2] = {all(ab), all(ac)};
  const float4x3 a_normal = all(math::cross(ab, ac));
  const three_segments of_b({corner[0], a_sides[0], a_sides[1], a_normal}, corner_, edge_);
  const three_segments of_a({corner_[0], sides_[0], sides_[1], normal_}, corner, edge);
  if (!(lanes_of(of_a.crossing() | of_b.crossing()) & used_)) return 0;
  return lanes_of(of_a.hits() | of_b.hits()) & used_;
}

}  // namespace morlu
