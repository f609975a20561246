// Greedy edge collapse to the middle of edges, by length and use of their vertices.
//
// The cost is our own. Looking at all edges for the cheapest, and at all corners to move some,
// would take the square of both; a tournament and joined groups give the same sequence. A collapse
// changes place and count of one vertex only, so that only the costs of its edges change.
#include "finishing/edge_collapse.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

namespace morlu::osg {

// --- The least cost ------------------------------------------------------------------------------

least_cost::least_cost(std::size_t places)
    : places_(std::bit_ceil(places)), winners_(2 * places_, none) {}

void least_cost::set(std::size_t place, double cost) {
  std::size_t at = places_ + place;
  winners_[at] = cost < std::numeric_limits<double>::max() ? cost : none;
  for (at /= 2; at > 0; at /= 2) {
    const double winner = std::min(winners_[2 * at], winners_[2 * at + 1]);
    if (winners_[at] == winner) return;
    winners_[at] = winner;
  }
}

std::size_t least_cost::place() const {
  std::size_t at = 1;
  while (at < places_) at = 2 * at + (winners_[2 * at] == winners_[1] ? 0 : 1);
  return at - places_;
}

// --- Corners on the move -------------------------------------------------------------------------

vertex_moves::vertex_moves(std::size_t vertices)
    : group_at_(vertices), joined_(vertices), place_(vertices) {
  for (auto* all : {&group_at_, &joined_, &place_}) std::iota(all->begin(), all->end(), 0u);
}

void vertex_moves::move_all(std::uint32_t from, std::uint32_t to) {
  const std::uint32_t group = group_at_[from];
  if (from == to || group == nobody) return;
  if (group_at_[to] == nobody)
    group_at_[to] = group;
  else
    joined_[group] = group_at_[to];
  place_[group_at_[to]] = to;
  group_at_[from] = nobody;
}

std::uint32_t vertex_moves::place_of(std::uint32_t first) {
  while (joined_[first] != first) first = joined_[first] = joined_[joined_[first]];
  return place_[first];
}

// --- Collapses -----------------------------------------------------------------------------------

edge_collapse::edge_collapse(std::span<point> positions, std::span<std::uint32_t> corners)
    : positions_(positions),
      corners_(corners),
      edges_(corners.size()),
      uses_(positions.size()),
      collapsed_(corners.size()),
      end_(static_cast<std::uint32_t>(corners.size())),
      list_begin_(positions.size()),
      costs_(corners.size()),
      moves_(positions.size()) {
  for (const std::uint32_t vertex : corners_) vertices_ += uses_[vertex]++ == 0;
  list_edges();
  for (std::uint32_t edge = 0; edge < end_; ++edge) costs_.set(edge, cost_of(edge));
}

/// A vertex is where as many edges start as end: two for each use.
void edge_collapse::list_edges() {
  std::size_t begin = 0;
  for (std::size_t vertex = 0; vertex < uses_.size(); ++vertex) {
    list_begin_[vertex] = begin;
    begin += 2 * uses_[vertex];
  }
  lists_.resize(begin);
  list_end_ = list_begin_;
  for (std::uint32_t edge = 0; edge < end_; ++edge)
    for (const std::uint32_t vertex : {start_of(edge), end_of(edge)})
      lists_[list_end_[vertex]++] = edge;
}

double edge_collapse::cost_of(std::uint32_t edge) const {
  const std::uint32_t start = start_of(edge), end = end_of(edge);
  double squares = 0;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const double way = positions_[start][axis] - positions_[end][axis];
    squares += way * way;
  }
  return std::sqrt(squares) + static_cast<double>(uses_[start]) + static_cast<double>(uses_[end]);
}

/// Once no cost is finite none ever is again: a collapse spreads what is not. So both walks, on
/// from the last edge and back from the end, are made once in all.
std::uint32_t edge_collapse::choose() {
  if (edges_ == corners_.size()) return 0;
  if (costs_.has_any()) return static_cast<std::uint32_t>(costs_.place());
  std::uint32_t edge = last_;
  while (edge < end_ && collapsed_[edge]) ++edge;
  if (edge < end_) return edge;
  while (collapsed_[end_ - 1]) --end_;
  return end_ - 1;
}

std::uint32_t edge_collapse::collapse_next() {
  const std::uint32_t edge = last_ = choose();
  const std::uint32_t start = start_of(edge), end = end_of(edge);
  costs_.set(edge, std::numeric_limits<double>::infinity());
  collapsed_[edge] = true;
  --edges_;
  positions_[start] += (positions_[end] - positions_[start]) * 0.5f;
  moves_.move_all(end, start);
  const std::uint64_t more = uses_[end] - 1;  // a vertex of an edge is counted at least once
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  uses_[start] = more > most - uses_[start] ? most : uses_[start] + more;
  renew_costs(start);
  return edge;
}

void edge_collapse::renew_costs(std::uint32_t vertex) {
  std::size_t kept = list_begin_[vertex];
  for (std::size_t at = kept; at < list_end_[vertex]; ++at) {
    const std::uint32_t edge = lists_[at];
    if (collapsed_[edge]) continue;
    lists_[kept++] = edge;
    costs_.set(edge, cost_of(edge));
  }
  list_end_[vertex] = kept;
}

void edge_collapse::write_corners() {
  for (std::uint32_t& corner : corners_) corner = moves_.place_of(corner);
}

}  // namespace morlu::osg
