#include "cli.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <set>

#include <osg/scene_file_handler.h>

namespace morlu::program {
namespace {

namespace fs = std::filesystem;

using ::osg::SceneFileFormat;
using ::osg::SceneFileHandler;

template <class Able>
std::string suffixes_where(Able able) {
  std::set<std::string> suffixes;
  for (const SceneFileFormat* format : SceneFileHandler::the().getFormats()) {
    if (able(*format)) suffixes.insert(format->suffixes.begin(), format->suffixes.end());
  }
  std::string text;
  for (const std::string& suffix : suffixes) text.append(text.empty() ? "" : ", ").append(suffix);
  return text;
}

bool can_read(const SceneFileFormat& format) {
  return static_cast<bool>(format.read);
}
bool can_write(const SceneFileFormat& format) {
  return static_cast<bool>(format.write);
}

std::string suffix_problem(const std::string& file) {
  const std::string suffix = fs::path(file).extension().string();
  if (suffix.size() < 2) return "the name has no suffix that tells a format";
  return "'" + suffix.substr(1) + "' is no suffix of a format for it";
}

/// The error of a reader or writer, which may name the file already.
std::string with_file(const std::string& file, const std::string& error) {
  return error.find(file) == std::string::npos ? file + ": " + error : error;
}

void expect_readable_file(const std::string& file) {
  std::error_code error;
  const fs::file_status status = fs::status(file, error);
  if (status.type() == fs::file_type::not_found)
    throw Failure(unreadable_input, file + ": no such file");
  if (error) throw Failure(unreadable_input, file + ": " + error.message());
  if (fs::is_directory(status))
    throw Failure(unreadable_input, file + ": is a directory, not a file");
  const SceneFileFormat* format = SceneFileHandler::the().findFormat(file);
  if (!format || !can_read(*format)) {
    throw Failure(unreadable_input, file + ": cannot be read: " + suffix_problem(file) +
                                        " (can be read: " + readable_suffixes() + ")");
  }
}

}  // namespace

void say(const std::string& line) {
  std::cerr << "morlu: " << line << std::endl;
}

std::string readable_suffixes() {
  return suffixes_where(can_read);
}
std::string writable_suffixes() {
  return suffixes_where(can_write);
}

LoadedScene load_scene(const std::string& file) {
  expect_readable_file(file);
  ::osg::SceneReadResult result = SceneFileHandler::the().read(file);
  if (!result) throw Failure(unreadable_input, with_file(file, result.error));
  return {result.root, std::move(result.warnings)};
}

void say_warnings(const LoadedScene& scene, const std::string& file) {
  for (const std::string& warning : scene.warnings) say("warning: " + file + ": " + warning);
}

::osg::NodePtr load_and_warn(const std::string& file) {
  const LoadedScene scene = load_scene(file);
  say_warnings(scene, file);
  return scene.root;
}

void expect_folder_of(const std::string& file) {
  const auto refuse = [&](const std::string& reason) {
    throw Failure(unwritable_output, file + ": cannot be written: " + reason);
  };
  const fs::path folder = fs::path(file).parent_path();
  std::error_code unknown;
  if (!folder.empty() && !fs::is_directory(folder, unknown))
    refuse("there is no folder " + folder.string());
  if (fs::is_directory(file, unknown)) refuse("it is a directory");
  const std::string place = fs::exists(file, unknown) ? file
                            : folder.empty()          ? "."
                                                      : folder.string();
  if (access(place.c_str(), W_OK) != 0) refuse(std::strerror(errno));
}

void expect_writable(const std::string& file) {
  const SceneFileFormat* format = SceneFileHandler::the().findFormat(file);
  if (!format || !can_write(*format)) {
    throw Failure(unwritable_output, file + ": cannot be written: " + suffix_problem(file) +
                                         " (can be written: " + writable_suffixes() + ")");
  }
  expect_folder_of(file);
}

void save_scene(const ::osg::NodePtr& root, const std::string& file) {
  expect_writable(file);
  const ::osg::SceneWriteResult result = SceneFileHandler::the().writeScene(root, file);
  if (!result) throw Failure(unwritable_output, with_file(file, result.error));
  for (const std::string& warning : result.warnings) say("warning: " + with_file(file, warning));
}

void say_written(const std::string& file) {
  std::error_code no_size;
  const std::uintmax_t bytes = fs::file_size(file, no_size);
  say("wrote " + file + (no_size ? "" : ", " + size_text(bytes)));
}

std::string grouped(std::uint64_t number) {
  const std::string digits = std::to_string(number);
  std::string text;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text += ',';
    text += digits[i];
  }
  return text;
}

std::string size_text(std::uintmax_t bytes) {
  constexpr std::array units = {"bytes", "kB", "MB", "GB", "TB"};
  auto size = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (size >= 999.5 && unit + 1 < units.size()) {
    size /= 1000.0;
    ++unit;
  }
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%.3g %s", size, units[unit]);
  return text.data();
}

void add_input(CLI::App& command, const std::string& name, std::string& file) {
  command.add_option(name, file, "File to read: " + readable_suffixes())->type_name("")->required();
}

void add_output(CLI::App& command, const std::string& name, std::string& file) {
  command.add_option(name, file, "File to write: " + writable_suffixes())
      ->type_name(name.starts_with('-') ? "OUT" : "")
      ->required();
}

}  // namespace morlu::program
