#include "texture_use.h"

#include <osg/cores.h>
#include <osg/geometry.h>

#include "morlu/optimiser.h"

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

}  // namespace morlu::program
