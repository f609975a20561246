// Greedy triangle strips.
//
// The start rule, the free triangle with the fewest free neighbours first, is that of K. Akeley,
// P. Haeberli and D. Burns (1990). From there the strip runs on in the best of the three
// directions, and, different from theirs, to both sides. Neighbours are found by one hash look-up
// an edge; with the best of three equally costly attempts taken, the time is linear.
//
//      v1------v3------v5         The strip v0 v1 v2 ... leaves even triangles by the edge after
//      / \ odd / \     /          the one it came in by, odd ones by the edge before it; its other
//     /   \   /   \   /           end does the same the other way round.
//    / even\ / even\ /
//   v0------v2------v4

#include "triangle_strips.h"

#include <algorithm>
#include <array>

#include "key_table.h"

namespace osg::detail {

namespace {

constexpr UInt32 kNone = ~UInt32{0};
constexpr UInt32 kShortest = 3;  // triangles; a strip of two isn't worth a primitive of its own

// Half-edge h runs from corner h to the next corner of its triangle, h / 3.
UInt32 next_in_triangle(UInt32 h) {
  return h % 3 == 2 ? h - 2 : h + 1;
}
UInt32 previous_in_triangle(UInt32 h) {
  return h % 3 == 0 ? h + 2 : h - 1;
}

bool is_flat(std::span<const UInt32> v, UInt32 t) {
  return v[3 * t] == v[3 * t + 1] || v[3 * t + 1] == v[3 * t + 2] || v[3 * t + 2] == v[3 * t];
}

/// For each half-edge one of the other direction in another triangle, or kNone. Where more than two
/// triangles meet, later ones pair with what is still free.
std::vector<UInt32> pair_half_edges(std::span<const UInt32> vertices) {
  std::vector<UInt32> twins(vertices.size(), kNone);
  std::vector<UInt32> below(vertices.size());       // stacks of the half-edges without twin
  std::vector<std::array<UInt32, 2>> open_of_edge;  // their tops, one a direction
  const auto ends = [&](UInt32 h) {
    return std::array{vertices[h], vertices[next_in_triangle(h)]};
  };
  number_keys(
      std::integral_constant<std::size_t, 2>{}, vertices.size(),
      [&](std::size_t h, UInt32* key) {
        const auto [a, b] = ends(static_cast<UInt32>(h));
        key[0] = std::min(a, b);
        key[1] = std::max(a, b);
      },
      [&](std::size_t item, UInt32 edge, bool fresh) {
        const auto h = static_cast<UInt32>(item);
        if (fresh) open_of_edge.push_back({kNone, kNone});
        if (is_flat(vertices, h / 3)) return;
        const auto [a, b] = ends(h);
        UInt32& opposite = open_of_edge[edge][a > b];
        if (opposite == kNone) {
          UInt32& own = open_of_edge[edge][a < b];
          below[h] = own;
          own = h;
          return;
        }
        twins[h] = opposite;
        twins[opposite] = h;
        opposite = below[opposite];
      });
  return twins;
}

class StripBuilder {
 public:
  explicit StripBuilder(std::span<const UInt32> vertices)
      : triangle_count_(static_cast<UInt32>(vertices.size() / 3)),
        twins_(pair_half_edges(vertices)),
        taken_(triangle_count_),
        seen_(triangle_count_) {}

  TriangleStrips build() {
    for (UInt32 t = 0; t < triangle_count_; ++t) queue(t);
    for (UInt32 t = pop(); t != kNone; t = pop()) start_from(t);
    for (UInt32 t = 0; t < triangle_count_; ++t)
      if (!in_strip(t)) result_.rest.push_back(t);
    return std::move(result_);
  }

 private:
  enum : UInt8 { Free, Rest, InStrip };

  /// A strip through a start triangle, by the half-edges that it comes into the other ones by.
  struct Run {
    std::vector<UInt32> before;  // from the start backwards
    std::vector<UInt32> after;   // from the start onwards
    UInt32 exit = kNone;         // of the start, to `after`
    std::size_t size() const { return before.size() + 1 + after.size(); }
  };

  bool in_strip(UInt32 t) const { return taken_[t] == InStrip; }

  // --- Which triangle is next: lists by number of free neighbours, with outdated entries
  // ----------

  UInt32 free_neighbours(UInt32 t) const {
    UInt32 count = 0;
    for (UInt32 h = 3 * t; h < 3 * t + 3; ++h)
      count += twins_[h] != kNone && taken_[twins_[h] / 3] == Free;
    return count;
  }
  void queue(UInt32 t) { waiting_[free_neighbours(t)].push_back(t); }
  UInt32 pop() {
    for (UInt32 count = 0; count < 4; ++count) {
      for (std::size_t& head = heads_[count]; head < waiting_[count].size();) {
        const UInt32 t = waiting_[count][head++];
        if (taken_[t] == Free && free_neighbours(t) == count) return t;
      }
    }
    return kNone;
  }
  void take(UInt32 t, UInt8 as) {
    taken_[t] = as;
    for (UInt32 h = 3 * t; h < 3 * t + 3; ++h)
      if (twins_[h] != kNone && taken_[twins_[h] / 3] == Free) queue(twins_[h] / 3);
  }

  // --- Runs
  // ----------------------------------------------------------------------------------------

  /// Half-edges by which a strip comes into one triangle after the other, when it leaves the first
  /// by `exit`. `forward`: it leaves the second by the half-edge before, the third by the one
  /// after, and so on; else the other way round.
  void follow(UInt32 exit, bool forward, std::vector<UInt32>& entries) {
    for (bool turn = forward;; turn = !turn) {
      const UInt32 entry = twins_[exit];
      if (entry == kNone || taken_[entry / 3] != Free || seen_[entry / 3] == attempt_) return;
      seen_[entry / 3] = attempt_;
      entries.push_back(entry);
      exit = turn ? previous_in_triangle(entry) : next_in_triangle(entry);
    }
  }

  void try_run(UInt32 t, UInt32 exit, Run& run) {
    run.exit = exit;
    run.before.clear();
    run.after.clear();
    seen_[t] = ++attempt_;
    follow(exit, true, run.after);
    follow(previous_in_triangle(exit), false, run.before);
    // With a triangle at odd distance before the start the strip would face the other way. Turned
    // round it is right if its number of triangles is odd.
    if (run.before.size() % 2 == 1 && run.size() % 2 == 0) run.before.pop_back();
  }

  void start_from(UInt32 t) {
    Run* best = &runs_[0];
    for (UInt32 k = 0; k < 3; ++k) {
      try_run(t, 3 * t + k, runs_[k]);
      if (runs_[k].size() > best->size()) best = &runs_[k];
    }
    if (best->size() < kShortest)
      take(t, Rest);
    else
      emit(t, *best);
  }

  /// A strip's vertices: those that triangles before the start bring in, the three of the start,
  /// those that triangles after it bring in. A triangle brings in the vertex across from its entry.
  void emit(UInt32 t, const Run& run) {
    const std::size_t first = result_.corners.size();
    for (std::size_t k = run.before.size(); k-- > 0;)
      result_.corners.push_back(previous_in_triangle(run.before[k]));
    for (const UInt32 h : {previous_in_triangle(run.exit), run.exit, next_in_triangle(run.exit)})
      result_.corners.push_back(h);
    for (const UInt32 entry : run.after) result_.corners.push_back(previous_in_triangle(entry));
    if (run.before.size() % 2 == 1)
      std::reverse(result_.corners.begin() + static_cast<std::ptrdiff_t>(first),
                   result_.corners.end());
    result_.lengths.push_back(static_cast<UInt32>(result_.corners.size() - first));

    taken_[t] = InStrip;  // all of them before neighbours are counted anew
    for (const auto* entries : {&run.before, &run.after})
      for (const UInt32 entry : *entries) taken_[entry / 3] = InStrip;
    take(t, InStrip);
    for (const auto* entries : {&run.before, &run.after})
      for (const UInt32 entry : *entries) take(entry / 3, InStrip);
  }

  const UInt32 triangle_count_;
  const std::vector<UInt32> twins_;
  std::vector<UInt8> taken_;
  std::vector<UInt32> seen_;  // last attempt that came by
  UInt32 attempt_ = 0;        // at most three a triangle
  std::array<Run, 3> runs_;
  std::array<std::vector<UInt32>, 4> waiting_;
  std::array<std::size_t, 4> heads_{};
  TriangleStrips result_;
};

}  // namespace

TriangleStrips build_strips(std::span<const UInt32> vertices) {
  return StripBuilder(vertices).build();
}

}  // namespace osg::detail
