// Putting triangles in cache order, and the misses that are left.

#include <array>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "bench/figure.h"
#include "finishing/cache_order.h"

#ifdef MORLU_BENCH_MESHOPTIMIZER
#include <meshoptimizer.h>
#endif

namespace {

using morlu::bench::contender;
using morlu::bench::contest;

struct order_recorder {
  std::vector<std::uint32_t> order;
  bool is_full() const { return false; }
  void open() {}
  void add(std::uint32_t triangle) { order.push_back(triangle); }
};

/// A sheet of squares, row by row or in any order.
std::vector<std::uint32_t> sheet_corners(std::uint32_t side, bool shuffled) {
  std::vector<std::array<std::uint32_t, 3>> triangles;
  const std::uint32_t row = side + 1;
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t at = y * row + x;
      triangles.push_back({at, at + 1, at + row});
      triangles.push_back({at + 1, at + row + 1, at + row});
    }
  std::mt19937 random(1);
  for (std::size_t i = triangles.size(); shuffled && i > 1; --i)
    std::swap(triangles[i - 1], triangles[random() % i]);
  std::vector<std::uint32_t> corners;
  for (const auto& each : triangles) corners.insert(corners.end(), each.begin(), each.end());
  return corners;
}

contest open_order(bool shuffled, bool misses) {
  constexpr std::uint32_t side = 700, vertices = (side + 1) * (side + 1);
  const auto corners = std::make_shared<std::vector<std::uint32_t>>(sheet_corners(side, shuffled));
  const auto ours = std::make_shared<order_recorder>();
  contest result;
  result.work = misses ? 0 : static_cast<double>(corners->size()) / 3e6;
  result.ours = {
      .run =
          [=] {
            ours->order.clear();
            morlu::osg::cache_order<3>(*corners, vertices).run(*ours);
          },
      .fault =
          [=] { return ours->order.size() * 3 == corners->size() ? "" : "triangles are lost"; }};
#ifdef MORLU_BENCH_MESHOPTIMIZER
  const auto theirs = std::make_shared<std::vector<std::uint32_t>>(corners->size());
  const auto order_theirs = [=] {
    meshopt_optimizeVertexCache(theirs->data(), corners->data(), corners->size(), vertices);
  };
  result.peer = contender{.name = "meshoptimizer", .run = order_theirs, .fault = [=] {
                            const auto sum = [](const std::vector<std::uint32_t>& of) {
                              return std::accumulate(of.begin(), of.end(), std::uint64_t{0});
                            };
                            return sum(*theirs) == sum(*corners) ? "" : "triangles are lost";
                          }};
  if (misses) {
    const auto misses_of = [](const std::vector<std::uint32_t>& of) {
      constexpr unsigned cache_size = 32;
      return double{
          meshopt_analyzeVertexCache(of.data(), of.size(), vertices, cache_size, 0, 0).acmr};
    };
    result.ours.value = [=, order_ours = result.ours.run] {
      order_ours();
      std::vector<std::uint32_t> ordered;
      for (const std::uint32_t triangle : ours->order)
        ordered.insert(ordered.end(), &(*corners)[3 * triangle], &(*corners)[3 * triangle] + 3);
      return misses_of(ordered);
    };
    result.peer->value = [=] {
      order_theirs();
      return misses_of(*theirs);
    };
  }
#endif
  return result;
}

const morlu::bench::registration figures({
    {"cache order", "sheet 1M", "order", "Mtri/s", [] { return open_order(false, false); }},
    {"cache order", "shuffled sheet 1M", "order", "Mtri/s", [] { return open_order(true, false); }},
#ifdef MORLU_BENCH_MESHOPTIMIZER
    {"cache order", "sheet 1M", "misses", "ACMR", [] { return open_order(false, true); }},
    {"cache order", "shuffled sheet 1M", "misses", "ACMR", [] { return open_order(true, true); }},
#endif
});

}  // namespace
