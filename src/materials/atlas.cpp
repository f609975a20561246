// The texture atlas of a scene: which geometry takes part, what its images become, and how it is
// given both.
//
// Geometry is handled by core and effective material, so that what many nodes show is normalised,
// mapped and looked at once, and keeps being shared.

#include <osg/cores.h>

#include <map>
#include <utility>

#include "materials/atlas_coords.h"
#include "materials/atlas_page.h"
#include "materials/tex_coords.h"
#include "morlu/materials.h"
#include "morlu/optimiser.h"
#include "optimiser/scene_queries.h"
#include "primitives/node_walk.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::GeometryPtr;
using ::osg::NodePtr;

/// A core, as nodes of one effective material show it.
using shown_core = std::vector<NodePtr>;

/// In the order of their first nodes.
using shown_cores = std::vector<shown_core>;

GeometryPtr geometry_of(const shown_core& shown) {
  return ::osg::Geometry::dcast(shown.front()->getCore());
}

std::vector<NodePtr> first_nodes(const shown_cores& all) {
  std::vector<NodePtr> nodes;
  for (const shown_core& shown : all) nodes.push_back(shown.front());
  return nodes;
}

shown_cores by_core_and_material(const std::vector<NodePtr>& nodes) {
  shown_cores all;
  std::map<std::pair<::osg::NodeCorePtr, ::osg::MaterialPtr>, std::size_t> known;
  for (const NodePtr& node : nodes) {
    const auto key = std::pair(node->getCore(), getEffectiveMaterial(node));
    const auto [entry, fresh] = known.try_emplace(key, all.size());
    if (fresh) all.emplace_back();
    all[entry->second].push_back(node);
  }
  return all;
}

struct suited_geometry {
  shown_cores solid, transparent;
};

suited_geometry collect_suited(const NodePtr& scene, unsigned max_size, unsigned tc_limit) {
  std::vector<NodePtr> solid, transparent;
  getGeometryNodes(scene, solid, transparent, false);
  const auto suited = [&](const std::vector<NodePtr>& nodes) {
    shown_cores all = by_core_and_material(nodes);
    std::erase_if(all, [&](const shown_core& shown) {
      return excludedFromAtlas(shown.front(), static_cast<float>(tc_limit), max_size / 2);
    });
    return all;
  };
  return {suited(solid), suited(transparent)};
}

bool any_has_colors(const shown_cores& all) {
  for (const shown_core& shown : all)
    if (const auto& colors = geometry_of(shown)->getColors(); colors && !colors->empty())
      return true;
  return false;
}

void set_core(const shown_core& shown, const ::osg::NodeCorePtr& core) {
  for (const NodePtr& node : shown)
    if (node->getCore() != core) node->setCore(core);
}

/// The core itself if only these nodes have it, else a copy, which they get.
GeometryPtr core_of_their_own(const shown_core& shown) {
  const GeometryPtr held = geometry_of(shown);
  if (held->getNumParents() <= shown.size()) return held;
  const auto copy = ::osg::Geometry::dcast(held->shallowCopy());
  set_core(shown, copy);
  return copy;
}

/// Brings the coordinates near zero. Nothing for geometry without image, whose coordinates may
/// serve what isn't seen here.
void normalize(const shown_cores& all, unsigned optimize_tc) {
  for (const shown_core& shown : all) {
    if (!hasMaterialImage(shown.front())) continue;
    normalizeNodeTexCoords(shown.front(), static_cast<int>(optimize_tc), 50);
    set_core(shown, shown.front()->getCore());
  }
}

/// Gives geometry below, unless it has one of its own, the group's material, and makes it a plain
/// group. One without a material stays: it keeps groups below it from theirs.
void dissolve_material_group(const NodePtr& group) {
  const auto core = ::osg::MaterialGroup::dcast(group->getCore());
  const auto material = core->getMaterial();
  if (!material) return;
  std::map<GeometryPtr, shown_core> without;
  for_each_node(group, [&](const NodePtr& node) {
    const auto geometry = ::osg::Geometry::dcast(node->getCore());
    if (geometry && !geometry->getMaterial()) without[geometry].push_back(node);
  });
  for (const auto& [geometry, nodes] : without) core_of_their_own(nodes)->setMaterial(material);
  const auto plain = ::osg::Group::create();
  if (const char* name = ::osg::getName(core)) ::osg::setName(plain, name);
  group->setCore(plain);
}

/// A geometry keeps its texture if that is not in an atlas, or if it can't be mapped.
void applyAtlases(const shown_cores& all, const atlas_image_table& table,
                  const std::vector<texture_atlas>& atlases) {
  for (const shown_core& shown : all) {
    const std::int64_t at = table.find(findMaterialImage(shown.front()));
    if (at < 0 || !has_mappable_coords(*geometry_of(shown))) continue;
    const atlas_image& image = table.records()[static_cast<std::size_t>(at)];
    if (!image.placed) continue;
    const texture_atlas& atlas = atlases[static_cast<std::size_t>(image.atlas_index)];
    const GeometryPtr geometry = core_of_their_own(shown);
    remapTexCoord(geometry, atlas.used_width, atlas.used_height, image.width, image.height, image.x,
                  image.y);
    geometry->setMaterial(atlas.material);
    for (const NodePtr& node : shown)
      if (const NodePtr group = searchMaterialGroup(node)) dissolve_material_group(group);
  }
}

/// Appends the pages that show something, and their tiles in the order of the table.
void append(const atlas_image_table& table, const std::vector<texture_atlas>& atlases,
            scene_atlas& result) {
  const std::size_t first = result.pages.size();
  for (const texture_atlas& atlas : atlases)
    if (atlas.placed_count > 0) result.pages.push_back(atlas.final_image);
  for (const atlas_image& image : table.records())
    if (image.placed)
      result.tiles.push_back({.source = image.source,
                              .page = first + static_cast<std::size_t>(image.atlas_index),
                              .x = static_cast<std::uint32_t>(image.x),
                              .y = static_cast<std::uint32_t>(image.y),
                              .width = image.width,
                              .height = image.height,
                              .columns = static_cast<std::uint32_t>(tile_repeats(image.max_u)),
                              .rows = static_cast<std::uint32_t>(tile_repeats(image.max_v))});
}

/// Returns the number of images placed.
std::size_t buildAtlases(const shown_cores& all, atlas_image_table& table, bool alpha,
                         unsigned max_size, bool colors, scene_atlas& result) {
  auto atlases = packAtlases(table.records(), max_size, alpha, colors);
  for (texture_atlas& atlas : atlases)
    if (atlas.placed_count > 0) drawAtlas(atlas, table.records());
  applyAtlases(all, table, atlases);
  const std::size_t before = result.tiles.size();
  append(table, atlases, result);
  return result.tiles.size() - before;
}

atlas_image_table images_of(const shown_cores& all) {
  atlas_image_table table;
  collectAtlasImages(first_nodes(all), table);
  return table;
}

void say_counts(std::size_t solid, std::size_t transparent, const char* what) {
  say(std::to_string(solid) + " solid images " + what + ".\n");
  say(std::to_string(transparent) + " transparent images " + what + ".\n");
}

unsigned checked_size(unsigned max_size) {
  if (max_size >= smallest_atlas && max_size <= largest_atlas) return max_size;
  say("createTextureAtlasForScene: Texture Size must between 32x32 and 8192x8192.\n");
  return largest_atlas;
}

bool are_equal(const ::osg::Image& a, const ::osg::Image& b) {
  return a.getPixelFormat() == b.getPixelFormat() &&
         std::equal(a.getData(), a.getData() + a.getSize(), b.getData(), b.getData() + b.getSize());
}

}  // namespace

scene_atlas createSceneAtlas(NodePtr scene, unsigned int maxSize, unsigned int tcLimit,
                             unsigned int optimizeTc) {
  scene_atlas result;
  if (!scene) return result;
  const unsigned size = checked_size(maxSize);
  const auto [solid, transparent] = collect_suited(scene, size, tcLimit);
  const bool solid_colors = any_has_colors(solid), transparent_colors = any_has_colors(transparent);
  normalize(solid, optimizeTc);
  normalize(transparent, optimizeTc);

  atlas_image_table solid_images = images_of(solid), transparent_images = images_of(transparent);
  say_counts(solid_images.records().size(), transparent_images.records().size(),
             "collected for texture atlas");
  const auto placed = buildAtlases(solid, solid_images, false, size, solid_colors, result);
  const auto placed_transparent =
      buildAtlases(transparent, transparent_images, true, size, transparent_colors, result);
  say_counts(placed, placed_transparent, "processed");
  return result;
}

unsigned int createTextureAtlasForScene(NodePtr scene, unsigned int maxSize, unsigned int tcLimit,
                                        unsigned int optimizeTc) {
  return static_cast<unsigned>(
      createSceneAtlas(std::move(scene), maxSize, tcLimit, optimizeTc).tiles.size());
}

std::vector<atlas_mix_up> findAtlasMixUps(NodePtr scene, unsigned int maxSize,
                                          unsigned int tcLimit) {
  std::vector<atlas_mix_up> found;
  if (!scene) return found;
  const bool fits = maxSize >= smallest_atlas && maxSize <= largest_atlas;
  const auto suited = collect_suited(scene, fits ? maxSize : largest_atlas, tcLimit);
  for (const shown_cores* all : {&suited.solid, &suited.transparent}) {
    atlas_image_table table;
    for (const shown_core& shown : *all) {
      const auto image = findMaterialImage(shown.front());
      if (!image || table.find(image) >= 0) continue;
      const std::size_t before = table.records().size();
      table.add(image, 0, 0);
      const std::int64_t at = table.find(image);
      if (at < 0 || table.records().size() > before) continue;
      const auto& kept = table.records()[static_cast<std::size_t>(at)].source;
      if (!are_equal(*kept, *image)) found.push_back({kept, image});
    }
  }
  return found;
}

}  // namespace morlu::osg
