// morlu pick: what a ray meets first.
#include <iostream>
#include <memory>

#include <osg/intersect_action.h>

#include "cli.h"
#include "morlu/ray.h"
#include "result_json.h"
#include "scene_names.h"
#include "vector_option.h"

namespace morlu::program {
namespace {

using nlohmann::ordered_json;
using ::osg::IntersectAction;

struct Options {
  std::string file;
  ::osg::Vec3d origin, direction;
  bool json = false;
};

/// Of unit length before it is rounded, so that no length is too short or too long for floats.
::osg::Line to_line(const Options& options) {
  const double length = options.direction.length();
  if (!(length > 0.0)) throw Failure(wrong_usage, "--direction: a zero vector leads nowhere");
  const ::osg::Vec3d unit = options.direction / length;
  const auto single = [](double value) { return static_cast<float>(value); };
  const ::osg::Vec3d& from = options.origin;
  return {{single(from[0]), single(from[1]), single(from[2])},
          {single(unit[0]), single(unit[1]), single(unit[2])}};
}

ordered_json to_json(const std::string& file, const IntersectAction& action) {
  ordered_json json{{"schema", json_schema}, {"file", file}, {"hit", action.didHit()}};
  for (const char* key : {"node", "path", "triangle", "distance", "point", "normal"})
    json[key] = nullptr;
  if (!action.didHit()) return json;
  json["node"] = name_of(action.getHitObject());
  json["path"] = path_of(action.getHitObject());
  json["triangle"] = action.getHitTriangle();
  json["distance"] = short_number(action.getHitT());
  json["point"] = short_numbers(action.getHitPoint());
  json["normal"] = short_numbers(action.getHitNormal());
  return json;
}

void print_text(const IntersectAction& action) {
  if (!action.didHit()) {
    std::cout << "no hit\n";
    return;
  }
  const auto& point = action.getHitPoint();
  const auto& normal = action.getHitNormal();
  std::cout << "node      " << name_text(action.getHitObject()) << '\n'
            << "path      " << path_of(action.getHitObject()) << '\n'
            << "triangle  " << action.getHitTriangle() << '\n'
            << "distance  " << action.getHitT() << '\n'
            << "point     " << point[0] << ' ' << point[1] << ' ' << point[2] << '\n'
            << "normal    " << normal[0] << ' ' << normal[1] << ' ' << normal[2] << '\n';
}

void pick(const Options& options) {
  IntersectAction action(to_line(options));
  const ::osg::NodePtr root = load_and_warn(options.file);
  osg::register_morlu_intersect();
  // Stored volumes spare the trees of all geometry that the ray doesn't come near.
  if (root) root->updateVolume();
  action.apply(root);
  if (options.json)
    print_json(to_json(options.file, action));
  else
    print_text(action);
}

}  // namespace

void add_pick_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("pick", "Show what a ray meets first");
  command->add_option("FILE", options->file, "File to read: " + readable_suffixes())
      ->type_name("")
      ->required();
  add_vector_option(*command, "--origin", options->origin, "Where the ray starts")->required();
  add_vector_option(*command, "--direction", options->direction,
                    "Where it leads; any length but zero")
      ->required();
  command->add_flag("--json", options->json, "Print JSON; keys are null without a hit");
  command->footer(
      "Coordinates are those of the world; the distance is in its units. Front faces only: a ray\n"
      "passes through a triangle whose corners run clockwise as seen from the origin. The number\n"
      "of a triangle is its place among the usable ones of its node. No hit is an answer, not a\n"
      "failure: the exit code is 0.\n"
      "Examples:\n"
      "  morlu pick plant.glb --origin 0,0,100 --direction 0,0,-1\n"
      "  morlu pick plant.glb --origin 5,-20,2 --direction 0,1,0 --json | jq .path");
  command->callback([options] { pick(*options); });
}

}  // namespace morlu::program
