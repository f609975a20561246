#include "material_look.h"

namespace osg::io {
namespace {

Color4f opaque(const Color3f& color) {
  return {color[0], color[1], color[2], 1.0f};
}

TextureLook look_of_texture(const TextureChunk& chunk) {
  return {chunk.getImage(), chunk.getMinFilter(), chunk.getMagFilter(),
          chunk.getWrapS(), chunk.getWrapT(),     chunk.getTexCoordSet()};
}

void take_colors(const ChunkMaterialPtr& material, MaterialLook& look) {
  if (const auto chunk = material->findFirstChunk<MaterialChunk>()) {
    look.diffuse = chunk->getDiffuse();
    look.ambient = chunk->getAmbient();
    look.specular = chunk->getSpecular();
    look.emission = chunk->getEmission();
    look.shininess = chunk->getShininess();
  } else if (const auto simple = SimpleMaterial::dcast(material)) {
    look.diffuse = opaque(simple->getDiffuse());
    look.ambient = opaque(simple->getAmbient());
    look.specular = opaque(simple->getSpecular());
    look.emission = opaque(simple->getEmission());
    look.shininess = simple->getShininess();
  }
}

void take_texture(const ChunkMaterialPtr& material, MaterialLook& look) {
  const auto simple = SimpleTexturedMaterial::dcast(material);
  const auto chunk = material->findLastChunk<TextureChunk>();
  const bool is_cube = !CubeTextureChunk::dcast(chunk).isNull();
  if (chunk && chunk->getImage() && !is_cube)
    look.texture = look_of_texture(*chunk);
  else if (simple && simple->getImage())
    look.texture = TextureLook{.image = simple->getImage()};
}

}  // namespace

ChunkMaterialPtr build_material(const MaterialLook& look, const std::string& name) {
  const auto material = ChunkMaterial::create();
  if (!name.empty()) osg::setName(material, name);
  const auto colors = MaterialChunk::create();
  colors->setDiffuse(look.diffuse);
  colors->setAmbient(look.ambient);
  colors->setSpecular(look.specular);
  colors->setEmission(look.emission);
  colors->setShininess(look.shininess);
  material->addChunk(colors);
  if (look.texture) {
    const auto texture = TextureChunk::create();
    texture->setImage(look.texture->image);
    texture->setMinFilter(look.texture->min_filter);
    texture->setMagFilter(look.texture->mag_filter);
    texture->setWrapS(look.texture->wrap_s);
    texture->setWrapT(look.texture->wrap_t);
    texture->setTexCoordSet(look.texture->set);
    material->addChunk(texture);
  }
  if (look.blended) {
    const auto blend = BlendChunk::create();
    blend->setSrcFactor(gl::kSrcAlpha);
    blend->setDestFactor(gl::kOneMinusSrcAlpha);
    material->addChunk(blend);
  }
  return material;
}

MaterialLook look_of(const MaterialPtr& material) {
  // A switch may hold a switch, or itself: a few steps are enough for any sensible one.
  MaterialPtr chosen = material;
  for (int step = 0; step < 8; ++step)
    if (const auto choice = SwitchMaterial::dcast(chosen)) chosen = choice->getChosenMaterial();
  MaterialLook look;
  const auto chunks = ChunkMaterial::dcast(chosen);
  if (!chunks) return look;
  take_colors(chunks, look);
  take_texture(chunks, look);
  if (const auto blend = chunks->findLastChunk<BlendChunk>())
    look.blended = blend->getSrcFactor() != gl::kOne || blend->getDestFactor() != gl::kZero;
  return look;
}

}  // namespace osg::io
