// morlu clean: a scene without the nodes that nobody needs.
#include <osg/geometry.h>

#include <algorithm>
#include <memory>

#include "cli.h"
#include "morlu/optimiser.h"
#include "output_to_error.h"
#include "scene_nodes.h"

namespace morlu::program {
namespace {

using ::osg::NodePtr;

struct Options {
  std::string in, out;
  bool lod = false, switches = false, hidden = false, invisible = false, empty = false;
  bool collapse = false, unique_names = false;
};

struct Operation {
  const char* flag;
  bool Options::*wanted;
  const char* help;
  void (*run)(const NodePtr& top);
};

/// Unlinks the children that a removal leaves to its caller.
template <bool remove(NodePtr)>
void remove_below(const NodePtr& top) {
  if (remove(top))
    while (top->getNChildren() > 0) top->subChild(top->getChild(0));
}

// In the order in which they run: what goes first leaves empty or lone nodes behind.
constexpr Operation operations[] = {
    {"--lod", &Options::lod, "Keep the first of levels of detail",
     [](const NodePtr& top) { osg::removeLODParts(top); }},
    {"--switch", &Options::switches, "Keep what switches choose",
     [](const NodePtr& top) { osg::removeSwitchParts(top); }},
    {"--hidden", &Options::hidden, "Remove what has traversal mask 0",
     [](const NodePtr& top) { osg::deleteTravMaskZeroNodes(top); }},
    {"--invisible", &Options::invisible, "Remove geometry with an alpha below 0.01",
     remove_below<osg::removeInvisibleParts>},
    {"--empty", &Options::empty, "Remove geometry without primitives and nodes without geometry",
     remove_below<osg::removeNonGeoParts>},
    {"--collapse", &Options::collapse, "Dissolve groups that are or have an only child",
     [](const NodePtr& top) {
       if (top->getNChildren() > 0) osg::RemoveGroupNodes(top->getChild(0));
     }},
    {"--unique-names", &Options::unique_names, "Number nodes of equal name: name_0, name_1, ...",
     [](const NodePtr& top) { osg::RenameMultipleNodeNames(top, false); }},
};

/// The scene hangs below a Group meanwhile, so that its root may be replaced or go.
NodePtr cleaned(const NodePtr& scene, const Options& options) {
  const NodePtr top = group_node();
  top->addChild(scene);
  for (const Operation& each : operations)
    if (options.*each.wanted) each.run(top);
  if (top->getNChildren() != 1) return top;
  const NodePtr result = top->getChild(0);
  top->subChild(result);
  return result;
}

std::string counts_of(const NodePtr& scene) {
  std::uint64_t nodes = 0, with_geometry = 0;
  for_each_node(scene, [&](const NodePtr& node) {
    ++nodes;
    with_geometry += !::osg::Geometry::dcast(node->getCore()).isNull();
  });
  return grouped(nodes) + " nodes, " + grouped(with_geometry) + " with geometry";
}

void clean(const Options& options) {
  expect_writable(options.out);
  const bool is_asked = std::any_of(std::begin(operations), std::end(operations),
                                    [&](const Operation& each) { return options.*each.wanted; });
  if (!is_asked) say("warning: no operation is asked for: the scene is written as it is");
  const NodePtr scene = load_and_warn(options.in);
  say(options.in + ": " + counts_of(scene));
  const NodePtr result = [&] {
    const OutputToError messages_aside;
    return cleaned(scene, options);
  }();
  say(options.out + ": " + counts_of(result));
  save_scene(result, options.out);
  say_written(options.out);
}

}  // namespace

void add_clean_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("clean", "Remove nodes of a scene, or rename them");
  add_input(*command, "IN", options->in);
  add_output(*command, "-o,--output", options->out);
  for (const Operation& each : operations)
    command->add_flag(each.flag, (*options).*each.wanted, each.help);
  command->footer(
      "What is asked for runs in the order of this list.\n"
      "Examples:\n"
      "  morlu clean plant.fbx -o plant.glb --empty --collapse\n"
      "  morlu clean plant.osb -o plain.osb --lod --switch --hidden --unique-names");
  command->callback([options] { clean(*options); });
}

}  // namespace morlu::program
