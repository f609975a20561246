#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <map>
#include <set>

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/material.h>

#include "morlu/primitives.h"
#include "sample/sample_assembly.h"
#include "sample/sweep.h"
#include "scene_stats.h"
#include "support/scene_text.h"

namespace {

using morlu::sample::make_sample_assembly;
using morlu::sample::SampleOptions;

std::vector<osg::NodePtr> all_nodes(const osg::NodePtr& root) {
  std::vector<osg::NodePtr> nodes{root};
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const osg::NodePtr node = nodes[i];
    nodes.insert(nodes.end(), node->getChildren().begin(), node->getChildren().end());
  }
  return nodes;
}

std::set<osg::GeometryPtr> cores_of(const osg::NodePtr& root) {
  std::list<osg::NodePtr> drawn;
  morlu::osg::collect_geo_nodes(root, drawn);
  std::set<osg::GeometryPtr> cores;
  for (const auto& node : drawn) cores.insert(osg::Geometry::dcast(node->getCore()));
  return cores;
}

std::set<osg::ChunkMaterialPtr> materials_of(const osg::NodePtr& root) {
  std::set<osg::ChunkMaterialPtr> materials;
  for (const auto& core : cores_of(root))
    materials.insert(osg::ChunkMaterial::dcast(core->getMaterial()));
  return materials;
}

TEST(Sample, HoldsAsManyPartsMaterialsAndImagesAsAskedFor) {
  const std::vector<SampleOptions> cases = {{.parts = 1, .materials = 1, .textures = 1},
                                            {.parts = 7, .materials = 2, .textures = 0},
                                            {.parts = 60, .materials = 60, .textures = 60},
                                            {.parts = 100, .materials = 0, .textures = 0},
                                            {.parts = 1000, .materials = 24, .textures = 8},
                                            {.parts = 2500, .materials = 300, .textures = 7}};
  for (const SampleOptions& options : cases) {
    SCOPED_TRACE(options.parts);
    const auto plant = make_sample_assembly(options);
    const auto stats = morlu::program::count_scene(plant);
    EXPECT_EQ(stats.geometry_nodes, options.parts);
    EXPECT_EQ(stats.materials, options.materials);
    EXPECT_EQ(stats.images, options.textures);
    EXPECT_EQ(stats.unusable_triangles + stats.lines + stats.points, 0u);
    if (options.materials == 0) continue;
    unsigned transparent = 0;
    for (const auto& material : materials_of(plant)) {
      const bool see_through =
          material->findFirstChunk<osg::MaterialChunk>()->getDiffuse()[3] < 1.0f;
      EXPECT_EQ(see_through, bool(material->findFirstChunk<osg::BlendChunk>()));
      transparent += see_through;
    }
    const unsigned tenth = options.materials / 10;
    EXPECT_EQ(transparent, options.materials >= 2 ? std::max(tenth, 1u) : 0u);
  }
}

TEST(Sample, HasEverythingThatAPlantShouldHave) {
  const auto plant = make_sample_assembly({});
  std::map<std::string, int> found;
  std::set<std::string> names;
  for (const auto& node : all_nodes(plant)) {
    if (const auto* name = osg::getName(node)) {
      EXPECT_TRUE(names.insert(name).second) << name;
    }
    found["assemblies with attributes"] +=
        bool(node->findAttachment(osg::StringAttributeMap::getClassType()));
    const auto transform = osg::Transform::dcast(node->getCore());
    if (!transform) continue;
    const osg::Matrix& m = transform->getMatrix();
    const osg::Vec3f x(m[0], m[1], m[2]), y(m[4], m[5], m[6]), z(m[8], m[9], m[10]);
    found["mirrored"] += x.cross(y).dot(z) < 0.0f;
    found["uneven"] += std::max({x.length(), y.length(), z.length()}) >
                       1.5f * std::min({x.length(), y.length(), z.length()});
  }
  for (const auto& core : cores_of(plant)) {
    found["colours"] += bool(core->getColors());
    found["shared"] += core->getNumParents() > 1;
    if (!core->getTexCoords()) continue;
    const auto texture =
        osg::ChunkMaterial::dcast(core->getMaterial())->findFirstChunk<osg::TextureChunk>();
    ASSERT_TRUE(texture);
    found["alpha images"] += texture->getImage()->hasAlphaChannel();
    float reach = 0.0f;
    for (auto it = core->beginTriangles(); !it.isAtEnd(); ++it)
      for (osg::UInt32 i = 0; i < 3; ++i)
        reach = std::max({reach, it.getTexCoords(i)[0], it.getTexCoords(i)[1]});
    found["tiled"] += reach > 1.0f;
    found["fitted"] += reach == 1.0f;
  }
  for (const char* what : {"assemblies with attributes", "mirrored", "uneven", "colours", "shared",
                           "alpha images", "tiled", "fitted"})
    EXPECT_GE(found[what], 3) << what;
  EXPECT_TRUE(names.count("Area 1") && names.count("Unit 1-1") && names.count("Hall 1"));
}

// Every edge of a closed surface is run through as often one way as the other; the volume inside is
// positive where triangles face outwards, and normals agree with them.
void expect_closed_outward(const osg::GeometryPtr& core, const std::string& name) {
  using Edge = std::pair<osg::Pnt3f, osg::Pnt3f>;
  std::map<Edge, int> balance;
  double volume = 0.0;
  for (auto it = core->beginTriangles(); !it.isAtEnd(); ++it) {
    const osg::Pnt3f p[3] = {it.getPosition(0), it.getPosition(1), it.getPosition(2)};
    const osg::Vec3f face = (p[1] - p[0]).cross(p[2] - p[0]);
    volume += static_cast<double>(face.dot(p[0].subZero()));
    for (osg::UInt32 i = 0; i < 3; ++i) {
      const osg::Pnt3f &a = p[i], &b = p[(i + 1) % 3];
      balance[a < b ? Edge(a, b) : Edge(b, a)] += a < b ? 1 : -1;
      EXPECT_GT(face.dot(it.getNormal(i)), 0.0f) << name << " triangle " << it.getIndex();
      EXPECT_NEAR(it.getNormal(i).length(), 1.0f, 1e-5f) << name;
    }
  }
  EXPECT_GT(volume, 0.0) << name;
  for (const auto& [edge, count] : balance)
    ASSERT_EQ(count, 0) << name << ": open at " << edge.first << " - " << edge.second;
}

TEST(Sample, PartsAreClosedSurfacesThatFaceOutwards) {
  std::list<osg::NodePtr> drawn;
  morlu::osg::collect_geo_nodes(make_sample_assembly({.parts = 1500}), drawn);
  std::set<osg::NodeCorePtr> seen;
  std::set<std::string> kinds;
  for (const auto& node : drawn) {
    if (!seen.insert(node->getCore()).second) continue;
    const std::string name = osg::getName(node);
    kinds.insert(name.substr(0, name.rfind(' ')));
    expect_closed_outward(osg::Geometry::dcast(node->getCore()), name);
  }
  EXPECT_GE(kinds.size(), 30u);  // the assemblies' parts were all there
}

TEST(Sample, CirclesAreRound) {
  for (const unsigned segments : {3u, 4u, 6u, 12u, 64u, 192u}) {
    const auto around = morlu::sample::circle(segments);
    ASSERT_EQ(around.size(), segments);
    for (unsigned i = 0; i < segments; ++i) {
      const double angle = 2.0 * std::acos(-1.0) * i / segments;
      EXPECT_NEAR(around[i][0], std::cos(angle), 1e-15 * segments);
      EXPECT_NEAR(around[i][1], std::sin(angle), 1e-15 * segments);
    }
  }
}

TEST(Sample, OptionsAloneDecide) {
  const SampleOptions options{.parts = 150, .materials = 12, .textures = 5, .seed = 9};
  const std::string text = support::scene_text(make_sample_assembly(options));
  EXPECT_EQ(text, support::scene_text(make_sample_assembly(options)));
  SampleOptions other = options;
  other.seed = 10;
  EXPECT_NE(text, support::scene_text(make_sample_assembly(other)));

  // Lines and points come on top: without them it is the same plant.
  other = options;
  other.with_lines = other.with_points = true;
  const auto surveyed = make_sample_assembly(other);
  std::list<osg::NodePtr> drawn;
  morlu::osg::collect_geo_nodes(surveyed, drawn);
  bool lines = false, points = false;
  for (const auto& node : drawn) {
    const auto core = osg::Geometry::dcast(node->getCore());
    if (!core->beginTriangles().isAtEnd()) continue;
    lines |= !core->beginLines().isAtEnd();
    points |= core->beginPrimitives().getType() == osg::kPoints;
    node->getParent()->subChild(node);
  }
  EXPECT_TRUE(lines && points);
  EXPECT_EQ(text, support::scene_text(surveyed));
}

/// Depends on every bit that goes in, and on the order.
class Fingerprint {
 public:
  void add(const void* bytes, std::size_t count) {
    const auto* byte = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < count; ++i) hash_ = (hash_ ^ byte[i]) * 0x100000001B3u;
  }
  template <class Tuple>
  void add(const Tuple& tuple) {
    add(tuple.getValues(), sizeof tuple);
  }
  std::uint64_t value() const { return hash_; }

 private:
  std::uint64_t hash_ = 0xCBF29CE484222325u;
};

// Compilers, flags and machines must not change a bit of the plant. Whoever changes it on purpose
// puts the new number here.
TEST(Sample, IsTheSameToTheBitOnEveryMachine) {
  const auto plant =
      make_sample_assembly({.parts = 300, .seed = 3, .with_lines = true, .with_points = true});
  Fingerprint print;
  for (const auto& node : all_nodes(plant)) {
    if (const char* name = osg::getName(node)) print.add(name, std::strlen(name));
    const auto attributes = osg::StringAttributeMap::dcast(
        node->findAttachment(osg::StringAttributeMap::getClassType()));
    if (attributes) {
      for (const auto& [key, value] : attributes->getAttributes())
        print.add(value.data(), value.size());
    }
    if (const auto transform = osg::Transform::dcast(node->getCore()))
      print.add(transform->getMatrix());
    const auto core = osg::Geometry::dcast(node->getCore());
    if (!core) continue;
    for (auto it = core->beginPrimitives(); !it.isAtEnd(); ++it) {
      for (osg::UInt32 i = 0; i < it.getLength(); ++i) {
        print.add(it.getPosition(i));
        print.add(it.getNormal(i));
        print.add(it.getColor(i));
        print.add(it.getTexCoords(i));
      }
    }
    const auto material = osg::ChunkMaterial::dcast(core->getMaterial());
    if (!material) continue;
    print.add(material->findFirstChunk<osg::MaterialChunk>()->getDiffuse());
    if (const auto texture = material->findFirstChunk<osg::TextureChunk>())
      print.add(texture->getImage()->getData(), texture->getImage()->getSize());
  }
  EXPECT_EQ(print.value(), 10102172941685008539u);
}

}  // namespace
