#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace morlu::bench {

/// One side of a comparison. State shared by the callables lives in their captures.
struct contender {
  std::string name = {};               // the peer's name; empty for ours
  std::function<void()> prepare = {};  // before every timed run, itself not timed; may be empty
  std::function<void()> run = {};      // what is timed
  std::function<double()> took =
      {};  // after every timed run: its seconds by an account of its own, in place of the clock's
  std::function<std::string()> fault =
      {};  // after the runs: what is wrong with the result, "" if right
  std::function<double()> value =
      {};  // in place of the time: a size, a miss rate (lower is better)
};

/// What opening a figure gives: both sides over the same input.
struct contest {
  contender ours;
  std::optional<contender> peer = {};
  double work =
      0;  // amount a run gets through, in the numerator of the unit; 0: the unit is a time
};

/// One row of the table. A unit of time ("s", "ms", "us", "ns") reports the time of a run, any
/// other unit with `work` reports work a second, and a contender with `value` reports that value.
struct figure {
  std::string area;               // "iterators"
  std::string scene;              // "grid 10M"
  std::string metric;             // "walk positions"
  std::string unit;               // "ms", "Mcorner/s", "MB"
  std::function<contest()> open;  // builds the input; called once, only if the figure is chosen

  std::string name() const { return area + "/" + scene + "/" + metric; }
};

struct row {
  figure of;
  std::string peer;  // empty: none
  double ours = 0;   // medians over the repetitions
  double theirs = 0;
  double ratio = 0;   // above 1: ours is ahead; 0 without a peer
  std::string fault;  // a wrong result; the row then does not count
};

/// Adds figures before main() runs; put one at the end of each file:
///   const registration figures({{"area", "scene", "metric", "ms", open_scene}, ...});
struct registration {
  explicit registration(std::vector<figure> figures);
};

/// All figures, ordered by name.
std::vector<figure> registered_figures();

/// Measures both sides in turn, `repetitions` times each, and takes the medians. Google Benchmark
/// chooses the number of runs a repetition, so that short runs are measured over `seconds` or more.
row measure(const figure& chosen, int repetitions, double seconds);

/// One line of the table; the heading comes from table_heading().
std::string table_line(const row& measured);
std::string table_heading();

/// The rows as JSON: area, scene, metric, unit, ours, peer, theirs, ratio.
std::string json_text(const std::vector<row>& rows);

}  // namespace morlu::bench
