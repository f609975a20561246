#include <string>

#include <osg/io/model_files.h>

#include "cli.h"

namespace morlu::program {
namespace {

/// One line of what is wrong, one of where to look.
std::string text_of_failure(const CLI::App* program, const CLI::Error& error) {
  const auto commands = program->get_subcommands();
  const auto rest = program->remaining();
  std::string text("morlu: ");
  if (commands.empty() && !rest.empty())
    text.append("there is no ")
        .append(rest[0].starts_with('-') ? "option '" : "command '")
        .append(rest[0])
        .append("'");
  else
    text.append(error.what());
  text.append("\nTry: morlu ");
  if (!commands.empty()) text.append(commands[0]->get_name()).append(" ");
  return text.append("--help\n");
}

}  // namespace

void describe_program(CLI::App& program) {
  ::osg::io::registerModelFormats();
  program.name("morlu");
  program.description(
      "Optimises, describes, converts, queries, draws and generates scenes of many parts");
  program.require_subcommand(1);
  program.set_version_flag("--version", "morlu " MORLU_VERSION, "Print the version and exit");
  program.set_help_flag("-h,--help", "Print this help and exit");
  program.failure_message(text_of_failure);
  program.footer(
      "Examples:\n"
      "  morlu optimise plant.glb -o few.glb   the same in few draw calls\n"
      "  morlu info plant.glb                  what is in it, as a table\n"
      "  morlu convert plant.fbx plant.glb     another format, by suffix\n"
      "  morlu generate sample.glb             a plant to try things on\n"
      "  morlu render plant.glb -o plant.png   a picture of it\n"
      "Each command has more to say: morlu COMMAND --help\n\n"
      "Exit codes: 0 done, 1 the work failed, 2 the command line is wrong,\n"
      "            3 the input cannot be read, 4 the output cannot be written");
  add_info_command(program);
  add_convert_command(program);
  add_generate_command(program);
  add_optimise_command(program);
  add_atlas_command(program);
  add_clean_command(program);
  add_place_command(program);
  add_rebuild_command(program);
  add_split_command(program);
  add_scale_images_command(program);
  add_simplify_command(program);
  add_pick_command(program);
  add_collide_command(program);
  add_render_command(program);
}

}  // namespace morlu::program
