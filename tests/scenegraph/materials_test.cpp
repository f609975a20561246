// Materials and chunks: what new ones say, and when two of them are equal by value.

#include "osg/material.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <thread>

namespace {

using osg::Color3f;
using osg::Color4f;

/// A chunk type that only an application knows.
class OwnTexture : public osg::ValueContainerClass<"OwnTexture", OwnTexture, osg::TextureChunk> {
 protected:
  friend osg::ContainerClass<"OwnTexture", OwnTexture, osg::TextureChunk>;
  OwnTexture() = default;
  OwnTexture(const OwnTexture&) = default;
};

TEST(Materials, NewOnesAreOpaqueAndWhite) {
  const auto chunk = osg::MaterialChunkBase::create();
  EXPECT_EQ(chunk->getDiffuse(), Color4f(1, 1, 1, 1));
  EXPECT_EQ(chunk->getBackDiffuse(), Color4f(1, 1, 1, 0));  // the back has no colours of its own
  for (const Color4f& ambient : {chunk->getAmbient(), chunk->getBackAmbient()})
    EXPECT_EQ(ambient, Color4f(0.2f, 0.2f, 0.2f, 1));
  for (const Color4f& black : {chunk->getSpecular(), chunk->getEmission(), chunk->getBackSpecular(),
                               chunk->getBackEmission()})
    EXPECT_EQ(black, Color4f(0, 0, 0, 1));
  EXPECT_EQ(chunk->getShininess(), 1);
  EXPECT_EQ(chunk->getBackShininess(), 1);
  EXPECT_EQ(chunk->getColorMaterial(), 0u);

  const auto simple = osg::SimpleTexturedMaterialBase::create();
  EXPECT_EQ(simple->getDiffuse(), Color3f(1, 1, 1));
  EXPECT_EQ(simple->getAmbient(), Color3f(0.2f, 0.2f, 0.2f));
  EXPECT_EQ(simple->getSpecular(), Color3f(0, 0, 0));
  EXPECT_EQ(simple->getEmission(), Color3f(0, 0, 0));
  EXPECT_EQ(simple->getShininess(), 1);
  EXPECT_EQ(simple->getEnvMode(), 8448u);
  EXPECT_TRUE(simple->getImage().isNull());
  EXPECT_TRUE(simple->getChunks().empty());  // the colours are fields, not a chunk

  const auto texture = osg::CubeTextureChunkBase::create();
  EXPECT_EQ(texture->getEnvMode(), 8448u);
  EXPECT_NE(texture->getEnvCombineRGB(), 34160u);
  EXPECT_EQ(texture->getMinFilter(), 9987u);
  EXPECT_EQ(texture->getMagFilter(), 9729u);
  EXPECT_EQ(texture->getWrapS(), 10497u);
  EXPECT_EQ(texture->getWrapT(), 10497u);
  EXPECT_EQ(osg::TransformChunkBase::create()->getMatrix(), osg::Matrix());
}

TEST(Materials, TypesKnowTheirParents) {
  const auto derives = [](const osg::TypeBase& type, const osg::TypeBase& parent) {
    return type.isDerivedFrom(parent);
  };
  EXPECT_TRUE(
      derives(osg::SimpleTexturedMaterial::getClassType(), osg::SimpleMaterial::getClassType()));
  EXPECT_TRUE(derives(osg::SimpleMaterial::getClassType(), osg::ChunkMaterial::getClassType()));
  EXPECT_FALSE(derives(osg::SwitchMaterial::getClassType(), osg::ChunkMaterial::getClassType()));
  EXPECT_TRUE(derives(osg::CubeTextureChunk::getClassType(), osg::TextureChunk::getClassType()));
  EXPECT_STREQ(osg::SwitchMaterial::create()->getType().getCName(), "SwitchMaterial");
  EXPECT_TRUE(osg::SimpleMaterial::dcast(osg::ChunkMaterial::create()).isNull());
}

TEST(Materials, ChunksKeepTheirOrder) {
  const auto material = osg::ChunkMaterialBase::create();
  const auto first = osg::TextureChunk::create();
  const auto blend = osg::BlendChunk::create();
  const auto last = osg::CubeTextureChunk::create();
  for (const osg::StateChunkPtr& chunk :
       {osg::StateChunkPtr(first), osg::StateChunkPtr(), osg::StateChunkPtr(blend),
        osg::StateChunkPtr(last), osg::StateChunkPtr(blend)})
    material->addChunk(chunk);

  EXPECT_EQ(material->getChunks(), (std::vector<osg::StateChunkPtr>{first, blend, last, blend}));
  EXPECT_EQ(material->findFirstChunk<osg::TextureChunk>(), first);
  EXPECT_EQ(material->findLastChunk<osg::TextureChunk>(), last);  // a cube texture is a texture
  EXPECT_TRUE(material->findLastChunk<osg::MaterialChunk>().isNull());

  EXPECT_TRUE(material->subChunk(blend));
  EXPECT_EQ(material->getChunks(), (std::vector<osg::StateChunkPtr>{first, last, blend}));
  EXPECT_FALSE(material->subChunk(osg::MaterialChunk::create()));
  EXPECT_FALSE(material->subChunk(osg::NullFC));
}

TEST(Materials, SwitchChoosesOneOrNone) {
  const auto material = osg::SwitchMaterial::create();
  EXPECT_TRUE(material->getChosenMaterial().isNull());
  const auto a = osg::SimpleMaterial::create(), b = osg::SimpleMaterial::create();
  material->setMaterials({a, b});
  EXPECT_EQ(material->getChosenMaterial(), a);
  material->setChoice(1);
  EXPECT_EQ(material->getChosenMaterial(), b);
  for (const int none : {-1, 2, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    material->setChoice(none);
    EXPECT_TRUE(material->getChosenMaterial().isNull()) << none;
  }
}

/// One call of a setter, and whether its getter then gives the value.
template <class T>
using Edit = std::function<bool(T&)>;

/// Each edit makes a container that is equal to none of the others, nor to the original; and there
/// are as many edits as fields, so that none of the class's values is missing from its list.
template <class T>
void expect_value_is_all_fields(const std::vector<Edit<T>>& edits) {
  SCOPED_TRACE(T::getClassType().getCName());
  const auto original = T::create();
  EXPECT_EQ(original->listFields().size(), edits.size());
  std::set<std::string> keys{osg::valueKey(*original)};
  std::set<osg::UInt64> hashes{osg::hashByValue(original)};
  for (std::size_t i = 0; i < edits.size(); ++i) {
    const auto edited = T::dcast(original->shallowCopy());
    EXPECT_TRUE(osg::equalByValue(original, edited));
    EXPECT_EQ(osg::hashByValue(original), osg::hashByValue(edited));
    EXPECT_TRUE(edits[i](*edited)) << "edit " << i;
    EXPECT_FALSE(osg::equalByValue(original, edited)) << "edit " << i;
    EXPECT_TRUE(keys.insert(osg::valueKey(*edited)).second) << "edit " << i;
    EXPECT_TRUE(hashes.insert(osg::hashByValue(edited)).second) << "edit " << i;
    EXPECT_TRUE(osg::equalByValue(edited, T::dcast(edited->shallowCopy())));
  }
  std::set<std::string> names;
  for (const auto& field : original->listFields()) EXPECT_TRUE(names.insert(field.name).second);
}

/// Sets the field and asks for it again.
#define EDIT(Field, value)             \
  [](auto& self) {                     \
    const auto given = value;          \
    self.set##Field(given);            \
    return self.get##Field() == given; \
  }

TEST(Materials, EveryFieldIsPartOfTheValue) {
  using osg::ImagePtr;
  static const auto image = osg::Image::create();
  using M = osg::MaterialChunk;
  static const Color4f tint(0.5f, 0.25f, 0.75f, 0.125f);
  expect_value_is_all_fields<M>({EDIT(Diffuse, tint), EDIT(Ambient, tint), EDIT(Specular, tint),
                                 EDIT(Emission, tint), EDIT(Shininess, 7.0f),
                                 EDIT(BackDiffuse, tint), EDIT(BackAmbient, tint),
                                 EDIT(BackSpecular, tint), EDIT(BackEmission, tint),
                                 EDIT(BackShininess, 7.0f), EDIT(ColorMaterial, 5634u)});
  using T = osg::TextureChunk;
  expect_value_is_all_fields<T>({EDIT(Image, image), EDIT(MinFilter, 9728u), EDIT(MagFilter, 9728u),
                                 EDIT(WrapS, 10496u), EDIT(WrapT, 10496u), EDIT(EnvMode, 34160u),
                                 EDIT(EnvCombineRGB, 260u), EDIT(TexCoordSet, 3u)});
  using B = osg::BlendChunk;
  expect_value_is_all_fields<B>({EDIT(SrcFactor, 770u), EDIT(DestFactor, 771u)});
  using X = osg::TransformChunk;
  expect_value_is_all_fields<X>({EDIT(Matrix, osg::Matrix::translation(1, 2, 3))});
  using P = osg::PBRChunk;
  expect_value_is_all_fields<P>({EDIT(Definition, std::string(R"({"alphaMode":"MASK"})")),
                                 EDIT(Images, std::vector<ImagePtr>{image})});
  using S = osg::SimpleTexturedMaterial;
  const Edit<S> add_chunk = [](S& self) {
    self.addChunk(osg::BlendChunk::create());
    return self.getChunks().size() == 1;
  };
  static const Color3f red(0.5f, 0.0f, 0.0f);
  expect_value_is_all_fields<S>({add_chunk, EDIT(Diffuse, red), EDIT(Ambient, red),
                                 EDIT(Specular, red), EDIT(Emission, red), EDIT(Shininess, 7.0f),
                                 EDIT(Image, image), EDIT(EnvMode, 3042u)});
  using W = osg::SwitchMaterial;
  static const osg::MaterialPtr choice = osg::SimpleMaterial::create();
  expect_value_is_all_fields<W>(
      {EDIT(Materials, std::vector<osg::MaterialPtr>{choice}), EDIT(Choice, 1)});
}

osg::ChunkMaterialPtr material_of(const std::vector<osg::StateChunkPtr>& chunks) {
  auto material = osg::ChunkMaterial::create();
  for (const auto& chunk : chunks) material->addChunk(chunk);
  return material;
}

TEST(Materials, ChunksCompareByValueImagesByIdentity) {
  const auto image = osg::Image::create(), same_pixels = osg::Image::create();
  const auto textured = [](const osg::ImagePtr& with) {
    auto chunk = osg::TextureChunk::create();
    chunk->setImage(with);
    return chunk;
  };
  const auto material = material_of({textured(image), osg::BlendChunk::create()});
  EXPECT_TRUE(
      osg::equalByValue(material, material_of({textured(image), osg::BlendChunk::create()})));
  EXPECT_FALSE(
      osg::equalByValue(material, material_of({textured(same_pixels), osg::BlendChunk::create()})));
  EXPECT_FALSE(
      osg::equalByValue(material, material_of({osg::BlendChunk::create(), textured(image)})));
  EXPECT_FALSE(osg::equalByValue(material, material_of({textured(image)})));
  EXPECT_FALSE(osg::equalByValue(material, osg::NullFC));
  EXPECT_TRUE(osg::equalByValue(osg::NullFC, osg::NullFC));

  // The type counts exactly, whatever the fields say.
  EXPECT_FALSE(osg::equalByValue(osg::TextureChunk::create(), osg::CubeTextureChunk::create()));
  EXPECT_FALSE(osg::equalByValue(osg::TextureChunk::create(), OwnTexture::create()));
  EXPECT_TRUE(osg::equalByValue(OwnTexture::create(), OwnTexture::create()));

  const auto named = material_of({textured(image), osg::BlendChunk::create()});
  osg::setName(named, "other");
  named->addAttachment(osg::StringAttributeMap::create());
  EXPECT_TRUE(osg::equalByValue(material, named));
}

TEST(Materials, EqualityIsReflexiveForEveryFloat) {
  const auto with = [](float shininess) {
    auto chunk = osg::MaterialChunk::create();
    chunk->setShininess(shininess);
    return chunk;
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_TRUE(osg::equalByValue(with(nan), with(nan)));
  EXPECT_FALSE(osg::equalByValue(with(nan), with(0)));
  EXPECT_TRUE(osg::equalByValue(with(-0.0f), with(0.0f)));
  EXPECT_EQ(osg::hashByValue(with(-0.0f)), osg::hashByValue(with(0.0f)));
  EXPECT_FALSE(osg::equalByValue(with(1.0f), with(std::nextafter(1.0f, 2.0f))));
}

TEST(Materials, FieldsAreReadAndWrittenByName) {
  const auto material = osg::SimpleMaterial::create();
  const bool accepted = osg::editFields(*material, [](const char* name, auto& value) {
    using Value = std::remove_reference_t<decltype(value)>;
    if constexpr (std::is_same_v<Value, std::vector<osg::StateChunkPtr>>)
      value = {osg::NullFC, osg::BlendChunk::create(), osg::NullFC};
    if constexpr (std::is_same_v<Value, Color3f>)
      if (name == std::string("emission")) value = Color3f(0.5f, 0, 0);
  });
  EXPECT_TRUE(accepted);
  EXPECT_EQ(material->getChunks().size(), 1u);  // no null stays in the list
  EXPECT_EQ(material->getEmission(), Color3f(0.5f, 0, 0));
  EXPECT_EQ(material->getDiffuse(), Color3f(1, 1, 1));
}

TEST(Materials, ThreadsShareThemFreely) {
  const auto image = osg::Image::create();
  const auto texture = osg::TextureChunk::create();
  texture->setImage(image);
  const auto material = material_of({texture, osg::MaterialChunk::create()});
  const std::string key = osg::valueKey(*material);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        const auto copy = osg::ChunkMaterial::dcast(material->shallowCopy());
        copy->addChunk(material->findLastChunk<osg::TextureChunk>());
        EXPECT_EQ(osg::valueKey(*material), key);
        EXPECT_FALSE(osg::equalByValue(material, copy));
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(texture->getReferenceCount(), 2u);
  EXPECT_EQ(image->getReferenceCount(), 2u);
}

}  // namespace
