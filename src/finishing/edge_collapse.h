#pragma once

#include <osg/vector.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace morlu::osg {

/// The least of many costs that change, of equal ones the first: a tournament among neighbours, in
/// which the left one wins a tie.
class least_cost {
 public:
  explicit least_cost(std::size_t places);

  /// NaN, infinity and the largest double count as no cost, which all places have at first.
  /// O(log places) time, mostly far less.
  void set(std::size_t place, double cost);
  bool has_any() const { return winners_[1] < none; }
  /// Of the least one; there must be one.
  std::size_t place() const;

 private:
  static constexpr double none = std::numeric_limits<double>::infinity();

  std::size_t places_;           // a power of two
  std::vector<double> winners_;  // the first round from `places_` on, the last one at 1
};

/// Corners that go from vertex to vertex, all those of a vertex at once.
class vertex_moves {
 public:
  explicit vertex_moves(std::size_t vertices);

  /// All corners at `from` go to `to`.
  void move_all(std::uint32_t from, std::uint32_t to);
  /// Where those have come to that were at `first` in the beginning. O(log vertices) on average.
  std::uint32_t place_of(std::uint32_t first);

 private:
  static constexpr std::uint32_t nobody = ~std::uint32_t{0};

  std::vector<std::uint32_t> group_at_;  // of each vertex, `nobody` where no corners are left
  std::vector<std::uint32_t> joined_;    // a group's group, itself if it has not joined another
  std::vector<std::uint32_t> place_;     // of a group that has not
};

/// Triangles whose edges collapse one by one, the cheapest first.
///
/// An edge stands for a corner and the next one of its triangle; what triangles share stands there
/// twice. It costs its length plus the corners that its two vertices are counted for. A collapse
/// moves the vertex it starts from to the edge's middle, gives it the corners of the other one and
/// what that is counted for, but one. Edges keep their vertices: one whose vertex has lost its
/// corners is still there, and where that vertex stands has not changed.
class edge_collapse {
 public:
  using point = ::osg::Pnt3f;

  /// `corners`: three a triangle, each a vertex of `positions`; fewer than 2^32. Both must stay
  /// while this lives. O(corners) time and about 45 bytes a corner; nothing later needs memory.
  edge_collapse(std::span<point> positions, std::span<std::uint32_t> corners);

  /// That corners use.
  std::size_t vertices() const { return vertices_; }
  /// That have not collapsed.
  std::size_t edges() const { return edges_; }

  /// Collapses the cheapest edge, of equally cheap ones the first, but for the very first time,
  /// when it is the first. Where no edge has a finite cost it is the next one behind the last to
  /// collapse, or if there is none, the last of all. Returns its corner. There must be an edge.
  std::uint32_t collapse_next();

  /// Gives the corners their new vertices; nothing may follow.
  void write_corners();

 private:
  std::uint32_t start_of(std::uint32_t edge) const { return corners_[edge]; }
  std::uint32_t end_of(std::uint32_t edge) const {
    return corners_[edge % 3 == 2 ? edge - 2 : edge + 1];
  }
  double cost_of(std::uint32_t edge) const;
  void list_edges();
  std::uint32_t choose();
  void renew_costs(std::uint32_t vertex);

  std::span<point> positions_;
  std::span<std::uint32_t> corners_;
  std::size_t vertices_ = 0, edges_;
  std::vector<std::uint64_t> uses_;  // corners that a vertex is counted for
  std::vector<bool> collapsed_;
  std::uint32_t last_ = 0;               // the last to collapse
  std::uint32_t end_;                    // no edge is left from here on
  std::vector<std::size_t> list_begin_;  // of each vertex
  std::vector<std::size_t> list_end_;
  std::vector<std::uint32_t> lists_;  // the edges of each vertex that have not collapsed
  least_cost costs_;
  vertex_moves moves_;
};

}  // namespace morlu::osg
