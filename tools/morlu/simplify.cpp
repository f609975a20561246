// morlu simplify: geometry with fewer triangles.
#include <cmath>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/io/feature_ids.h>
#include <osg/material.h>

#include "cli.h"
#include "fewer_triangles.h"
#include "loss_watch.h"
#include "morlu/primitives.h"
#include "number_check.h"
#include "scene_names.h"
#include "scratch_folder.h"
#include "texture_use.h"

namespace morlu::program {
namespace {

using ::osg::Attribute;
using ::osg::Geometry;
using ::osg::GeometryPtr;
using ::osg::NodePtr;

struct Options {
  std::string in, out, name;
  unsigned triangles = 0;
  double share = 0;  // counts if `triangles` is 0

  unsigned target_of(std::uint64_t triangles_now) const {
    if (triangles > 0) return triangles;
    return static_cast<unsigned>(
        std::max(1.0, std::round(share * static_cast<double>(triangles_now))));
  }
};

/// The nodes with geometry, or those whose node or geometry has the name.
std::vector<NodePtr> chosen_nodes(const NodePtr& scene, const Options& options) {
  std::list<NodePtr> all;
  osg::collect_geo_nodes(scene, all);
  std::vector<NodePtr> chosen;
  for (const NodePtr& node : all) {
    const char* core_name = ::osg::getName(*node->getCore());
    if (options.name.empty() || name_of(node) == options.name ||
        (core_name && core_name == options.name))
      chosen.push_back(node);
  }
  if (chosen.empty() && !options.name.empty())
    throw Failure(wrong_usage, options.in + ": no geometry has the name '" + options.name + "'");
  return chosen;
}

bool has_other_elements(const Geometry& geometry) {
  for (auto at = geometry.beginPrimitives(); !at.isAtEnd(); ++at)
    if (::osg::lineCount(at.getType(), at.getLength()) > 0 || at.getType() == ::osg::kPoints)
      return true;
  return false;
}

/// Gives the simplified geometry what belongs to the whole: its own material, names and the like.
void dress(const GeometryPtr& result, const GeometryPtr& source) {
  result->setMaterial(source->getMaterial());
  for (const auto& entry : source->getAttachments())
    if (!entry.attachment->isInternal()) result->addAttachment(entry.attachment, entry.binding);
  const auto ids = ::osg::io::getFeatureIdSet(*result);
  if (ids >= 0 && !result->getTexCoordsSet(static_cast<::osg::UInt32>(ids)))
    ::osg::io::setFeatureIdSet(result, -1);
}

/// Simplifies geometry once for each material that it is shown with, so that what is shared stays
/// shared, and remembers what to tell.
class Simplification {
 public:
  explicit Simplification(const Options& options) : options_(options) {}

  void simplify(const NodePtr& node) {
    const auto source = Geometry::dcast(node->getCore());
    const auto [known, is_new] = results_.try_emplace({source, material_of(node)});
    if (is_new) known->second = simplified(node, source);
    if (known->second) node->setCore(known->second);
  }

  void tell(const std::string& file) const {
    for (const std::string& attribute : lost_)
      say("warning: " + file + ": " + attribute + " are lost");
    say(file + ": " + grouped(changed_) + " of " + grouped(results_.size()) +
        " geometries made simpler, " + grouped(before_) + " triangles are now " + grouped(after_));
  }

 private:
  /// Null where the geometry is to stay as it is.
  GeometryPtr simplified(const NodePtr& node, const GeometryPtr& source) {
    const auto triangles = static_cast<std::uint64_t>(osg::count_triangles(source));
    const unsigned target = options_.target_of(triangles);
    if (triangles <= target) return ::osg::NullFC;
    if (has_other_elements(*source))
      return keep(node, "has lines or points too, which would be lost");
    const auto dressed = Geometry::dcast(source->shallowCopy());
    dressed->setMaterial(material_of(node));
    const GeometryPtr result = fewer_triangles(dressed, name_text(node), target);
    if (!result) return keep(node, "nothing would be left");
    note_losses(*source, *result, material_of(node));
    dress(result, source);
    const auto left = static_cast<std::uint64_t>(osg::count_triangles(result));
    if (left > target + target / 10)
      say("warning: " + options_.in + ": " + name_text(node) + ": keeps " + grouped(left) +
          " triangles");
    ++changed_;
    before_ += triangles;
    after_ += left;
    return result;
  }

  GeometryPtr keep(const NodePtr& node, const char* why) const {
    say("warning: " + options_.in + ": " + name_text(node) + ": stays as it is: " + why);
    return ::osg::NullFC;
  }

  /// Texture coordinates that no texture uses are no loss.
  void note_losses(const Geometry& source, const Geometry& result,
                   const ::osg::MaterialPtr& material) {
    const ::osg::IndexLayout before(source);
    const bool is_textured = use_of_textures(material) != TextureUse::none;
    const int ids = ::osg::io::getFeatureIdSet(source);
    const int id_attribute = ids < 0 ? -1 : ids + static_cast<int>(indexOf(Attribute::TexCoords));
    for (::osg::UInt32 i = 0; i < ::osg::kAttributeCount; ++i) {
      const Attribute attribute = ::osg::attributeAt(i);
      const bool is_id = static_cast<int>(i) == id_attribute;
      const bool is_used = attribute < Attribute::TexCoords || is_textured || is_id;
      if (is_used && before.isPresent(attribute) && !result.getAttribute(attribute))
        lost_.insert(is_id ? "ids" : attribute_names[i]);
    }
    const auto& colors = source.getColors();
    if (colors && colors->getDimension() == 4) lost_.insert("alpha values of vertex colours");
  }

  const Options& options_;
  std::map<std::pair<GeometryPtr, ::osg::MaterialPtr>, GeometryPtr> results_;
  std::set<std::string> lost_;
  std::uint64_t changed_ = 0, before_ = 0, after_ = 0;
};

void simplify(const Options& options) {
  if (options.triangles == 0 && !(options.share > 0))
    throw Failure(wrong_usage, "simplify: --triangles or --share is required");
  expect_writable(options.out);
  const NodePtr scene = load_and_warn(options.in);
  Simplification work(options);
  {
    const ScratchFolder aside;  // a copy of each result is left in the working directory
    for (const NodePtr& node : chosen_nodes(scene, options)) work.simplify(node);
  }
  work.tell(options.in);
  save_scene(scene, options.out);
  say_written(options.out);
}

}  // namespace

void add_simplify_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.add_subcommand("simplify", "Make geometry of fewer triangles, by collapsing edges");
  add_input(*command, "IN", options->in);
  add_output(*command, "-o,--output", options->out);
  CLI::Option* triangles =
      command->add_option("--triangles", options->triangles, "About so many for each geometry")
          ->check(CLI::Range(1u, 2'000'000'000u).description(""))
          ->type_name("N");
  command
      ->add_option("--share", options->share,
                   "About this share of each geometry's triangles, above 0 and at most 1")
      ->check(share_check())
      ->type_name("P")
      ->excludes(triangles);
  command->add_option("--name", options->name, "Only geometry of this name, or of a node so named")
      ->type_name("NAME");
  command->footer(
      "Short edges where few triangles meet go first. Geometry with no more triangles than wanted\n"
      "stays as it is, the rest gets new normals, with a crease angle of 30 degrees.\n"
      "Examples:\n"
      "  morlu simplify statue.glb -o light.glb --share 0.1\n"
      "  morlu simplify plant.glb -o light.glb --triangles 5000 --name boiler");
  command->callback([options] { simplify(*options); });
}

}  // namespace morlu::program
