// morlu generate: the sample assembly as a file.
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>

#include "cli.h"
#include "sample/sample_assembly.h"

namespace morlu::program {
namespace {

constexpr std::uint32_t most_parts = 10'000'000;
constexpr std::uint32_t most_materials = 100'000;

struct Options {
  std::string out;
  sample::SampleOptions assembly;
  CLI::Option* textures = nullptr;
};

void generate(Options& options) {
  sample::SampleOptions& assembly = options.assembly;
  if (assembly.textures > assembly.materials) {
    if (options.textures->count() > 0)
      throw Failure(wrong_usage, "--textures must not be above --materials");
    assembly.textures = assembly.materials;
  }
  expect_writable(options.out);
  save_scene(sample::make_sample_assembly(assembly), options.out);
  say("wrote " + options.out + ", " + grouped(assembly.parts) + " parts, " +
      size_text(std::filesystem::file_size(options.out)));
}

CLI::Option* add_count(CLI::App& command, const char* name, std::uint32_t& count,
                       std::uint32_t least, std::uint32_t most, const char* help) {
  const std::string range = " (" + grouped(least) + " to " + grouped(most) + ")";
  return command.add_option(name, count, help + range)
      ->check(CLI::Range(least, most).description(""))
      ->type_name("N")
      ->capture_default_str();
}

}  // namespace

void add_generate_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  sample::SampleOptions& assembly = options->assembly;
  CLI::App* command = program.add_subcommand(
      "generate", "Write a sample assembly: a plant of tanks, pipe runs, steelwork and pumps");
  add_output(*command, "OUT", options->out);
  add_count(*command, "--parts", assembly.parts, 1, most_parts, "Number of parts");
  add_count(*command, "--materials", assembly.materials, 0, most_materials,
            "Materials, a tenth of them transparent");
  options->textures = add_count(*command, "--textures", assembly.textures, 0, most_materials,
                                "How many of the materials carry an image");
  command->add_option("--seed", assembly.seed, "Another seed makes another plant")
      ->check(CLI::Range(std::int64_t{0}, std::numeric_limits<std::int64_t>::max()).description(""))
      ->type_name("S")
      ->capture_default_str();
  command->add_flag("--lines", assembly.with_lines, "Add centre lines and leaders as line sets");
  command->add_flag("--points", assembly.with_points, "Add survey scans as point sets");
  command->footer(
      "The same options give the same bytes on every machine.\n"
      "Examples:\n"
      "  morlu generate sample.glb\n"
      "  morlu generate large.osb --parts 100000 --materials 200 --textures 40\n"
      "  morlu generate survey.glb --parts 200 --lines --points --seed 7");
  command->callback([options] { generate(*options); });
}

}  // namespace morlu::program
