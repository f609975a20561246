#include "texture_use.h"

#include <osg/cores.h>
#include <osg/geometry.h>

#include <algorithm>
#include <list>
#include <vector>

#include "cli.h"
#include "morlu/optimiser.h"
#include "morlu/primitives.h"

namespace morlu::program {

TextureUse use_of_textures(const ::osg::MaterialPtr& material) {
  if (const auto simple = ::osg::SimpleTexturedMaterial::dcast(material))
    if (simple->getImage()) return TextureUse::base_color;
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  if (!chunks) return TextureUse::none;
  if (const auto texture = chunks->findLastChunk<::osg::TextureChunk>())
    if (texture->getImage() && !texture->getImage()->empty()) return TextureUse::base_color;
  const auto pbr = chunks->findFirstChunk<::osg::PBRChunk>();
  return pbr && !pbr->getImages().empty() ? TextureUse::other : TextureUse::none;
}

::osg::MaterialPtr material_of(const ::osg::NodePtr& node) {
  const auto geometry = ::osg::Geometry::dcast(node->getCore());
  if (geometry && geometry->getMaterial()) return geometry->getMaterial();
  const ::osg::NodePtr above = osg::searchMaterialGroup(node);
  return above ? ::osg::MaterialGroup::dcast(above->getCore())->getMaterial() : ::osg::NullFC;
}

bool holds_geometry(const ::osg::NodePtr& scene) {
  std::list<::osg::NodePtr> nodes;
  osg::collect_geo_nodes(scene, nodes);
  return !nodes.empty();
}

namespace {

/// Whether an atlas keeps less of the material than it has.
bool is_more_than_texture(const ::osg::MaterialPtr& material) {
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  const auto texture = chunks ? chunks->findLastChunk<::osg::TextureChunk>() : ::osg::NullFC;
  if (!texture || !texture->getImage()) return false;
  const auto plain = ::osg::MaterialChunk::create();
  const auto& all = chunks->getChunks();
  return std::any_of(all.begin(), all.end(), [&](const ::osg::StateChunkPtr& each) {
    return each != texture && !::osg::BlendChunk::dcast(each) && !::osg::equalByValue(each, plain);
  });
}

bool is_repeating(const ::osg::MaterialPtr& material) {
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  const auto texture = chunks ? chunks->findLastChunk<::osg::TextureChunk>() : ::osg::NullFC;
  return !texture ||
         (texture->getWrapS() == ::osg::gl::kRepeat && texture->getWrapT() == ::osg::gl::kRepeat);
}

bool is_within_picture(const ::osg::GeoTexCoordsPtr& coordinates) {
  for (::osg::UInt32 i = 0; coordinates && i < coordinates->size(); ++i) {
    const auto t = coordinates->getValue(i);
    if (!(t[0] >= 0 && t[0] <= 1 && t[1] >= 0 && t[1] <= 1)) return false;
  }
  return true;
}

bool changes_when_shifted(const ::osg::NodePtr& node) {
  return !is_repeating(material_of(node)) &&
         !is_within_picture(::osg::Geometry::dcast(node->getCore())->getTexCoords());
}

/// One line with the number of parts that take part and are so, if there are any.
void warn_of_parts(const ::osg::NodePtr& scene, const std::string& file,
                   bool (*are_so)(const ::osg::NodePtr&), const char* what) {
  std::vector<::osg::NodePtr> nodes;
  osg::getGeometryNodes(scene, nodes, false);
  const auto count = std::count_if(nodes.begin(), nodes.end(), are_so);
  if (count > 0)
    say("warning: " + file + ": " + grouped(static_cast<std::uint64_t>(count)) + " parts have " +
        what);
}

}  // namespace

void warn_of_richer_materials(const ::osg::NodePtr& scene, const std::string& file) {
  warn_of_parts(
      scene, file,
      [](const ::osg::NodePtr& node) { return is_more_than_texture(material_of(node)); },
      "a material that is more than its texture; in an atlas the rest is lost");
}

void warn_of_shifts(const ::osg::NodePtr& scene, const std::string& file) {
  warn_of_parts(scene, file, changes_when_shifted,
                "textures that clamp or mirror, and may look different; optimizetc(0) leaves "
                "their coordinates");
}

}  // namespace morlu::program
