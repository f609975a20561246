// Equal materials of a graph become one, the first that the walk meets.

#include "osg/material_merge.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/material.h"
#include "support/scene_parts.h"

namespace {

using osg::MaterialPtr;
using osg::NodePtr;

MaterialPtr red_of(float red) {
  return simple_material({red, 0, 0});
}

NodePtr add_geometry(const NodePtr& parent, const MaterialPtr& material) {
  const auto geometry = osg::Geometry::create();
  geometry->setMaterial(material);
  auto node = node_with(geometry);
  if (parent) parent->addChild(node);
  return node;
}

NodePtr add_group(const NodePtr& parent, const MaterialPtr& material) {
  const auto node = below_material(material, {});
  if (parent) parent->addChild(node);
  return node;
}

MaterialPtr material_of(const NodePtr& node) {
  if (const auto geometry = osg::Geometry::dcast(node->getCore())) return geometry->getMaterial();
  return osg::MaterialGroup::dcast(node->getCore())->getMaterial();
}

bool merge(const NodePtr& root) {
  return osg::MaterialMergeGraphOp("MaterialMerge").traverse(root);
}

TEST(MaterialMerge, FirstOfEqualOnesStays) {
  //  root (group, a)
  //   +- hidden (geometry, b)       mask 0 is walked all the same
  //   |   +- below (group, a')
  //   +- coreless
  //   |   +- plain (geometry, null)
  //   +- shared (geometry core of `hidden`)
  //   +- late (geometry, b')
  const MaterialPtr a = red_of(0.25f), b = red_of(0.5f);
  const NodePtr root = add_group(osg::NullFC, a);
  const NodePtr hidden = add_geometry(root, b);
  hidden->setTravMask(0);
  const NodePtr below = add_group(hidden, red_of(0.25f));
  const NodePtr coreless = osg::Node::create();
  root->addChild(coreless);
  const NodePtr plain = add_geometry(coreless, osg::NullFC);
  const NodePtr shared = node_with(hidden->getCore());
  root->addChild(shared);
  const NodePtr late = add_geometry(root, red_of(0.5f));
  osg::setName(material_of(late), "replaced all the same");

  EXPECT_TRUE(merge(root));
  EXPECT_EQ(material_of(root), a);
  EXPECT_EQ(material_of(hidden), b);
  EXPECT_EQ(material_of(below), a);
  EXPECT_TRUE(material_of(plain).isNull());
  EXPECT_EQ(material_of(shared), b);
  EXPECT_EQ(material_of(late), b);
  EXPECT_FALSE(merge(osg::NullFC));
}

TEST(MaterialMerge, SwitchesMergeAfterTheirMaterials) {
  const auto switch_of = [](const std::vector<MaterialPtr>& materials) {
    auto material = osg::SwitchMaterial::create();
    material->setMaterials(materials);
    return material;
  };
  const auto first = switch_of({red_of(0.5f), osg::NullFC, red_of(0.5f)});
  const auto second = switch_of({red_of(0.5f), osg::NullFC, red_of(0.5f)});
  const auto within_itself = switch_of({first});
  within_itself->addMaterial(within_itself);
  const NodePtr root = add_geometry(osg::NullFC, first);
  const NodePtr other = add_geometry(root, second);
  const NodePtr loop = add_geometry(root, within_itself);
  const NodePtr single = add_geometry(root, red_of(0.5f));

  EXPECT_TRUE(merge(root));
  EXPECT_EQ(material_of(other), first);
  EXPECT_EQ(first->getMaterials()[0], first->getMaterials()[2]);
  EXPECT_TRUE(first->getMaterials()[1].isNull());
  EXPECT_EQ(material_of(single), first->getMaterials()[0]);
  EXPECT_EQ(material_of(loop), within_itself);
  within_itself->setMaterials({});  // opens the circle of references
}

MaterialPtr random_material(std::mt19937& random, const std::vector<osg::ImagePtr>& images) {
  if (random() % 3 == 0) return red_of(static_cast<float>(random() % 3));
  auto material = osg::ChunkMaterial::create();
  for (auto chunks = random() % 3; chunks > 0; --chunks) {
    const auto texture = texture_of(images[random() % images.size()]);
    if (random() % 2) texture->setWrapS(osg::gl::kClamp);
    material->addChunk(texture);
  }
  return material;
}

/// Against a reference that compares every pair, over random trees.
TEST(MaterialMerge, AgreesWithComparingAllPairs) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::vector<osg::ImagePtr> images{osg::NullFC, osg::Image::create(),
                                            osg::Image::create()};
    std::vector<MaterialPtr> materials(30);
    for (MaterialPtr& material : materials) material = random_material(random, images);
    std::vector<NodePtr> nodes{add_group(osg::NullFC, osg::NullFC)};
    for (int i = 0; i < 80; ++i) {
      const auto& parent = nodes[random() % nodes.size()];
      const auto& material = materials[random() % materials.size()];
      nodes.push_back(random() % 2 ? add_geometry(parent, material) : add_group(parent, material));
    }

    std::vector<MaterialPtr> met;  // in the order of the walk
    std::vector<std::pair<NodePtr, MaterialPtr>> expected;
    const std::function<void(const NodePtr&)> walk = [&](const NodePtr& node) {
      const MaterialPtr material = material_of(node);
      const auto equal = [&](const auto& other) { return osg::equalByValue(material, other); };
      const auto first = std::find_if(met.begin(), met.end(), equal);
      expected.emplace_back(node, first == met.end() ? material : *first);
      if (first == met.end()) met.push_back(material);
      for (const NodePtr& child : node->getChildren()) walk(child);
    };
    walk(nodes[0]);
    EXPECT_TRUE(merge(nodes[0]));
    for (const auto& [node, material] : expected) EXPECT_EQ(material_of(node), material);
  }
}

}  // namespace
