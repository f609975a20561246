// Rebuilds: each geometry once, in the colours that it had, and nothing given up for a tree with
// gaps.

#include <gtest/gtest.h>

#include <list>

#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "optimiser/mixed_scene.h"

namespace morlu::tests {
namespace {

using ::osg::NodePtr;

NodePtr rebuilt(const NodePtr& node, unsigned leaf, bool flat = true, int opt = 1,
                std::string* out = nullptr) {
  test::said text;
  const NodePtr tree = osg::buildSceneTree(node, {.leaf_size = leaf}, flat, opt, 2, false);
  text.end();
  EXPECT_EQ(text.err, "");
  if (out) *out = text.out;
  return tree;
}

std::list<NodePtr> geometry_below(const NodePtr& root) {
  std::list<NodePtr> found;
  osg::collect_geo_nodes(root, found);
  return found;
}

bool has_new_normals(const NodePtr& node) {
  return ::osg::Geometry::dcast(node->getCore())->getNormals()->getValue(0)[2] == 1;
}

TEST(SceneRebuild, HasEachGeometryOnceAsItLooked) {
  for (const unsigned leaf : {0u, 1u, 6u, 100u})
    for (const bool flat : {true, false})
      for (const int opt : {0, 1, 2, 3}) {
        SCOPED_TRACE(std::to_string(leaf) + (flat ? " flat " : " deep ") + std::to_string(opt));
        const mixed_scene scene(all_kinds);
        const auto before = shown(scene.root);
        const NodePtr tree = rebuilt(scene.root, leaf, flat, opt);
        ASSERT_TRUE(tree);
        EXPECT_FALSE(tree->getParent());
        auto all = shown(tree);
        all.merge(shown(scene.root));
        EXPECT_EQ(all, before);
        // the stroked part without triangles, those switched and the skipped one
        EXPECT_EQ(geometry_below(scene.root).size(), 4u);
        EXPECT_LT(geometry_below(tree).size(), leaf == 100 ? 15u : 100u);
        EXPECT_TRUE(leaf > 1 || has_new_normals(geometry_below(tree).front())) << "of a cut";
      }
}

TEST(SceneRebuild, MakesOneAtlasALeafAndNamesIt) {
  const struct {
    std::vector<std::array<int, 2>> images;
    std::array<int, 2> size;  // of the atlas, powers of two
    bool alike = true;        // in how they mix with colours
  } cases[] = {{{{100, 3}}, {128, 4}},
               {{{64, 64}, {64, 64}}, {64, 64}},  // of equal pixels
               {{{64, 64}, {64, 32}}, {128, 64}},
               {{{64, 64}, {64, 32}}, {64, 64}, false}};
  for (const auto& [images, size, alike] : cases) {
    const NodePtr root = node_with(::osg::Group::create());
    for (const auto& [width, height] : images) {
      const auto image = ::osg::Image::create();
      image->set(::osg::gl::kRGB, width, height);
      const auto material = mixed_scene::showing(image);
      const auto texture = material->findLastChunk<::osg::TextureChunk>();
      if (!alike && height == 32) texture->setEnvMode(::osg::gl::kReplace);
      root->addChild(node_with(mixed_scene::square(material)));
    }
    const auto nodes = geometry_below(rebuilt(root, 1000));
    ASSERT_EQ(nodes.size(), alike ? 1u : 2u);
    EXPECT_TRUE(has_new_normals(nodes.front()));
    EXPECT_EQ(has_new_normals(nodes.back()), alike);
    const auto atlas = osg::findMaterialImage(nodes.front());
    EXPECT_EQ((std::array{atlas->getWidth(), atlas->getHeight()}), size);
    EXPECT_EQ(atlas->getName().find("TexFiles/texture"), 0u);
    EXPECT_EQ(atlas->getAttachmentField("fileName"), atlas->getName());
  }
}

TEST(SceneRebuild, PutsUpTo128CoresIntoAGroup) {
  const NodePtr root = node_with(::osg::Group::create());
  for (int i = 0; i < 300; ++i) {
    const auto x = static_cast<float>(4 * i);
    const auto part = triangles(box_corners());
    part->setMaterial(shining({x, 0, 0}));  // a core each, also where they share a leaf
    root->addChild(node_with(transform(::osg::Matrix::translation(x, 0, 0)), {node_with(part)}));
  }
  std::string out;
  const NodePtr tree = rebuilt(root, 20, true, 1, &out);
  ASSERT_EQ(tree->getNChildren(), 3u);
  EXPECT_EQ(tree->getChild(0)->getNChildren(), 128u);
  EXPECT_EQ(tree->getChild(2)->getNChildren(), 44u);
  EXPECT_EQ(root->getNChildren(), 0u);
  EXPECT_NE(out.find("\n # tris registered    : 300\n # inner nodes        : "), out.npos);

  // no geometry, nothing said
  EXPECT_FALSE(rebuilt(root, 20, true, 1, &out));
  EXPECT_FALSE(rebuilt({}, 20));
  EXPECT_EQ(out, "");
}

// Sources go with what is above and empty, up to the scene; what is below them stays.
TEST(SceneRebuild, TakesSourcesOutOfDeepAndWideScenes) {
  const auto box = [] { return node_with(triangles(box_corners())); };
  const NodePtr root = node_with(::osg::Group::create());
  const NodePtr above = node_with(::osg::Group::create(), {root});
  NodePtr last = root;
  for (int i = 0; i < 100000; ++i, last = last->getChild(0))
    last->addChild(node_with(::osg::Group::create()));
  const auto choice = node_with(::osg::Switch::create(), {box()});
  const auto wide = node_with(::osg::Group::create());
  for (int i = 0; i < 1000; ++i) {
    wide->addChild(box());
    wide->addChild(node_with(::osg::Geometry::create()));
  }
  root->addChild(wide);
  last->addChild(node_with(triangles(box_corners()), {choice}));
  EXPECT_EQ(shown(rebuilt(root, 20000)).size(), 1001 * 12u);
  EXPECT_EQ(wide->getNChildren(), 1000u);
  EXPECT_EQ(choice->getParent()->getParent(), last);

  root->subChild(wide);
  last->subChild(last->getChild(0));
  last->addChild(box());
  EXPECT_TRUE(rebuilt(root, 20000));
  EXPECT_EQ(root->getNChildren(), 0u);
  EXPECT_EQ(root->getParent(), above);
}

TEST(SceneRebuild, LeavesTheSceneWhereMemoryRunsOut) {
  expect_nothing_lost(textured | glass | strokes | painted, [](const NodePtr& root, int nth) {
    return osg::buildSceneTree(root, {.leaf_size = 6}, nth % 2, 1, 2, false);
  });
}

}  // namespace
}  // namespace morlu::tests
