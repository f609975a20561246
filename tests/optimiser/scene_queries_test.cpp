#include "optimiser/scene_queries.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include <osg/attachment.h>
#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/state_chunks.h>

#include "support/scene_parts.h"

namespace morlu::osg {
namespace {

using ::osg::MaterialPtr;
using ::osg::NodePtr;
using nodes = std::vector<NodePtr>;

template <class Core>
NodePtr node_of(const nodes& children = {}) {
  return node_with(Core::create(), children);
}

NodePtr shape(const MaterialPtr& material = ::osg::NullFC, const nodes& children = {}) {
  const NodePtr node = node_of<::osg::Geometry>(children);
  ::osg::Geometry::dcast(node->getCore())->setMaterial(material);
  return node;
}

NodePtr hidden(const NodePtr& node) {
  node->setTravMask(0);
  return node;
}

::osg::StateChunkPtr diffuse_alpha(float alpha) {
  return diffuse({1, 1, 1, alpha});
}

/// An RGBA image with this alpha in its last pixel and 255 in all others.
::osg::ImagePtr image_with_alpha(::osg::UInt8 alpha, ::osg::UInt32 format = ::osg::gl::kRGBA,
                                 int width = 123, int height = 457) {
  const auto image = ::osg::Image::create();
  image->set(format, width, height);
  std::fill_n(image->getData(), image->getSize(), ::osg::UInt8{255});
  image->getData()[image->getSize() - 1] = alpha;
  return image;
}

const MaterialPtr switched = ::osg::SwitchMaterial::create();
const MaterialPtr mirroring = of_chunks({diffuse_alpha(1), ::osg::CubeTextureChunk::create()});
const MaterialPtr glass = of_chunks({diffuse_alpha(0.5f)});
const MaterialPtr plain = of_chunks({diffuse_alpha(1)});

// group -- a(opaque) -- b(glass)
//       |- c(skipped) -- d            neither is listed
//       |- mask 0 -- e                nor this one
//       |- switch -- f(skipped, mask 0) -- g       f ends its branch
//       |         `- no core -- h
//       |- lod -- i(glass)
//       `- group -- j(opaque)
struct scene {
  NodePtr b = shape(glass), d = shape(), e = shape(), g = shape(), h = shape();
  NodePtr a = shape(plain, {b}), c = shape(switched, {d}), f = hidden(shape(mirroring, {g}));
  NodePtr i = shape(glass), j = shape();
  NodePtr bare = node_with(::osg::NullFC, {h});
  NodePtr root = node_of<::osg::Group>(
      {a, c, hidden(node_of<::osg::Group>({e})), node_of<::osg::Switch>({f, bare}),
       node_of<::osg::DistanceLOD>({i}), node_of<::osg::Group>({j})});
};

TEST(SceneQueries, GeometryNodesComeInTheirListsAndOrder) {
  const scene s;
  const NodePtr before = shape();
  nodes list{before};
  EXPECT_EQ(getGeometryNodes(s.root, list, false), 3u) << "what stood in the list counts";
  EXPECT_EQ(list, (nodes{before, s.a, s.j, s.b}));
  list.clear();
  EXPECT_EQ(getGeometryNodes(s.root, list, true), 5u);
  EXPECT_EQ(list, (nodes{s.a, s.j, s.f, s.h, s.i, s.b}));
  for (const bool with_switched : {false, true}) {
    nodes opaque, transparent;
    EXPECT_EQ(getGeometryNodes(s.root, opaque, transparent, with_switched), 3u);
    EXPECT_EQ(transparent, nodes{s.b});
    EXPECT_EQ(opaque, with_switched ? (nodes{s.a, s.j, s.f, s.h, s.i}) : (nodes{s.a, s.j}));
  }
  // Below a node without core nothing is seen, but under a switch.
  list.clear();
  EXPECT_EQ(getGeometryNodes(s.bare, list, true), 0u);
  EXPECT_EQ(getGeometryNodes(::osg::NullFC, list, true), 0u);
  EXPECT_TRUE(list.empty());
}

TEST(SceneQueries, AGeometryAtTheTopIsListedAsANewNode) {
  const NodePtr child = shape();
  const NodePtr node = shape(plain, {child});
  const NodePtr above = node_of<::osg::Group>({node});
  nodes list;
  EXPECT_EQ(getGeometryNodes(node, list, false), 1u);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_FALSE(list[0] == node);
  EXPECT_TRUE(list[0]->getCore() == node->getCore());
  EXPECT_TRUE(node->getParent() == above && child->getParent() == node) << "the graph is as it was";
}

TEST(SceneQueries, SkippedAndHiddenNodes) {
  const scene s;
  nodes list;
  getSkippedNodes(s.root, list);
  EXPECT_EQ(list, (nodes{s.c, s.f}));
  EXPECT_EQ(countSkippedGeometry(s.root), 2u);
  s.d->setTravMask(0);
  EXPECT_EQ(countSkippedGeometry(s.root), 3u) << "counts below a skipped one too";
  EXPECT_TRUE(isSkippedGeometry(s.d));
  EXPECT_FALSE(isSkippedGeometry(s.a) || isSkippedGeometry(hidden(node_of<::osg::Group>())));
  EXPECT_FALSE(isSkippedGeometry(::osg::NullFC));
  // The material of a group above skips as well, but not where a geometry has its own.
  const NodePtr bare = shape(), own = shape(plain);
  const NodePtr top = below_material(mirroring, {bare, own});
  EXPECT_TRUE(isSkippedGeometry(bare) && !isSkippedGeometry(own));

  list.clear();
  getTravMaskZeroNodes(s.root, list, false);
  EXPECT_EQ(list, (nodes{s.d, s.e, s.f, s.g}));
  list.clear();
  getTravMaskZeroNodes(s.root, list, true);
  EXPECT_EQ(list, (nodes{s.a, s.b, s.c, s.d, s.e, s.f, s.g, s.i, s.j})) << "h is below no core";
  getTravMaskZeroNodes(::osg::NullFC, list, true);
  getSkippedNodes(::osg::NullFC, list);
  EXPECT_EQ(list.size(), 9u);
}

TEST(SceneQueries, TheTopmostMaterialGroupCounts) {
  const NodePtr own = shape(plain), none = shape();
  const NodePtr lower = below_material(plain, {own, none});
  EXPECT_TRUE(searchMaterialGroup(none) == lower);
  const NodePtr upper = below_material(glass, {node_of<::osg::Group>({lower})});
  const NodePtr root = node_of<::osg::Transform>({upper});
  EXPECT_TRUE(searchMaterialGroup(none) == upper);
  EXPECT_TRUE(searchMaterialGroup(lower) == upper);
  EXPECT_TRUE(searchMaterialGroup(upper).isNull()) << "a node is not above itself";
  EXPECT_TRUE(searchMaterialGroup(::osg::NullFC).isNull());
  EXPECT_TRUE(getEffectiveMaterial(own) == plain);
  EXPECT_TRUE(getEffectiveMaterial(none) == glass);
  EXPECT_TRUE(getEffectiveMaterial(root).isNull());
  EXPECT_TRUE(getEffectiveMaterial(::osg::NullFC).isNull());
  EXPECT_TRUE(hasTransparentMaterial(none) && !hasTransparentMaterial(own));
  ::osg::MaterialGroup::dcast(upper->getCore())->setMaterial(::osg::NullFC);
  EXPECT_TRUE(getEffectiveMaterial(none).isNull()) << "the lower one stays out of it";
}

struct image_case {
  std::string what;
  MaterialPtr material;
  ::osg::ImagePtr image;
  bool alpha, blended, transparent;
};

std::vector<image_case> image_cases() {
  const auto opaque = image_with_alpha(255), clear = image_with_alpha(254);
  const auto pixel = image_with_alpha(0, ::osg::gl::kRGBA, 1, 1);
  const auto bgra = image_with_alpha(0, ::osg::gl::kBGRA);
  const auto blend = texture_of(opaque), combine = texture_of(opaque), add = texture_of(opaque);
  const auto blend_alone = texture_of(::osg::NullFC);
  blend->setEnvMode(::osg::gl::kBlend);
  blend_alone->setEnvMode(::osg::gl::kBlend);
  combine->setEnvMode(::osg::gl::kCombine);  // with what a new chunk has: modulate
  add->setEnvMode(::osg::gl::kCombine);
  add->setEnvCombineRGB(::osg::gl::kAdd);
  const auto simple_blend = simple_textured(clear);
  simple_blend->setEnvMode(::osg::gl::kBlend);
  simple_blend->addChunk(add);
  const auto simple_combine = simple_textured(opaque);
  simple_combine->setEnvMode(::osg::gl::kCombine);
  const ::osg::ImagePtr none;
  return {
      {"no material", ::osg::NullFC, none, false, false, false},
      {"another material", switched, none, false, false, false},
      {"a pixel of alpha 254", simple_textured(clear), clear, true, false, true},
      {"all of alpha 255", simple_textured(opaque), opaque, false, false, false},
      {"a single pixel", simple_textured(pixel), pixel, true, false, true},
      {"another format", simple_textured(bgra), bgra, false, false, false},
      {"an image without pixels", simple_textured(::osg::Image::create()), none, false, false,
       false},
      {"its own image, not a chunk's", simple_blend, clear, true, true, true},
      {"only chunks combine", simple_combine, opaque, false, false, false},
      {"the last texture", of_chunks({texture_of(clear), combine}), opaque, false, true, false},
      {"blend", of_chunks({blend}), opaque, false, true, false},
      {"blend without image", of_chunks({blend_alone}), none, false, true, false},
      {"combine, add", of_chunks({add}), opaque, false, false, false},
      {"no texture", plain, none, false, false, false},
      {"alpha of the last", of_chunks({diffuse_alpha(1), diffuse_alpha(0.9f)}), none, false, false,
       true},
      {"alpha of the first", of_chunks({diffuse_alpha(0.9f), diffuse_alpha(1)}), none, false, false,
       false},
      {"NaN alpha", of_chunks({diffuse_alpha(std::nanf(""))}), none, false, false, true},
  };
}

TEST(SceneQueries, ImagesAndTransparency) {
  for (const image_case& each : image_cases()) {
    SCOPED_TRACE(each.what);
    const NodePtr node = shape(each.material);
    bool alpha = !each.alpha, blended = !each.blended;
    const auto image = getMaterialImage(node, alpha, blended);
    EXPECT_TRUE(image == each.image);
    EXPECT_EQ(alpha, each.alpha);
    EXPECT_EQ(blended, each.blended);
    const NodePtr root = node_of<::osg::Group>({node});
    nodes opaque, transparent;
    getGeometryNodes(root, opaque, transparent, false);
    const bool listed = each.material != switched;
    EXPECT_EQ(transparent.size(), each.transparent ? 1u : 0u);
    EXPECT_EQ(opaque.size(), listed && !each.transparent ? 1u : 0u);
  }
}

TEST(SceneQueries, ColoursOfMaterials) {
  const auto simple = simple_material({0.1f, 0.2f, 0.3f});
  simple->setSpecular({0.4f, 0.5f, 0.6f});
  simple->setAmbient({0.7f, 0.8f, 0.9f});
  simple->setEmission({1.1f, 1.2f, 1.3f});
  simple->setShininess(12);
  material_colors colors;
  ASSERT_TRUE(getMaterialColors(simple, colors));
  EXPECT_EQ(colors.diffuse, ::osg::Color4f(0.1f, 0.2f, 0.3f, 1));
  EXPECT_EQ(colors.specular, ::osg::Color4f(0.4f, 0.5f, 0.6f, 1));
  EXPECT_EQ(colors.ambient, ::osg::Color4f(0.7f, 0.8f, 0.9f, 1));
  EXPECT_EQ(colors.emission, ::osg::Color4f(1.1f, 1.2f, 1.3f, 1));
  EXPECT_EQ(colors.shininess, 12);

  const auto choice = ::osg::SwitchMaterial::create();
  choice->getMaterials() = {::osg::NullFC, simple, choice, switched};
  simple->addChunk(diffuse_alpha(0.25f));  // the first chunk goes before the material's own colours
  simple->addChunk(diffuse_alpha(0.75f));
  choice->setChoice(1);
  ASSERT_TRUE(getMaterialColors(choice, colors));
  EXPECT_EQ(colors.diffuse, ::osg::Color4f(1, 1, 1, 0.25f));

  // None of these has colours, and only one says so; a choice of itself doesn't go round for ever.
  testing::internal::CaptureStdout();
  for (const int none : {0, 2, 3, 4}) {
    choice->setChoice(none);
    EXPECT_FALSE(getMaterialColors(choice, colors));
  }
  EXPECT_FALSE(getMaterialColors(of_chunks({texture_of(::osg::NullFC)}), colors));
  EXPECT_FALSE(getMaterialColors(::osg::NullFC, colors));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  testing::internal::CaptureStdout();
  choice->setChoice(-1);
  EXPECT_FALSE(getMaterialColors(choice, colors));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "False SwitchMatChoice\n");
  EXPECT_EQ(colors.diffuse, ::osg::Color4f(1, 1, 1, 0.25f)) << "left alone";
  choice->getMaterials().clear();
}

// Deeper than any stack of a recursion; and one large image on many geometries is looked at once.
TEST(SceneQueries, DeepChainsAndSharedImages) {
  const MaterialPtr shared = simple_textured(image_with_alpha(255, ::osg::gl::kRGBA, 2048, 2048));
  NodePtr root = node_of<::osg::Group>();
  for (int i = 0; i < 20000; ++i) root->addChild(shape(shared));
  for (int depth = 0; depth < 200000; ++depth) root = node_of<::osg::Group>({root});
  nodes list;
  EXPECT_EQ(getGeometryNodes(root, list, false), 20000u);
  EXPECT_EQ(countSkippedGeometry(root), 0u);
  getTravMaskZeroNodes(root, list, true);
  EXPECT_EQ(list.size(), 40000u);
}

}  // namespace
}  // namespace morlu::osg
