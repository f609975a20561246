// morlu pick: what a ray meets first.
#include <iostream>
#include <memory>
#include <optional>

#include <osg/intersect_action.h>

#include "cli.h"
#include "morlu/ray.h"
#include "result_json.h"
#include "scene_names.h"
#include "source_names.h"
#include "vector_option.h"

namespace morlu::program {
namespace {

using nlohmann::ordered_json;
using ::osg::IntersectAction;

struct Options {
  std::string file, id_map;
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

/// `source` is null if it is not known.
ordered_json to_json(const std::string& file, const IntersectAction& action,
                     const std::optional<std::string>& source) {
  ordered_json json{{"schema", json_schema}, {"file", file}, {"hit", action.didHit()}};
  for (const char* key : {"node", "path", "source", "triangle", "distance", "point", "normal"})
    json[key] = nullptr;
  if (!action.didHit()) return json;
  if (source) json["source"] = *source;
  json["node"] = name_of(action.getHitObject());
  json["path"] = path_of(action.getHitObject());
  json["triangle"] = action.getHitTriangle();
  json["distance"] = short_number(action.getHitT());
  json["point"] = short_numbers(action.getHitPoint());
  json["normal"] = short_numbers(action.getHitNormal());
  return json;
}

void print_text(const IntersectAction& action, const std::optional<std::string>& source) {
  if (!action.didHit()) {
    std::cout << "no hit\n";
    return;
  }
  const auto& point = action.getHitPoint();
  const auto& normal = action.getHitNormal();
  std::cout << "node      " << name_text(action.getHitObject()) << '\n'
            << "path      " << path_of(action.getHitObject()) << '\n';
  if (source) std::cout << "source    " << *source << '\n';
  std::cout << "triangle  " << action.getHitTriangle() << '\n'
            << "distance  " << action.getHitT() << '\n'
            << "point     " << point[0] << ' ' << point[1] << ' ' << point[2] << '\n'
            << "normal    " << normal[0] << ' ' << normal[1] << ' ' << normal[2] << '\n';
}

void pick(const Options& options) {
  IntersectAction action(to_line(options));
  std::optional<SourceNames> names;
  if (!options.id_map.empty()) names.emplace(options.id_map);
  const ::osg::NodePtr root = load_and_warn(options.file);
  if (names) names->match(root, options.file);
  osg::register_morlu_intersect();
  // Stored volumes spare the trees of all geometry that the ray doesn't come near.
  if (root) root->updateVolume();
  action.apply(root);
  std::optional<std::string> source;
  if (names && action.didHit())
    source = names->name_of(
        id_near(action.getHitObject(), action.getHitTriangle(), action.getHitPoint()));
  if (options.json)
    print_json(to_json(options.file, action, source));
  else
    print_text(action, source);
}

}  // namespace

void add_pick_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("pick", "Show what a ray meets first");
  add_input(*command, "FILE", options->file);
  add_vector_option(*command, "--origin", options->origin, "Where the ray starts")->required();
  add_vector_option(*command, "--direction", options->direction,
                    "Where it leads; any length but zero")
      ->required();
  command
      ->add_option("--idmap", options->id_map,
                   "Id map of an optimised FILE: tells the source part too")
      ->type_name("FILE");
  command->add_flag("--json", options->json, "Print JSON; keys are null without a hit");
  command->footer(
      "Coordinates are those of the world; the distance is in its units. Front faces only: a ray\n"
      "passes through a triangle whose corners run clockwise as seen from the origin. The number\n"
      "of a triangle is its place among the usable ones of its node. No hit is an answer, not a\n"
      "failure: the exit code is 0. The source is that of the triangle's nearest corner; there is\n"
      "none for what had no name.\n"
      "Examples:\n"
      "  morlu pick plant.glb --origin 0,0,100 --direction 0,0,-1\n"
      "  morlu pick plant.glb --origin 5,-20,2 --direction 0,1,0 --json | jq .path\n"
      "  morlu pick small.glb --idmap small.json --origin 0,0,100 --direction 0,0,-1");
  command->callback([options] { pick(*options); });
}

}  // namespace morlu::program
