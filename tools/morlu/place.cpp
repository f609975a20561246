// morlu place: a scene with new positions.
#include <osg/cores.h>
#include <osg/geometry.h>

#include <charconv>
#include <cmath>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "cli.h"
#include "morlu/optimiser.h"
#include "output_to_error.h"

namespace morlu::program {
namespace {

using ::osg::NodePtr;

struct Options {
  std::string in, out;
  std::string box, center;
  float size = 0;
  bool base = false;
};

/// "1:-2.5:3e4" with as many finite floats as asked for; else an error of the command line.
std::vector<float> numbers_of(const char* option, const std::string& text, std::size_t count) {
  std::vector<float> numbers;
  const char *at = text.data(), *end = at + text.size();
  for (bool is_good = true; is_good; ++at) {
    float number = 0;
    const auto [rest, error] = std::from_chars(at, end, number);
    if (error != std::errc() || !std::isfinite(number)) break;
    numbers.push_back(number);
    if (rest == end && numbers.size() == count) return numbers;
    is_good = rest != end && *rest == ':';
    at = rest;
  }
  const std::string wanted =
      count == 1 ? "a number" : std::to_string(count) + " numbers with colons between";
  throw CLI::ValidationError(option, "'" + text + "' is not " + wanted);
}

void check_size(const std::string& text) {
  if (!(numbers_of("--size", text, 1)[0] / 2 > 0))
    throw CLI::ValidationError("--size", "'" + text + "' is not above 0");
}

void check_box(const std::string& text) {
  const std::vector<float> n = numbers_of("--box", text, 6);
  if (!(n[0] < n[3] && n[1] < n[4] && n[2] < n[5]))
    throw CLI::ValidationError("--box", "'" + text +
                                            "' has a side without length: min:min:min:"
                                            "max:max:max, each min below its max");
}

[[noreturn]] void refuse(const Options& options, const std::string& reason) {
  throw Failure(work_failed, options.in + ": " + reason);
}

/// What has geometry and is to be moved: --base passes over what is hidden or below switches.
std::vector<NodePtr> moved_nodes(const NodePtr& scene, const Options& options) {
  std::vector<NodePtr> found, pending{scene};
  if (options.base) {
    osg::getGeometryNodes(scene, found, false);
    return found;
  }
  while (!pending.empty()) {
    const NodePtr node = pending.back();
    pending.pop_back();
    if (::osg::Geometry::dcast(node->getCore())) found.push_back(node);
    pending.insert(pending.end(), node->getChildren().begin(), node->getChildren().end());
  }
  return found;
}

/// In linear time: ways up that meet are gone together once.
bool is_any_transformed(const std::vector<NodePtr>& nodes) {
  std::set<NodePtr> seen;
  for (const NodePtr& node : nodes)
    for (auto above = node->getParent(); above && seen.insert(above).second;
         above = above->getParent())
      if (::osg::Transform::dcast(above->getCore())) return true;
  return false;
}

/// What the library passes over in silence, or tells in a line, is work that failed here.
void expect_placeable(const NodePtr& scene, const Options& options) {
  const std::vector<NodePtr> nodes = moved_nodes(scene, options);
  if (nodes.empty()) refuse(options, "there is no geometry to place");
  if (!options.center.empty() || !is_any_transformed(nodes)) return;
  if (options.base)
    refuse(options, "transforms stand above geometry; --center 0:0:0 takes them away first");
  say("warning: " + options.in +
      ": transforms stand above geometry: it may come to lie elsewhere; --center 0:0:0 takes them "
      "away first");
}

void place(const NodePtr& scene, const Options& options) {
  std::ostringstream said;
  {
    const OutputTo messages_aside(said);
    if (!options.box.empty())
      osg::transformSceneBB(scene, options.box);
    else if (!options.center.empty())
      osg::centerGeoPositions(scene, options.center);
    else if (options.base)
      osg::baseGeoPositions(scene);
    else
      osg::transformSceneBB(scene, options.size);
  }
  std::cerr << said.str();
  if (said.str().find("No valid") == std::string::npos) return;
  refuse(options, options.center.empty()
                      ? "a scene without extent on an axis, or without end, fits no box"
                      : "a transform or the extent of the scene is not finite");
}

void place_file(const Options& options) {
  expect_writable(options.out);
  const NodePtr scene = load_and_warn(options.in);
  expect_placeable(scene, options);
  place(scene, options);
  save_scene(scene, options.out);
  say_written(options.out);
}

}  // namespace

void add_place_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("place", "Give a scene new positions");
  add_input(*command, "IN", options->in);
  add_output(*command, "-o,--output", options->out);
  const auto take = [](std::string& to, auto check) {
    return [&to, check](const std::string& text) {
      check(text);
      to = text;
    };
  };
  CLI::Option* const ways[] = {
      command
          ->add_option_function<std::string>("--box", take(options->box, check_box),
                                             "Scale it into that box, at its lower corner")
          ->type_name("X:Y:Z:X:Y:Z"),
      command
          ->add_option_function<std::string>(
              "--size",
              [options](const std::string& text) {
                check_size(text);
                options->size = numbers_of("--size", text, 1)[0];
              },
              "Scale it into a cube about the origin")
          ->type_name("S"),
      command
          ->add_option_function<std::string>(
              "--center",
              take(options->center,
                   [](const std::string& text) { numbers_of("--center", text, 3); }),
              "Move its centre there; all transforms go into positions")
          ->type_name("X:Y:Z"),
      command->add_flag("--base", options->base,
                        "Move it near the origin by whole numbers, to the side above 0")};
  for (CLI::Option* way : ways)
    for (CLI::Option* other : ways)
      if (way != other) way->excludes(other);
  command->footer(
      "One of --box, --size, --center and --base is needed. Positions move in the space of their\n"
      "part: with transforms above, --box and --size are not exact, and --base has nothing to do.\n"
      "Examples:\n"
      "  morlu place hall.glb -o hall-0.glb --center 0:0:0\n"
      "  morlu place hall-0.glb -o small.glb --box=-1:-1:0:1:1:2\n"
      "  morlu place survey.ply -o survey.glb --base");
  command->callback([options, ways = std::vector(std::begin(ways), std::end(ways))] {
    bool is_any = false;
    for (const CLI::Option* way : ways) is_any = is_any || way->count() > 0;
    if (!is_any) throw CLI::RequiredError("one of --box, --size, --center, --base");
    place_file(*options);
  });
}

}  // namespace morlu::program
