// morlu collide: whether two scenes touch.
#include <cmath>
#include <iostream>
#include <memory>

#include <osg/cores.h>

#include "cli.h"
#include "morlu/ray.h"
#include "number_check.h"
#include "result_json.h"
#include "scene_names.h"
#include "vector_option.h"

namespace morlu::program {
namespace {

using nlohmann::ordered_json;

struct Options {
  std::string a, b;
  ::osg::Vec3d offset;
  osg::CollisionParam param;
  bool json = false;
};

::osg::NodePtr moved(const ::osg::NodePtr& root, const ::osg::Vec3d& offset) {
  const auto single = [](double value) { return static_cast<float>(value); };
  const auto place = ::osg::Transform::create();
  ::osg::beginEditCP(place);
  place->setMatrix(
      ::osg::Matrix::translation(single(offset[0]), single(offset[1]), single(offset[2])));
  ::osg::endEditCP(place);
  const auto node = ::osg::Node::create();
  ::osg::beginEditCP(node);
  node->setCore(place);
  node->addChild(root);
  ::osg::endEditCP(node);
  return node;
}

ordered_json to_json(const osg::CollisionResults& results) {
  ordered_json json{{"schema", json_schema}, {"hit", results.hit}};
  for (const char* key : {"point", "node_a", "node_b"}) json[key] = nullptr;
  if (!results.hit) return json;
  json["point"] = short_numbers(results.point);
  json["node_a"] = name_of(results.node_a);
  json["node_b"] = name_of(results.node_b);
  return json;
}

void print_text(const osg::CollisionResults& results) {
  if (!results.hit) {
    std::cout << "no collision\n";
    return;
  }
  std::cout << "point   " << results.point[0] << ' ' << results.point[1] << ' ' << results.point[2]
            << '\n'
            << "node a  " << name_text(results.node_a) << '\n'
            << "node b  " << name_text(results.node_b) << '\n';
}

void collide(const Options& options) {
  const ::osg::NodePtr a = load_and_warn(options.a);
  const ::osg::NodePtr b = moved(load_and_warn(options.b), options.offset);
  osg::CollisionResults results;
  results.hit = osg::collision(a, b, options.param, results);
  if (options.json)
    print_json(to_json(results));
  else
    print_text(results);
}

}  // namespace

void add_collide_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("collide", "Show whether two scenes touch");
  for (auto [name, file] : {std::pair{"A", &options->a}, std::pair{"B", &options->b}}) {
    add_input(*command, name, *file);
  }
  add_vector_option(*command, "--offset", options->offset, "Move B by this first");
  command
      ->add_option("--tolerance", options->param.tolerance,
                   "Margin about A's box in the first, coarse test")
      ->type_name("T")
      ->check(number_check("of 0 or more",
                           [](float margin) { return margin >= 0 && std::isfinite(margin); }))
      ->capture_default_str();
  command->add_flag("--json", options->json, "Print JSON; keys are null without a collision");
  command->footer(
      "Scenes collide where triangles of one cross triangles of the other: one that lies wholly\n"
      "inside the other doesn't touch it. The point, in world coordinates, is where the first\n"
      "such pair was found. Whether they collide or not, the exit code is 0.\n"
      "Examples:\n"
      "  morlu collide crane.glb hall.glb\n"
      "  morlu collide crane.glb hall.glb --offset 0,0,-1.5 --json | jq .hit");
  command->callback([options] { collide(*options); });
}

}  // namespace morlu::program
