#include "sample/sweep.h"

#include <algorithm>
#include <cmath>

namespace morlu::sample {
namespace {

using vec2 = ::osg::Vector<double, 2>;
using vec3 = ::osg::Vector<double, 3>;

/// A corner of the outline with the normal of one of its sides.
struct SectionVertex {
  vec2 at, normal;
  double along;  // metres from the outline's start
};

struct Edge {
  std::size_t from, to;
};

/// Vertices in a row and what joins them.
struct Section {
  std::vector<SectionVertex> vertices;
  std::vector<Edge> edges;
};

/// Where the outline stands at one place of the path: (u, v) is at origin + u * u_axis + v * z.
struct Station {
  vec3 origin, u_axis;
  vec3 normal_axis;  // where the u component of normals points
  double along;      // metres on the path, taken at the outline's outermost point
};

struct Path {
  std::vector<Station> stations;
  std::vector<Edge> edges;
};

vec2 unit(vec2 v) {
  v.normalize();
  return v;
}

std::vector<vec2> edge_normals(const Outline& outline, std::size_t edge_count) {
  std::vector<vec2> normals;
  for (std::size_t i = 0; i < edge_count; ++i) {
    const Corner& a = outline.corners[i];
    const Corner& b = outline.corners[(i + 1) % outline.corners.size()];
    normals.push_back(unit(vec2(b.v - a.v, a.u - b.u)));
  }
  return normals;
}

// The normal of `edge` at one of its corners: its own, or that of the rounded surface.
vec2 corner_normal(const Outline& outline, const std::vector<vec2>& normals, std::size_t corner,
                   std::size_t edge) {
  const Corner& c = outline.corners[corner];
  if (!c.smooth) return normals[edge];
  const bool is_end = !outline.closed && (corner == 0 || corner == normals.size());
  if (is_end) return vec2(0.0, normals[edge][1] < 0.0 ? -1.0 : 1.0);  // a pole, on the axis
  return unit(normals[(corner + normals.size() - 1) % normals.size()] +
              normals[corner % normals.size()]);
}

Section section_of(const Outline& outline) {
  const std::size_t corners = outline.corners.size();
  const std::size_t edges = outline.closed ? corners : corners - 1;
  const std::vector<vec2> normals = edge_normals(outline, edges);
  Section section;
  double along = 0.0;
  for (std::size_t i = 0; i < edges; ++i) {
    const std::size_t j = (i + 1) % corners;
    const vec2 from(outline.corners[i].u, outline.corners[i].v);
    const vec2 to(outline.corners[j].u, outline.corners[j].v);
    if (i == 0 || !outline.corners[i].smooth) {
      section.vertices.push_back({from, corner_normal(outline, normals, i, i), along});
    }
    along += (to - from).length();
    section.vertices.push_back({to, corner_normal(outline, normals, j, i), along});
    section.edges.push_back({section.vertices.size() - 2, section.vertices.size() - 1});
  }
  return section;
}

double outermost(const Outline& outline) {
  double u = 0.0;
  for (const Corner& corner : outline.corners) u = std::max(u, corner.u);
  return u;
}

constexpr double pi = 3.14159265358979323846;

Path round_path(unsigned segments_of_circle, unsigned segments, double radius) {
  const std::vector<vec2> around = circle(segments_of_circle);
  Path path;
  for (unsigned i = 0; i <= segments; ++i) {
    const vec2& at = around[i % segments_of_circle];
    const vec3 axis(at[0], at[1], 0.0);
    path.stations.push_back({vec3(), axis, axis, radius * 2.0 * pi * i / segments_of_circle});
    if (i > 0) path.edges.push_back({i - 1, i});
  }
  return path;
}

// Each flat facet has two stations of its own, whose normals point where the facet does.
Path faceted_path(unsigned segments, double radius) {
  const Path round = round_path(segments, segments, radius);
  Path path;
  for (const Edge& edge : round.edges) {
    Station from = round.stations[edge.from];
    Station to = round.stations[edge.to];
    vec3 middle = from.u_axis + to.u_axis;
    middle.normalize();
    from.normal_axis = to.normal_axis = middle;
    path.edges.push_back({path.stations.size(), path.stations.size() + 1});
    path.stations.push_back(from);
    path.stations.push_back(to);
  }
  return path;
}

Path straight_path(double length) {
  const vec3 x(1.0, 0.0, 0.0);
  return {{{vec3(), x, x, 0.0}, {vec3(0.0, length, 0.0), x, x, length}}, {{0, 1}}};
}

::osg::Pnt3f placed(const Station& station, const vec2& at) {
  const vec3 p = station.origin + station.u_axis * at[0] + vec3(0.0, 0.0, at[1]);
  return ::osg::Pnt3f(p[0], p[1], p[2]);
}

void add_vertex(Mesh& mesh, const ::osg::Pnt3f& position, vec3 normal, double s, double t) {
  normal.normalize();
  mesh.positions.push_back(position);
  mesh.normals.emplace_back(normal[0], normal[1], normal[2]);
  mesh.coords.emplace_back(s, t);
}

// Outlines that touch the axis fold some triangles into lines there.
void add_triangle(Mesh& mesh, std::size_t a, std::size_t b, std::size_t c) {
  const auto& p = mesh.positions;
  if (p[a] == p[b] || p[b] == p[c] || p[a] == p[c]) return;
  for (const std::size_t corner : {a, b, c}) {
    mesh.indices.push_back(static_cast<::osg::UInt32>(corner));
  }
}

void drop_unused(Mesh& mesh) {
  constexpr ::osg::UInt32 unused = ~::osg::UInt32{0};
  std::vector<::osg::UInt32> new_from_old(mesh.positions.size(), unused);
  Mesh kept;
  for (const ::osg::UInt32 old : mesh.indices) {
    if (new_from_old[old] == unused) {
      new_from_old[old] = static_cast<::osg::UInt32>(kept.positions.size());
      kept.positions.push_back(mesh.positions[old]);
      kept.normals.push_back(mesh.normals[old]);
      kept.coords.push_back(mesh.coords[old]);
    }
    kept.indices.push_back(new_from_old[old]);
  }
  mesh = std::move(kept);
}

Mesh sweep(const Section& section, const Path& path) {
  Mesh mesh;
  for (const Station& station : path.stations) {
    for (const SectionVertex& vertex : section.vertices) {
      const vec3 normal = station.normal_axis * vertex.normal[0] + vec3(0.0, 0.0, vertex.normal[1]);
      add_vertex(mesh, placed(station, vertex.at), normal, station.along, vertex.along);
    }
  }
  const std::size_t row = section.vertices.size();
  for (const Edge& step : path.edges) {
    for (const Edge& side : section.edges) {
      const std::size_t a = step.from * row + side.from;
      const std::size_t b = step.to * row + side.from;
      const std::size_t c = step.to * row + side.to;
      const std::size_t d = step.from * row + side.to;
      add_triangle(mesh, a, b, c);
      add_triangle(mesh, a, c, d);
    }
  }
  drop_unused(mesh);
  return mesh;
}

// Twice the area of the triangle, positive when it runs counter-clockwise.
double turn(const Corner& a, const Corner& b, const Corner& c) {
  return (b.u - a.u) * (c.v - a.v) - (b.v - a.v) * (c.u - a.u);
}

bool is_ear(const std::vector<Corner>& corners, const std::vector<std::size_t>& ring,
            std::size_t i) {
  const std::size_t before = ring[(i + ring.size() - 1) % ring.size()];
  const std::size_t after = ring[(i + 1) % ring.size()];
  const Corner &a = corners[before], &b = corners[ring[i]], &c = corners[after];
  if (turn(a, b, c) <= 0.0) return false;
  return std::none_of(ring.begin(), ring.end(), [&](std::size_t other) {
    if (other == before || other == ring[i] || other == after) return false;
    const Corner& p = corners[other];
    return turn(a, b, p) >= 0.0 && turn(b, c, p) >= 0.0 && turn(c, a, p) >= 0.0;
  });
}

// Ear clipping (G. Meisters, "Polygons have ears", 1975); the outlines have few corners.
std::vector<std::size_t> triangulate(const Outline& outline) {
  std::vector<std::size_t> ring, triangles;
  for (std::size_t i = 0; i < outline.corners.size(); ++i) ring.push_back(i);
  while (ring.size() >= 3) {
    std::size_t ear = 0;
    while (ear + 1 < ring.size() && !is_ear(outline.corners, ring, ear)) ++ear;
    const auto size = ring.size();
    for (const std::size_t i : {ear + size - 1, ear, ear + 1}) triangles.push_back(ring[i % size]);
    ring.erase(ring.begin() + static_cast<std::ptrdiff_t>(ear));
  }
  return triangles;
}

void add_cap(Mesh& mesh, const Outline& outline, const Station& station, bool at_start) {
  const vec3 forward = vec3(0.0, 0.0, 1.0).cross(station.u_axis);
  const std::size_t first = mesh.positions.size();
  for (const Corner& corner : outline.corners) {
    add_vertex(mesh, placed(station, vec2(corner.u, corner.v)), at_start ? -forward : forward,
               corner.u, corner.v);
  }
  const std::vector<std::size_t> triangles = triangulate(outline);
  for (std::size_t i = 0; i + 2 < triangles.size(); i += 3) {
    const std::size_t b = triangles[i + 1], c = triangles[i + 2];
    add_triangle(mesh, first + triangles[i], first + (at_start ? b : c),
                 first + (at_start ? c : b));
  }
}

Mesh capped_sweep(const Outline& outline, const Path& path) {
  Mesh mesh = sweep(section_of(outline), path);
  add_cap(mesh, outline, path.stations.front(), true);
  add_cap(mesh, outline, path.stations.back(), false);
  return mesh;
}

}  // namespace

void Mesh::append(const Mesh& other, const ::osg::Matrix& matrix) {
  const auto first = static_cast<::osg::UInt32>(positions.size());
  for (const auto& position : other.positions) positions.push_back(matrix * position);
  for (const auto& normal : other.normals) normals.push_back(matrix * normal);
  coords.insert(coords.end(), other.coords.begin(), other.coords.end());
  for (const ::osg::UInt32 index : other.indices) indices.push_back(first + index);
}

std::vector<vec2> circle(unsigned segments) {
  const double half_height = std::sqrt(3.0) / 2.0;
  std::vector<vec2> around{{1.0, 0.0}, {0.0, 1.0}, {-1.0, 0.0}, {0.0, -1.0}};
  if (segments % 3 == 0) around = {{1.0, 0.0}, {-0.5, half_height}, {-0.5, -half_height}};
  while (around.size() < segments) {
    std::vector<vec2> finer;
    for (std::size_t i = 0; i < around.size(); ++i) {
      finer.push_back(around[i]);
      finer.push_back(unit(around[i] + around[(i + 1) % around.size()]));
    }
    around = std::move(finer);
  }
  return around;
}

Mesh revolve(const Outline& outline, unsigned segments, Facets facets) {
  const double radius = outermost(outline);
  return sweep(section_of(outline), facets == Facets::Flat
                                        ? faceted_path(segments, radius)
                                        : round_path(segments, segments, radius));
}

Mesh bend(const Outline& outline, unsigned segments) {
  return capped_sweep(outline, round_path(4 * segments, segments, outermost(outline)));
}

Mesh extrude(const Outline& outline, double length) {
  return capped_sweep(outline, straight_path(length));
}

}  // namespace morlu::sample
