#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <osg/node.h>

namespace morlu::program {

/// What the program tells its caller when it ends.
enum ExitCode {
  done = 0,
  work_failed = 1,
  wrong_usage = 2,
  unreadable_input = 3,
  unwritable_output = 4
};

/// Ends a command with a message for people and an exit code.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

/// One line to a person, on standard error.
void say(const std::string& line);

struct LoadedScene {
  ::osg::NodePtr root;
  std::vector<std::string> warnings;
};

/// Reads a file by its suffix. Throws `Failure` with file and reason if there is no such file, it
/// is a folder, has a suffix of no known format, or holds no scene that can be read.
LoadedScene load_scene(const std::string& file);

/// Tells the warnings to the person.
void say_warnings(const LoadedScene& scene, const std::string& file);

/// Does both.
::osg::NodePtr load_and_warn(const std::string& file);

/// Throws `Failure` if the file can't be written where it is to be: before the work, not after.
void expect_folder_of(const std::string& file);
/// The same, and if no format with the file's suffix can be written.
void expect_writable(const std::string& file);
/// Writes a file by its suffix and says what was left out. Throws `Failure` with file and reason.
void save_scene(const ::osg::NodePtr& root, const std::string& file);
/// Says that a file was written and how large it is.
void say_written(const std::string& file);

/// "12,345,678".
std::string grouped(std::uint64_t number);
/// "12.3 MB" and the like, three digits, decimal units.
std::string size_text(std::uintmax_t bytes);

/// Suffixes of the formats that can be read or written, as "glb, gltf, osb".
std::string readable_suffixes();
std::string writable_suffixes();

/// The required option or argument `name` for a scene that a command reads, or writes.
void add_input(CLI::App& command, const std::string& name, std::string& file);
void add_output(CLI::App& command, const std::string& name, std::string& file);

/// Gives `program` all options and subcommands; these run when it parses a command line.
void describe_program(CLI::App& program);

void add_info_command(CLI::App& program);
void add_convert_command(CLI::App& program);
void add_generate_command(CLI::App& program);
void add_pick_command(CLI::App& program);
void add_collide_command(CLI::App& program);
void add_render_command(CLI::App& program);
void add_optimise_command(CLI::App& program);
void add_atlas_command(CLI::App& program);
void add_clean_command(CLI::App& program);
void add_place_command(CLI::App& program);
void add_rebuild_command(CLI::App& program);
void add_split_command(CLI::App& program);
void add_scale_images_command(CLI::App& program);
void add_simplify_command(CLI::App& program);

}  // namespace morlu::program
