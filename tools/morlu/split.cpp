// morlu split: geometry that is too large for its target, in pieces.
#include <osg/geometry.h>

#include <algorithm>
#include <functional>
#include <list>
#include <memory>
#include <optional>

#include "cli.h"
#include "loss_watch.h"
#include "morlu/finishing.h"
#include "morlu/primitives.h"
#include "number_check.h"
#include "output_to_error.h"
#include "result_json.h"
#include "scene_nodes.h"
#include "scene_report.h"

namespace morlu::program {
namespace {

using nlohmann::ordered_json;
using ::osg::NodePtr;

struct Options {
  std::string in, out;
  std::optional<unsigned> triangles, indices;
  std::optional<float> share;
  unsigned depth = 32;
  int level = 1;
  bool json = false;
};

/// What geometry may have, and how it comes to have no more.
struct Limit {
  std::function<void(const NodePtr&)> keep;
  std::function<bool(const NodePtr&)> is_passed_by;
};

Limit triangle_limit(const Options& options) {
  const auto most = *options.triangles;
  return {[=](const NodePtr& root) { osg::split_Geometries(root, most, false, options.level); },
          [=](const NodePtr& node) {
            std::uint64_t count = 0;
            const auto geometry = ::osg::Geometry::dcast(node->getCore());
            for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it) ++count;
            return count > most;
          }};
}

Limit index_limit(const Options& options) {
  const auto most = *options.indices;
  return {
      [=](const NodePtr& root) { osg::split_GeometriesByIndex(root, most, false, options.level); },
      [=](const NodePtr& node) {
        const auto indices = ::osg::Geometry::dcast(node->getCore())->getIndices();
        return indices && indices->size() > most;
      }};
}

::osg::Vec3f world_size(const NodePtr& node) {
  ::osg::DynamicVolume volume;
  node->getWorldVolume(volume);
  return volume.getMax() - volume.getMin();
}

Limit share_limit(const Options& options, const NodePtr& scene) {
  const ::osg::Vec3f whole = world_size(scene);
  return {[=](const NodePtr& root) {
            constexpr int whole_triangles = 3;
            osg::check_and_split(root, *options.share, options.depth, whole_triangles,
                                 options.level);
          },
          [=](const NodePtr& node) {
            const ::osg::Vec3f size = world_size(node);
            for (unsigned axis = 0; axis < 3; ++axis)
              if (size[axis] / whole[axis] > *options.share) return true;
            return false;
          }};
}

Limit limit_of(const Options& options, const NodePtr& scene) {
  if (options.triangles) return triangle_limit(options);
  return options.indices ? index_limit(options) : share_limit(options, scene);
}

struct Results {
  FileReport input, output;
  std::uint64_t above_limit = 0;  // geometry nodes that stay too large
};

void show(const Options& options, const Results& results) {
  const auto before = results.input.stats.geometry_nodes,
             after = results.output.stats.geometry_nodes;
  say(options.in + ": geometry nodes " + grouped(before) + " before, " + grouped(after) + " after");
  if (results.above_limit > 0)
    say("warning: " + grouped(results.above_limit) +
        " geometry nodes stay above the limit: they have lines or points, or can't be parted so "
        "far");
  if (!options.json) return;
  print_json({{"schema", json_schema},
              {"input", to_json(results.input)},
              {"output", to_json(results.output)},
              {"above_limit", results.above_limit}});
}

/// The scene in pieces. Below a group, since the root itself may be a geometry.
NodePtr split_scene(const NodePtr& scene, const Limit& limit) {
  const OutputToError messages_aside;
  const NodePtr above = group_node();
  above->addChild(scene);
  limit.keep(scene);
  const NodePtr result = above->getChild(0);
  above->subChild(result);
  return result;
}

void split(const Options& options) {
  if (!options.triangles && !options.indices && !options.share)
    throw Failure(wrong_usage, "split needs a limit: --triangles, --indices or --share");
  expect_writable(options.out);
  const LoadedScene loaded = load_scene(options.in);
  say_warnings(loaded, options.in);
  Results results{.input = report_on(options.in, loaded), .output = {}};
  const LossWatch before(loaded.root);
  const Limit limit = limit_of(options, loaded.root);
  const NodePtr result = split_scene(loaded.root, limit);
  for (const std::string& loss : before.lost_elements(result)) say("warning: " + loss);
  std::list<NodePtr> nodes;
  osg::collect_geo_nodes(result, nodes);
  results.above_limit =
      static_cast<std::uint64_t>(std::count_if(nodes.begin(), nodes.end(), limit.is_passed_by));
  results.output = report_on(options.out, {result, {}});
  save_scene(result, options.out);
  say_written(options.out);
  show(options, results);
}

}  // namespace

void add_split_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.add_subcommand("split", "Cut geometry that is too large into pieces, in its place");
  add_input(*command, "IN", options->in);
  add_output(*command, "-o,--output", options->out);
  const auto at_least_one = CLI::Range(1u, 4294967295u).description("");
  auto* triangles = command->add_option("--triangles", options->triangles, "Most triangles")
                        ->type_name("N")
                        ->check(at_least_one);
  auto* indices =
      command->add_option("--indices", options->indices, "Most entries of indices, by halving")
          ->type_name("N")
          ->check(at_least_one)
          ->excludes(triangles);
  auto* share = command
                    ->add_option("--share", options->share,
                                 "Largest share of the scene's box along any axis (above 0, to 1)")
                    ->type_name("P")
                    ->check(share_check())
                    ->excludes(triangles)
                    ->excludes(indices);
  command
      ->add_option("--depth", options->depth,
                   "With --share: levels to go down, of the scene and of halvings")
      ->type_name("D")
      ->check(CLI::Range(0u, 4294967295u).description(""))
      ->needs(share)
      ->capture_default_str();
  command
      ->add_option("--level", options->level,
                   "Form of the pieces: 1 single index, 2 an index an attribute, 3 strips and fans")
      ->type_name("L")
      ->check(CLI::Range(1, 3).description(""))
      ->capture_default_str();
  command->add_flag("--json", options->json, "Print what went in and what came out as JSON");
  command->footer(
      "Triangles stay whole; geometry with lines or points stays as it is, but for --indices.\n"
      "Pieces stand where the geometry stood, with its name and material; normals are new, but\n"
      "for halves by --indices, which have an index an attribute beyond the first halving.\n"
      "Examples:\n"
      "  morlu split scan.ply -o scan.glb --triangles 65000\n"
      "  morlu split city.gltf -o city.glb --share 0.1 --depth 12");
  command->callback([options] { split(*options); });
}

}  // namespace morlu::program
