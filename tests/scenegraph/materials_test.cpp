// Materials and chunks: their lists, and when two of them are equal by value.

#include "osg/material.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <set>

#include "support/scene_parts.h"

namespace {

using osg::Color3f;
using osg::Color4f;

/// A chunk type that only an application knows.
class OwnTexture : public osg::ValueContainerClass<"OwnTexture", OwnTexture, osg::TextureChunk> {};

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

TEST(Materials, ChunksCompareByValueImagesByIdentity) {
  const auto image = osg::Image::create(), same_pixels = osg::Image::create();
  const auto material = of_chunks({texture_of(image), osg::BlendChunk::create()});
  EXPECT_TRUE(
      osg::equalByValue(material, of_chunks({texture_of(image), osg::BlendChunk::create()})));
  EXPECT_FALSE(
      osg::equalByValue(material, of_chunks({texture_of(same_pixels), osg::BlendChunk::create()})));
  EXPECT_FALSE(
      osg::equalByValue(material, of_chunks({osg::BlendChunk::create(), texture_of(image)})));
  EXPECT_FALSE(osg::equalByValue(material, of_chunks({texture_of(image)})));
  EXPECT_FALSE(osg::equalByValue(material, osg::NullFC));
  EXPECT_TRUE(osg::equalByValue(osg::NullFC, osg::NullFC));

  // The type counts exactly, whatever the fields say.
  EXPECT_FALSE(osg::equalByValue(osg::TextureChunk::create(), osg::CubeTextureChunk::create()));
  EXPECT_FALSE(osg::equalByValue(osg::TextureChunk::create(), OwnTexture::create()));
  EXPECT_TRUE(osg::equalByValue(OwnTexture::create(), OwnTexture::create()));

  const auto named = of_chunks({texture_of(image), osg::BlendChunk::create()});
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

}  // namespace
