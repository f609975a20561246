// morlu convert: a scene from one file format into another.
#include <memory>

#include "cli.h"

namespace morlu::program {
namespace {

struct Options {
  std::string in, out;
};

void convert(const Options& options) {
  expect_writable(options.out);
  save_scene(load_and_warn(options.in), options.out);
  say_written(options.out);
}

}  // namespace

void add_convert_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("convert", "Write a scene in another format");
  add_input(*command, "IN", options->in);
  add_output(*command, "OUT", options->out);
  command->footer(
      "Examples:\n"
      "  morlu convert engine.fbx engine.glb\n"
      "  morlu convert plant.gltf plant.osb    the native format, which keeps everything");
  command->callback([options] { convert(*options); });
}

}  // namespace morlu::program
