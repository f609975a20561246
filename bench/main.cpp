// The benchmark program: measures the figures whose name matches, prints a table, writes JSON.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <regex>

#include "bench/figure.h"

namespace {

using namespace morlu::bench;

std::vector<figure> chosen_figures(const std::string& filter) {
  const std::regex pattern(filter);
  std::vector<figure> chosen;
  for (const figure& one : registered_figures())
    if (std::regex_search(one.name(), pattern)) chosen.push_back(one);
  return chosen;
}

int run(const std::string& filter, const std::string& json_path, int repetitions, double seconds) {
  std::vector<row> rows;
  bool all_right = true;
  std::printf("%s\n", table_heading().c_str());
  for (const figure& one : chosen_figures(filter)) {
    rows.push_back(measure(one, repetitions, seconds));
    all_right = all_right && rows.back().fault.empty();
    std::printf("%s\n", table_line(rows.back()).c_str());
    std::fflush(stdout);
  }
  if (!json_path.empty()) {
    std::ofstream out(json_path);
    out << json_text(rows);
    if (!out.flush()) {
      std::fprintf(stderr, "error: cannot write '%s'\n", json_path.c_str());
      return 4;
    }
  }
  if (rows.empty()) std::fprintf(stderr, "error: no figure matches '%s'\n", filter.c_str());
  return all_right && !rows.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Measures morlu, side by side with its peers");
  std::string filter = ".";
  std::string json_path;
  int repetitions = 5;
  double seconds = 0.2;
  bool list = false;
  app.add_option("--filter", filter, "Only figures area/scene/metric that match this expression");
  app.add_option("--json", json_path, "Write the rows to this file");
  app.add_option("--repetitions", repetitions, "Measurements a side, of which the median counts")
      ->check(CLI::Range(5, 1000));
  app.add_option("--min-time", seconds, "Least seconds a measurement");
  app.add_flag("--list", list, "Only name the figures");
  CLI11_PARSE(app, argc, argv);
  try {
    if (!list) return run(filter, json_path, repetitions, seconds);
    for (const figure& one : chosen_figures(filter)) std::printf("%s\n", one.name().c_str());
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "error: %s\n", failure.what());
    return 1;
  }
}
