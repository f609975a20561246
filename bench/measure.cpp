#include "bench/figure.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace morlu::bench {
namespace {

std::vector<figure>& registry() {
  static std::vector<figure> figures;
  return figures;
}

// Keeps the one time that a benchmark run reports, in seconds, and prints nothing.
class capture : public benchmark::BenchmarkReporter {
 public:
  double seconds_a_run = 0;

  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) throw std::runtime_error(run.error_message);
      seconds_a_run = run.real_accumulated_time / static_cast<double>(run.iterations);
    }
  }
};

void timed_runs(benchmark::State& state, const contender& side) {
  using clock = std::chrono::steady_clock;
  for (auto iteration : state) {
    static_cast<void>(iteration);
    if (side.prepare) side.prepare();
    const clock::time_point start = clock::now();
    side.run();
    const double passed = std::chrono::duration<double>(clock::now() - start).count();
    state.SetIterationTime(side.took ? side.took() : passed);
  }
}

double time_once(const contender& side, double seconds) {
  benchmark::ClearRegisteredBenchmarks();
  benchmark::RegisterBenchmark("side",
                               [&side](benchmark::State& state) { timed_runs(state, side); })
      ->UseManualTime()
      ->MinTime(seconds);
  capture reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter, "all");
  return reporter.seconds_a_run;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double units_a_second(const std::string& unit) {
  if (unit == "s") return 1;
  if (unit == "ms") return 1e3;
  if (unit == "us") return 1e6;
  if (unit == "ns") return 1e9;
  throw std::invalid_argument("a figure without work needs a unit of time, not '" + unit + "'");
}

struct side_samples {
  std::vector<double> seconds;
  std::string fault;

  void take(const contender& side, double min_seconds) {
    if (side.run) seconds.push_back(time_once(side, min_seconds));
    if (fault.empty()) fault = side.fault ? side.fault() : "no check of the result";
  }
  double reported(const contender& side, const contest& match, const std::string& unit) const {
    if (side.value) return side.value();
    const double time = median(seconds);
    return match.work > 0 ? match.work / time : time * units_a_second(unit);
  }
};

}  // namespace

registration::registration(std::vector<figure> figures) {
  for (figure& one : figures) registry().push_back(std::move(one));
}

std::vector<figure> registered_figures() {
  std::vector<figure> figures = registry();
  std::sort(figures.begin(), figures.end(),
            [](const figure& a, const figure& b) { return a.name() < b.name(); });
  return figures;
}

row measure(const figure& chosen, int repetitions, double seconds) {
  const contest match = chosen.open();
  side_samples ours;
  side_samples theirs;
  for (int repetition = 0; repetition < repetitions; ++repetition) {
    ours.take(match.ours, seconds);
    if (match.peer) theirs.take(*match.peer, seconds);
  }
  row measured{chosen, {}, ours.reported(match.ours, match, chosen.unit), 0, 0, ours.fault};
  if (match.peer) {
    measured.peer = match.peer->name;
    measured.theirs = theirs.reported(*match.peer, match, chosen.unit);
    const bool more_is_better = match.work > 0 && !match.ours.value;
    measured.ratio =
        more_is_better ? measured.ours / measured.theirs : measured.theirs / measured.ours;
    if (measured.fault.empty() && !theirs.fault.empty())
      measured.fault = match.peer->name + ": " + theirs.fault;
  }
  return measured;
}

}  // namespace morlu::bench
