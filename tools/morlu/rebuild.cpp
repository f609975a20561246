// morlu rebuild: a scene as a spatial tree, with one atlas a leaf.
#include <osg/cores.h>

#include <memory>

#include "atlas_mix_ups.h"
#include "cli.h"
#include "loss_watch.h"
#include "morlu/optimiser.h"
#include "output_to_error.h"
#include "texture_use.h"

namespace morlu::program {
namespace {

using ::osg::NodePtr;

struct Options {
  std::string in, out;
  unsigned leaf = 25000;
  bool hierarchy = false;
};

/// Null if there is nothing to rebuild.
NodePtr rebuilt(const NodePtr& scene, const Options& options) {
  constexpr int most_repeats = 2;  // of a texture in its atlas; wider triangles are cut
  const OutputToError messages_aside;
  kd_build_setup kd;
  kd.leaf_size = options.leaf;
  return osg::buildSceneTree(scene, kd, !options.hierarchy, 1, most_repeats, false);
}

/// The scene below a Group: geometry at the top can only be taken out of something.
NodePtr loaded(const std::string& file) {
  const NodePtr above = ::osg::Node::create();
  above->setCore(::osg::Group::create());
  above->addChild(load_and_warn(file));
  return above;
}

/// The tree, and what was not rebuilt, below `above`, beside it.
NodePtr with_rest(const NodePtr& tree, const NodePtr& above) {
  if (!holds_geometry(above)) return tree;
  const NodePtr rest = above->getChild(0);
  above->replaceChildBy(rest, tree);
  above->addChild(rest);
  return above;
}

void rebuild(const Options& options) {
  constexpr unsigned largest_image = 8192, farthest_coordinate = 50;
  expect_writable(options.out);
  const NodePtr scene = loaded(options.in);
  warn_of_mix_ups(scene, options.in, largest_image, farthest_coordinate);
  warn_of_richer_materials(scene, options.in);
  const LossWatch before(scene);
  const NodePtr tree = rebuilt(scene, options);
  if (!tree) throw Failure(work_failed, options.in + ": there is no geometry to rebuild");
  const NodePtr result = with_rest(tree, scene);
  for (const std::string& loss : before.losses(result)) say("warning: " + loss);
  save_scene(result, options.out);
  say_written(options.out);
  if (before.is_incomplete(result))
    throw Failure(work_failed, "the rebuild did not come to its end: parts are missing");
}

}  // namespace

void add_rebuild_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand(
      "rebuild", "Rebuild a scene as a spatial tree, with one texture atlas a leaf");
  add_input(*command, "IN", options->in);
  add_output(*command, "-o,--output", options->out);
  command
      ->add_option("--leaf", options->leaf,
                   "Triangles that a leaf has fewer of, but for single parts; the most of a core")
      ->check(CLI::Range(1u, 4294967295u).description(""))
      ->type_name("N")
      ->capture_default_str();
  command->add_flag("--hierarchy", options->hierarchy,
                    "Groups that follow the places of the cores, not up to 128 side by side");
  command->footer(
      "Hidden geometry, switches, levels of detail and parts of lines or points only stay as they\n"
      "are, beside the tree. In an atlas materials keep their texture, and colours that all have.\n"
      "Cores with an atlas and pieces of cut cores get new normals (crease angle 30 degrees).\n"
      "Examples:\n"
      "  morlu rebuild city.gltf -o city.glb\n"
      "  morlu rebuild city.gltf -o city.osb --leaf 5000 --hierarchy");
  command->callback([options] { rebuild(*options); });
}

}  // namespace morlu::program
