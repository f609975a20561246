// morlu render: a picture of a scene.
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "boxes.h"
#include "cli.h"
#include "picture/picture.h"
#include "picture/png_file.h"
#include "picture/progress_bar.h"
#include "vector_option.h"

namespace morlu::program {
namespace {

constexpr int longest_side = 16384;
constexpr int most_pixels = 1 << 26;
constexpr int most_samples = 8;
constexpr unsigned most_threads = 256;

struct Options {
  std::string in, out;
  PictureSettings picture;
  std::string view = view_names().front();
  ::osg::Vec3d eye, target, up{0, 1, 0};
  CLI::Option *eye_option = nullptr, *target_option = nullptr;
};

/// "800x600"; none if it is anything else, or a number beyond int.
std::optional<PictureSize> to_size(const std::string& text) {
  PictureSize size{0, 0};
  const char* const end = text.data() + text.size();
  const auto width = std::from_chars(text.data(), end, size.width);
  if (width.ec != std::errc() || width.ptr == end || *width.ptr != 'x') return std::nullopt;
  const auto height = std::from_chars(width.ptr + 1, end, size.height);
  if (height.ec != std::errc() || height.ptr != end) return std::nullopt;
  return size;
}

void take_size(const std::string& text, PictureSize& size) {
  const auto given = to_size(text);
  if (!given) throw CLI::ValidationError("--size", "'" + text + "' is no size such as 800x600");
  if (std::min(given->width, given->height) < 1 ||
      std::max(given->width, given->height) > longest_side ||
      given->width > most_pixels / given->height) {
    throw CLI::ValidationError("--size", text + " is out of range: sides of 1 to " +
                                             grouped(longest_side) + " pixels, of all pixels " +
                                             grouped(most_pixels) + " at most");
  }
  size = *given;
}

/// Says what the picture leaves out. Throws `Failure` if that is everything.
void expect_something_drawn(const std::string& file, const DrawnScene& scene) {
  if (scene.unplaced > 0) {
    say("warning: " + file + ": " + grouped(scene.unplaced) +
        " parts are left out, their matrices can't be undone");
  }
  const std::string undrawn =
      grouped(scene.lines) + " lines and " + grouped(scene.points) + " points";
  if (scene.placements.empty())
    throw Failure(work_failed, file + ": nothing to draw: no triangles, " + undrawn);
  if (scene.lines + scene.points > 0) say(file + ": " + undrawn + " are not drawn");
}

Camera to_camera(const Options& options, const DrawnScene& scene) {
  const PictureSize size = options.picture.size;
  std::optional<Camera> camera;
  if (options.eye_option->count() > 0) {
    const Box all = box_around(scene.boxes);
    const auto target = options.target_option->count() > 0 ? ::osg::Pnt3d(options.target)
                                                           : all.min + (all.max - all.min) * 0.5;
    camera = Camera::looking(::osg::Pnt3d(options.eye), target, options.up, size);
  } else {
    camera = named_view(options.view, options.up, scene.boxes, size);
  }
  if (!camera) {
    throw Failure(wrong_usage,
                  "no camera is there: --eye and --target must be two points, --up must not be "
                  "zero nor point along the view");
  }
  return *camera;
}

void render(const Options& options) {
  expect_png_file(options.out);
  const ::osg::NodePtr root = load_and_warn(options.in);
  const DrawnScene scene = collect_drawn(root);
  expect_something_drawn(options.in, scene);
  const Camera camera = to_camera(options, scene);
  Picture picture;
  {
    ProgressBar bar("drawing", static_cast<std::size_t>(options.picture.size.height));
    picture = draw_picture(scene, camera, options.picture, [&bar] { bar.step(); });
  }
  write_png(picture, options.out);
  say("wrote " + options.out + ", " + std::to_string(picture.size.width) + " x " +
      std::to_string(picture.size.height) + " pixels, " +
      size_text(std::filesystem::file_size(options.out)));
}

void add_camera_options(CLI::App& command, Options& options) {
  std::string names;
  for (const std::string& name : view_names()) names.append(names.empty() ? "" : ", ").append(name);
  CLI::Option* view = command.add_option("--view", options.view, "Side to look from: " + names)
                          ->check(CLI::IsMember(view_names()).description(""))
                          ->type_name("NAME")
                          ->capture_default_str();
  options.eye_option =
      add_vector_option(command, "--eye", options.eye, "Where to look from, instead of a view")
          ->excludes(view);
  options.target_option = add_vector_option(command, "--target", options.target,
                                            "Where to look from the eye; the middle of the scene "
                                            "if not given")
                              ->needs(options.eye_option);
  add_vector_option(command, "--up", options.up, "What is up in the scene")->default_str("0,1,0");
}

void add_drawing_options(CLI::App& command, PictureSettings& picture) {
  static const std::map<std::string, ShadeMode> modes{{"lit", ShadeMode::Lit},
                                                      {"normals", ShadeMode::Normals},
                                                      {"parts", ShadeMode::Parts},
                                                      {"materials", ShadeMode::Materials}};
  command
      .add_option_function<std::string>(
          "--shade", [&picture](const std::string& name) { picture.mode = modes.at(name); },
          "What colours tell: lit, normals, parts, materials")
      ->check(CLI::IsMember(&modes).description(""))
      ->type_name("MODE")
      ->default_str("lit");
  command.add_flag("--transparent", picture.transparent, "Leave the background transparent");
  command.add_option("--samples", picture.samples, "N x N rays a pixel (1 to 8)")
      ->check(CLI::Range(1, most_samples).description(""))
      ->type_name("N")
      ->capture_default_str();
  picture.threads = std::clamp(std::thread::hardware_concurrency(), 1u, most_threads);
  command
      .add_option("--threads", picture.threads,
                  "Threads to draw in, as many as the machine has if not given")
      ->check(CLI::Range(1u, most_threads).description(""))
      ->type_name("N");
}

}  // namespace

void add_render_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("render", "Draw a picture of a scene");
  add_input(*command, "FILE", options->in);
  command->add_option("-o,--output", options->out, "Picture to write, a .png file")
      ->type_name("OUT")
      ->required();
  command
      ->add_option_function<std::string>(
          "--size", [options](const std::string& text) { take_size(text, options->picture.size); },
          "Width and height in pixels")
      ->type_name("WxH")
      ->default_str("800x600");
  add_camera_options(*command, *options);
  add_drawing_options(*command, options->picture);
  command->footer(
      "Triangles are drawn from both sides; lines and points aren't. A view shows the whole\n"
      "scene; --up turns it for scenes in which another axis than y points up.\n"
      "Examples:\n"
      "  morlu render plant.glb -o plant.png --up 0,0,1\n"
      "  morlu render plant.glb -o top.png --view top --up 0,0,1 --shade parts\n"
      "  morlu render car.glb -o car.png --eye 4,2,4 --target 0,0.5,0 --transparent");
  command->callback([options] { render(*options); });
}

}  // namespace morlu::program
