// morlu info: what scenes are made of, as a table or as JSON.
#include <iostream>
#include <memory>

#include <nlohmann/json.hpp>

#include "cli.h"
#include "result_json.h"
#include "scene_report.h"
#include "text_table.h"

namespace morlu::program {
namespace {

using nlohmann::ordered_json;

struct Options {
  std::vector<std::string> files;
  bool json = false;
};

void print_reports(const std::vector<FileReport>& reports, bool as_array) {
  ordered_json json = ordered_json::array();
  for (const FileReport& report : reports) json.push_back(to_json(report));
  if (!as_array) json = json.at(0);
  print_json(json);
}

TextTable::Column to_column(const FileReport& report) {
  const SceneStats& stats = report.stats;
  TextTable::Column column{report.file, {}};
  for (const Figure& figure : figures()) column.cells.push_back(grouped(stats.*figure.value));
  const auto acmr = stats.acmr();
  column.cells.push_back(acmr ? decimal("%.3f", *acmr) : "-");
  for (unsigned axis = 0; axis < 3; ++axis) {
    for (const auto side : {&Box::min, &Box::max}) {
      column.cells.push_back(stats.bounds ? decimal("%.6g", (*stats.bounds.*side)[axis]) : "-");
    }
  }
  return column;
}

void print_table(const std::vector<FileReport>& reports) {
  TextTable table;
  for (const Figure& figure : figures()) table.labels.push_back(figure.label);
  table.labels.insert(table.labels.end(),
                      {"cache misses a triangle", "x from", "to", "y from", "to", "z from", "to"});
  for (const FileReport& report : reports) table.columns.push_back(to_column(report));
  table.print(std::cout);
}

// A file that can't be read doesn't keep the others from being shown.
void info(const Options& options) {
  std::vector<FileReport> reports;
  for (const std::string& file : options.files) {
    try {
      reports.push_back(report_on(file));
    } catch (const Failure& failure) {
      if (options.files.size() == 1) throw;
      say(failure.what());
    }
  }
  if (options.json) {
    print_reports(reports, options.files.size() > 1);
  } else {
    print_table(reports);
    for (const FileReport& report : reports) {
      for (const std::string& warning : report.stats.warnings)
        say("warning: " + report.file + ": " + warning);
    }
  }
  if (const auto failed = options.files.size() - reports.size()) {
    throw Failure(unreadable_input, std::to_string(failed) + " of " +
                                        std::to_string(options.files.size()) +
                                        " files could not be read");
  }
}

}  // namespace

void add_info_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("info", "Show what scenes are made of");
  command->add_option("FILE", options->files, "Files to read: " + readable_suffixes())
      ->type_name("")
      ->required();
  command->add_flag("--json", options->json,
                    "Print JSON: an object for one file, an array for several");
  command->footer(
      "Triangles, lines and points count every place where a core is drawn; vertices, index\n"
      "entries and cache misses (on a FIFO of 32 vertices) count each core once. A triangle is\n"
      "unusable if corners coincide, it is a line along an axis, or a coordinate is beyond 1e12\n"
      "or no number.\n"
      "Examples:\n"
      "  morlu info plant.glb\n"
      "  morlu info before.osb after.osb       side by side\n"
      "  morlu info --json plant.glb | jq .triangles");
  command->callback([options] { info(*options); });
}

}  // namespace morlu::program
