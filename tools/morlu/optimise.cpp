// morlu optimise: a scene that draws in few calls.
#include <sys/resource.h>

#include <charconv>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "atlas_mix_ups.h"
#include "cli.h"
#include "feature_ids.h"
#include "loss_watch.h"
#include "morlu/optimiser.h"
#include "output_to_error.h"
#include "result_json.h"
#include "scene_report.h"
#include "text_table.h"
#include "texture_use.h"

namespace morlu::program {
namespace {

using nlohmann::ordered_json;
using ::osg::NodePtr;

struct Options {
  std::string in, out, report;
  // Pieces that are small enough to be culled, large enough to be few.
  // Texture coordinates stay: shifted by whole numbers, textures that clamp or mirror look
  // different.
  std::string params = "opt(1),maxtris(5000),optimizetc(0)";
  bool json = false, table = false, strict_id_map = false;

  bool wants_figures() const { return json || table || !report.empty(); }
};

struct Seconds {
  double read = 0, optimise = 0, write = 0;
};

struct Results {
  FileReport input, output;
  std::string params;
  Seconds seconds;
  std::uint64_t peak_memory_bytes = 0;
};

template <class Work>
auto timed(double& seconds, const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  auto result = work();
  seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

std::uint64_t peak_memory() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

/// Name of the id map that the strict file is made of; none is asked for without it.
std::optional<std::string> strict_name(const Options& options) {
  if (!options.strict_id_map) return {};
  const auto name = osg::findOptParam(options.params, "idmap");
  if (!name || name->empty())
    throw Failure(wrong_usage, "--idmap-strict needs a name: idmap(NAME) in --params");
  return name;
}

bool has_textures_without_base(const NodePtr& scene) {
  std::vector<NodePtr> nodes;
  osg::getGeometryNodes(scene, nodes, true);
  for (const NodePtr& node : nodes)
    if (use_of_textures(material_of(node)) == TextureUse::other) return true;
  return false;
}

/// Coordinates of a normal map would count as unused where the base colour has no texture.
std::string params_for(const NodePtr& scene, const std::string& params) {
  if (params.empty() || osg::findOptParam(params, "deleteunusedtc")) return params;
  return has_textures_without_base(scene) ? params + ",deleteunusedtc(0)" : params;
}

NodePtr optimised(const NodePtr& scene, const std::string& params) {
  const OutputToError messages_aside;
  return osg::optTree(scene, params);
}

ordered_json to_json(const Results& results) {
  const Seconds& seconds = results.seconds;
  return {{"schema", json_schema},
          {"input", to_json(results.input)},
          {"output", to_json(results.output)},
          {"params", results.params},
          {"seconds",
           {{"read", seconds.read}, {"optimise", seconds.optimise}, {"write", seconds.write}}},
          {"peak_memory_bytes", results.peak_memory_bytes}};
}

TextTable::Column to_column(const FileReport& report) {
  const SceneStats& stats = report.stats;
  const auto acmr = stats.acmr();
  std::error_code no_size;
  const std::uintmax_t bytes = std::filesystem::file_size(report.file, no_size);
  return {report.file,
          {grouped(stats.geometry_nodes), grouped(stats.cores), grouped(stats.triangles),
           grouped(stats.vertices), grouped(stats.index_entries),
           acmr ? decimal("%.3f", *acmr) : "-", no_size ? "-" : grouped(bytes)}};
}

void print_table(const Results& results) {
  TextTable table;
  table.labels = {"draw calls",    "geometry cores",          "triangles", "vertices of cores",
                  "index entries", "cache misses a triangle", "file bytes"};
  table.columns = {to_column(results.input), to_column(results.output)};
  table.print(std::cout);
  const Seconds& seconds = results.seconds;
  std::cout << "seconds: read " << decimal("%.3f", seconds.read) << ", optimise "
            << decimal("%.3f", seconds.optimise) << ", write " << decimal("%.3f", seconds.write)
            << "; peak memory " << size_text(results.peak_memory_bytes) << '\n';
}

void show(const Options& options, const Results& results) {
  if (options.json) print_json(to_json(results));
  if (options.table) print_table(results);
  if (!options.report.empty()) write_json(to_json(results), options.report);
}

unsigned number_of(const std::string& params, const char* option, unsigned otherwise) {
  const auto text = osg::findOptParam(params, option);
  unsigned value = otherwise;
  if (text) std::from_chars(text->data(), text->data() + text->size(), value);
  return value;
}

/// An atlas, where one is made, tells images apart by how they begin. The automated way makes one
/// of what it finds; with a size for pages it is known that only images stay. Without pages it is
/// the merge that shifts coordinates.
void warn_of_textures(const NodePtr& scene, const Options& options) {
  if (options.params.empty()) {  // the automated way
    warn_of_mix_ups(scene, options.in, 4096, 2);
    warn_of_richer_materials(scene, options.in);
    return;
  }
  const std::string& params = options.params;
  const bool merges = number_of(params, "maxtris", 0) > 0 || osg::findOptParam(params, "cacheopt");
  if (const unsigned max_size = number_of(params, "maxtexturesize", 0); max_size > 0)
    warn_of_mix_ups(scene, options.in, max_size, number_of(params, "texcoords", 2));
  else if (merges && number_of(params, "optimizetc", 2) > 0)
    warn_of_shifts(scene, options.in);
}

/// Tells what the scene has lost; true if part of the work is missing.
bool tell_losses(const LossWatch& before, const NodePtr& result) {
  for (const std::string& loss : before.losses(result)) say("warning: " + loss);
  return before.is_incomplete(result);
}

void warn_of_params(const std::string& params) {
  for (const auto& [token, reason] : osg::checkOptParams(params))
    say("warning: --params: '" + token + "' " + reason);
}

NodePtr read_input(const Options& options, Results& results) {
  LoadedScene scene = timed(results.seconds.read, [&] { return load_scene(options.in); });
  say_warnings(scene, options.in);
  if (options.wants_figures()) results.input = report_on(options.in, scene);
  return scene.root;
}

void write_output(const NodePtr& scene, const Options& options, Results& results) {
  timed(results.seconds.write, [&] {
    save_scene(scene, options.out);
    return true;
  });
  say_written(options.out);
}

/// Why nothing may be left.
const char* reason_of(const std::string& params) {
  if (osg::findOptParam(params, "buildhullwithcolors"))
    return "; buildhullwithcolors(1) needs vertex colours, as ambientocclusion(N) bakes them";
  return osg::takesGeometryAway(params) ? "" : ": all of it is unusable or takes no part";
}

/// The scene in few draw calls, in a file. True if parts of it are missing.
bool optimise_file(const Options& options, Results& results) {
  const NodePtr scene = read_input(options, results);
  results.params = params_for(scene, options.params);
  warn_of_textures(scene, options);
  const LossWatch before(scene);
  const NodePtr result =
      timed(results.seconds.optimise, [&] { return optimised(scene, results.params); });
  if (!result) throw Failure(work_failed, options.in + ": the optimisation has no result");
  const bool may_lose = result == scene || osg::takesGeometryAway(results.params);
  const bool is_incomplete = !may_lose && tell_losses(before, result);
  if (before.is_nothing_left(result))
    throw Failure(work_failed, options.in + ": nothing would be left" + reason_of(results.params));
  mark_feature_ids(result);
  write_output(result, options, results);
  results.peak_memory_bytes = peak_memory();
  return is_incomplete;
}

void optimise(const Options& options) {
  const auto strict = strict_name(options);
  expect_writable(options.out);
  if (!options.report.empty()) expect_folder_of(options.report);
  if (const auto map = osg::findOptParam(options.params, "idmap"); map && !map->empty())
    expect_folder_of(*map + ".json");
  warn_of_params(options.params);

  Results results;
  const bool is_incomplete = optimise_file(options, results);
  if (strict && !osg::writeStrictIdMap(*strict))
    throw Failure(unwritable_output, *strict + ".strict.json: cannot be written");
  if (options.wants_figures()) {
    results.output = report_on(options.out);
    show(options, results);
  }
  if (is_incomplete)
    throw Failure(work_failed, "the optimisation did not come to its end: parts are missing");
}

}  // namespace

void add_optimise_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand(
      "optimise", "Merge the parts of a scene, so that it draws in few calls");
  command->alias("optimize");
  add_input(*command, "IN", options->in);
  add_output(*command, "-o,--output", options->out);
  command->add_option("--params", options->params, "What to do, as name(value), between commas")
      ->type_name("TEXT")
      ->capture_default_str();
  auto* json =
      command->add_flag("--json", options->json, "Print what went in and what came out as JSON");
  command->add_flag("--table", options->table, "Print it as a table")->excludes(json);
  command->add_option("--report", options->report, "Write that JSON to a file")->type_name("FILE");
  command->add_flag("--idmap-strict", options->strict_id_map,
                    "With idmap(NAME): also write NAME.strict.json, escaped whatever names hold");
  command->footer(
      "Parameters, of which the first of equal names counts:\n" + osg::optTreeDoc() +
      "\nWith idmap(NAME), NAME.json in the working directory tells which source nodes are in\n"
      "which geometry. Progress and warnings go to standard error. deleteunusedtc(0) is added\n"
      "unless it is given, where a material has textures but none for its base colour.\n"
      "The empty text asks for fixed choices: an atlas, a merge by material in cache order.\n"
      "Examples:\n"
      "  morlu optimise plant.fbx -o plant.glb\n"
      "  morlu optimise plant.glb -o few.glb --params 'opt(1),maxtris(5000),idmap(plant)'\n"
      "  morlu optimise plant.osb -o few.osb --table");
  command->callback([options] { optimise(*options); });
}

}  // namespace morlu::program
