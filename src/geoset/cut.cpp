// Cuts of elements, in double precision on the float positions.
//
// All pieces are tested before the first change. New elements are appended first and the element is
// rewritten last, since every piece is interpolated on what the element was.

#include <charconv>
#include <cmath>

#include "geoset/append.h"
#include "primitives/rogue.h"

namespace morlu::osg {

namespace {

using point3d = split_point;

point3d wide(const point& p) {
  return {p[0], p[1], p[2]};
}
point narrow(const point3d& p) {
  return {p[0], p[1], p[2]};
}

// --- Where edges meet planes ---------------------------------------------------------------------

constexpr double nearest_to_end = 1e-5;

/// `name` is the class that complains.
bool split_edge(const point3d& a, const point3d& b, double plane, unsigned axis, point3d& out,
                const char* name) {
  const double f = (a[axis] - plane) / (a[axis] - b[axis]);
  if (f <= nearest_to_end || f >= 0.99999) {  // NaN goes on to the next test
    char digits[32];
    const auto end =
        std::to_chars(digits, digits + sizeof digits, f, std::chars_format::general, 15).ptr;
    std::cout << name << "::calcSplitPoint: Factor Error( ";
    std::cout.write(digits, end - digits) << " )." << std::endl;
    return false;
  }
  for (unsigned k = 0; k < 3; ++k) out[k] = a[k] + (f * b[k] - f * a[k]);
  for (const double component : out) {
    if (std::isfinite(component)) continue;
    std::cout << name << "::calcSplitPoint: Math-Error occured. Splitpoint is NaN." << std::endl;
    return false;
  }
  out[axis] = plane;
  return true;
}

/// NaN has no place in an order.
bool has_order(const point3d& p) {
  return !std::isnan(p[0]) && !std::isnan(p[1]) && !std::isnan(p[2]);
}

/// The point kept for the edge, null if there is none. A corner with points of its own is not
/// looked for among those of the other.
const point3d* kept_point(const osg_geoset& set, const point3d& a, const point3d& b) {
  const auto in = [](const auto& map, const point3d& key) {
    const auto found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
  };
  if (const auto* from_a = in(set.split_cache, a)) return in(*from_a, b);
  const auto* from_b = in(set.split_cache, b);
  return from_b ? in(*from_b, a) : nullptr;
}

bool split_point_of(osg_geoset& set, const point3d& a, const point3d& b, double plane,
                    unsigned axis, point3d& out) {
  const bool can_keep = has_order(a) && has_order(b);
  if (set.split_axis != static_cast<int>(axis) || set.split_plane != plane) {
    set.split_cache.clear();
    set.split_axis = static_cast<int>(axis);
    set.split_plane = plane;
  } else if (const point3d* kept = can_keep ? kept_point(set, a, b) : nullptr) {
    out = *kept;
    return true;
  }
  if (!split_edge(a, b, plane, axis, out, "Morlu::osg::osg_geoset")) return false;
  if (!can_keep) return true;
  try {
    set.split_cache[a][b] = out;
  } catch (...) {  // no memory to keep it: the next one computes it again
  }
  return true;
}

// --- The pieces of a triangle --------------------------------------------------------------------

/// Corners of the element and the points made on its edges.
enum corner_name : unsigned char { P0, P1, P2, S, T };
using named_points = std::array<point, 5>;

struct edge {
  corner_name from, to;
};

/// How a triangle falls apart: the edges that S and T lie on, the new elements in order, and what
/// the element becomes. All pieces turn as the element does.
struct cut_row {
  std::array<edge, 2> edges;
  unsigned added;  // as many points are made
  std::array<std::array<corner_name, 3>, 2> fresh;
  std::array<corner_name, 3> rest;
};

/// By the corner that the plane goes through.
constexpr cut_row through_corner[3] = {
    {{{{P1, P2}}}, 1, {{{P0, S, P2}}}, {P0, P1, S}},
    {{{{P0, P2}}}, 1, {{{P1, P2, S}}}, {P0, P1, S}},
    {{{{P0, P1}}}, 1, {{{S, P1, P2}}}, {P0, S, P2}},
};

/// By the corner that is alone on its side of the plane.
constexpr cut_row beside_corner[3] = {
    {{{{P0, P1}, {P0, P2}}}, 2, {{{S, P1, T}, {P1, P2, T}}}, {P0, S, T}},
    {{{{P1, P0}, {P1, P2}}}, 2, {{{P0, S, T}, {P0, T, P2}}}, {S, P1, T}},
    {{{{P2, P0}, {P2, P1}}}, 2, {{{S, T, P2}, {P0, P1, T}}}, {P0, T, S}},
};

/// By the edge that S is the middle of.
constexpr cut_row middle_of_edge[3] = {
    {{{{P0, P1}}}, 1, {{{S, P1, P2}}}, {P0, S, P2}},
    {{{{P1, P2}}}, 1, {{{P0, S, P2}}}, {P0, P1, S}},
    {{{{P2, P0}}}, 1, {{{P1, P2, S}}}, {P0, P1, S}},
};

/// Cuts the element as the row says and returns the number of new elements; 0 leaves it whole.
unsigned apply(osg_geoset& set, std::size_t element, const cut_row& row,
               const named_points& points) {
  const auto corners = [&](const std::array<corner_name, 3>& names) {
    return corner_points<osg_geoset>{points[names[0]], points[names[1]], points[names[2]]};
  };
  const auto is_rogue = [&](const std::array<corner_name, 3>& names) {
    return rogue_filter::is_rogue(points[names[0]], points[names[1]], points[names[2]]);
  };
  for (unsigned i = 0; i < row.added; ++i)
    if (is_rogue(row.fresh[i])) return 0;
  if (is_rogue(row.rest)) return 0;

  for (unsigned i = 0; i < row.added; ++i) {
    if (append_piece(set, corners(row.fresh[i]), element)) continue;
    while (i-- > 0) drop_last_piece(set);
    return 0;
  }
  replace_by_piece(set, corners(row.rest), element);
  return row.added;
}

/// A plane much nearer to one corner than to another is meant to go through it.
double snapped(double plane, const std::array<double, 3>& coordinates) {
  constexpr double much = 100000;
  double distances[3];
  for (unsigned k = 0; k < 3; ++k) distances[k] = std::fabs(coordinates[k] - plane);
  for (unsigned k = 0; k < 3; ++k)
    if (distances[(k + 1) % 3] > much * distances[k] ||
        distances[(k + 2) % 3] > much * distances[k])
      plane = coordinates[k];
  return plane;
}

/// The row for a plane among the coordinates of the corners; null, with a line, if there is none.
const cut_row* row_for(double plane, const std::array<double, 3>& coordinates) {
  const auto on_plane = std::count(coordinates.begin(), coordinates.end(), plane);
  if (on_plane > 1) {
    std::cout << "MORLU_OSG_GEOSET: Weird Error. More than one point is on the plane." << std::endl;
    return nullptr;
  }
  if (on_plane == 1)
    return &through_corner[std::find(coordinates.begin(), coordinates.end(), plane) -
                           coordinates.begin()];

  const bool above[3] = {plane > coordinates[0], plane > coordinates[1], plane > coordinates[2]};
  for (unsigned k = 0; k < 3; ++k)
    if (above[k] != above[(k + 1) % 3] && above[k] != above[(k + 2) % 3]) return &beside_corner[k];
  std::cout << "Error in SplitElement! All Points can't be on one side" << std::endl;
  return nullptr;
}

named_points named_corners(const osg_geoset& set, std::size_t element) {
  const auto corners = positions_of(set, element);
  return {corners[0], corners[1], corners[2]};
}

unsigned cut_at_plane(osg_geoset& set, std::size_t element, double plane, unsigned axis) {
  named_points points = named_corners(set, element);
  const std::array<double, 3> coordinates{points[P0][axis], points[P1][axis], points[P2][axis]};
  plane = snapped(plane, coordinates);
  const cut_row* row = row_for(plane, coordinates);
  if (!row) return 0;

  std::array<point3d, 2> made{};
  for (unsigned i = 0; i < row->added; ++i) {
    const auto [from, to] = row->edges[i];
    if (!split_point_of(set, wide(points[from]), wide(points[to]), plane, axis, made[i])) return 0;
    points[S + i] = narrow(made[i]);
  }
  if (row->added == 2 && made[0] == made[1]) return 0;
  return apply(set, element, *row, points);
}

// --- Halves --------------------------------------------------------------------------------------

/// The number of the largest value, the last one of equals; 3 if a NaN is among them.
unsigned last_largest(const std::array<float, 3>& values) {
  unsigned result = 3;
  for (unsigned k = 0; k < 3; ++k)
    if (values[k] >= values[(k + 1) % 3] && values[k] >= values[(k + 2) % 3]) result = k;
  return result;
}

/// One that is flat on an axis is judged by the others.
bool is_elongated(const std::array<float, 3>& extents) {
  for (const float extent : extents)
    for (const float other : extents)
      if (other != 0 && extent > 15 * other) return true;
  return false;
}

point middle(const point& start, const point& end) {
  point result;
  for (unsigned k = 0; k < 3; ++k) {
    const auto way = static_cast<float>(double{end[k]} - start[k]);
    result[k] = static_cast<float>(double{start[k]} + double{0.5f * way});
  }
  return result;
}

unsigned cut_edge(osg_geoset& set, std::size_t element, unsigned line_value) {
  named_points points = named_corners(set, element);
  if (line_value == 0) {
    const auto length = [&](const edge& e) { return (points[e.to] - points[e.from]).length(); };
    line_value = last_largest({length({P0, P1}), length({P1, P2}), length({P2, P0})}) + 1;
    if (line_value > 3) line_value = 0;
  }
  if (line_value < 1 || line_value > 3) {
    std::cout << "Error in Geoset::splitElementInTwoParts(). Linevalue: " << line_value
              << std::endl;
    return 0;
  }
  const cut_row& row = middle_of_edge[line_value - 1];
  points[S] = middle(points[row.edges[0].from], points[row.edges[0].to]);
  return apply(set, element, row, points);
}

/// Starts a cut; false if there can be none.
template <class Set>
bool can_cut(const Set& set, std::size_t element, unsigned axis, unsigned& added,
             std::size_t& first) {
  added = 0;
  first = set.num_objects;
  return !set.not_enlargeable && element < set.num_objects && axis < 3;
}

}  // namespace

// --- Triangles -----------------------------------------------------------------------------------

bool osg_geoset::calcSplitPoint(const double a[3], const double b[3], double plane, int axis,
                                double out[3]) {
  point3d made;
  if (axis < 0 || axis > 2 ||
      !split_point_of(*this, {a[0], a[1], a[2]}, {b[0], b[1], b[2]}, plane,
                      static_cast<unsigned>(axis), made))
    return false;
  std::copy(made.begin(), made.end(), out);
  return true;
}

void osg_geoset::SplitElement(std::size_t element, double plane, unsigned axis, unsigned& added,
                              std::size_t& first) {
  if (can_cut(*this, element, axis, added, first))
    added = cut_at_plane(*this, element, plane, axis);
}

void osg_geoset::splitElementInTwoParts(std::size_t element, unsigned& added, std::size_t& first,
                                        unsigned lineValue, bool forceAxis) {
  if (!can_cut(*this, element, 0, added, first)) return;
  std::array<float, 3> extents;
  for (int axis = 0; axis < 3; ++axis) extents[axis] = high(element, axis) - low(element, axis);
  if (!forceAxis && !is_elongated(extents)) {
    added = cut_edge(*this, element, lineValue);
  } else if (const unsigned axis = last_largest(extents); axis < 3) {
    const double plane = low(element, static_cast<int>(axis)) + extents[axis] * 0.5;
    added = cut_at_plane(*this, element, plane, axis);
  }
}

// --- Lines ---------------------------------------------------------------------------------------

bool osg_line_geoset::calcSplitPoint(const double a[3], const double b[3], double plane, int axis,
                                     double out[3]) {
  point3d made;
  if (axis < 0 || axis > 2 ||
      !split_edge({a[0], a[1], a[2]}, {b[0], b[1], b[2]}, plane, static_cast<unsigned>(axis), made,
                  "Morlu::osg::osg_line_geoset"))
    return false;
  std::copy(made.begin(), made.end(), out);
  return true;
}

void osg_line_geoset::SplitElement(std::size_t element, double plane, unsigned axis,
                                   unsigned& added, std::size_t& first) {
  if (!can_cut(*this, element, axis, added, first)) return;
  const auto ends = positions_of(*this, element);
  point3d made;
  if (!split_edge(wide(ends[0]), wide(ends[1]), plane, axis, made, "Morlu::osg::osg_line_geoset"))
    return;
  if (!append_piece(*this, {ends[0], narrow(made)}, element)) return;
  replace_by_piece(*this, {narrow(made), ends[1]}, element);
  added = 1;
}

}  // namespace morlu::osg
