// Colours between materials and vertices, one material for a scene, and small coordinates.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <osg/cores.h>
#include <osg/material.h>

#include "morlu/materials.h"
#include "support/failing_memory.h"
#include "support/random_geometry.h"
#include "support/said.h"
#include "support/scene_parts.h"

namespace morlu::tests {
namespace {

using ::osg::Color3f;
using ::osg::Color4f;
using ::osg::GeometryPtr;
using ::osg::MaterialPtr;
using ::osg::NodePtr;
using ::osg::Pnt3f;
using ::osg::StateChunkPtr;
using ::osg::UInt32;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

/// With as many positions as there are vertices, or as given.
GeometryPtr geometry_of(const PrimitiveList& primitives, const std::vector<Pnt3f>& given = {}) {
  std::size_t vertices = 0;
  for (const auto& [type, length] : primitives) vertices += length;
  return primitives_over(given.empty() ? std::vector<Pnt3f>(vertices) : given, primitives);
}

template <class Property, class Color>
::osg::GeoColorsPtr colors_of(const std::vector<Color>& all) {
  const auto colors = Property::create();
  colors->resize(all.size());
  std::copy(all.begin(), all.end(), colors->values().begin());
  return colors;
}

TEST(MaterialColor, IsThatOfASimpleMaterialOrTheLastMaterialChunk) {
  const auto texture = ::osg::TextureChunk::create();
  const auto red = diffuse({1, 0, 0, 1}), half = diffuse({0, 0, 1, 0.5f}), clear = diffuse({});
  const auto switched = ::osg::SwitchMaterial::create();
  const struct {
    MaterialPtr material;
    bool moves;
    Color3f color;
  } cases[] = {
      {simple_material({0.25f, 0.5f, 1}), true, {0.25f, 0.5f, 1}},
      {::osg::SimpleTexturedMaterial::create(), true, {1, 1, 1}},
      {of_chunks({red, ::osg::BlendChunk::create(), half}), true, {0, 0, 1}},
      {of_chunks({half, clear}), false, {}},
      {of_chunks({clear, half}), true, {0, 0, 1}},
      {of_chunks({texture, red}), false, {}},
      {of_chunks({red, texture}), false, {}},
      {of_chunks({::osg::BlendChunk::create()}), false, {}},
      {switched, false, {}},
      {::osg::NullFC, false, {}},
  };
  for (const bool above : {false, true})
    for (const auto& [material, moves, color] : cases) {
      SCOPED_TRACE(testing::Message() << "case " << material.getSerial() << above);
      const auto geometry = geometry_of({{::osg::kTriangles, 6}});
      const auto node = node_with(geometry);
      const auto group = below_material(above ? material : simple_material({9, 9, 9}), {node});
      if (!above) geometry->setMaterial(material);
      if (!above && !material) group->subChild(node);
      ASSERT_EQ(osg::MaterialColorIntoVertex(node), moves);
      EXPECT_EQ(geometry->getMaterial(), moves || above ? MaterialPtr() : material);
      ASSERT_EQ(!geometry->getColors().isNull(), moves);
      if (!moves) continue;
      ASSERT_EQ(geometry->getColors()->size(), 3u * 2 + 4);
      for (UInt32 i = 0; i < 10; ++i) EXPECT_EQ(geometry->getColors()->getValue(i), color);
      EXPECT_EQ(geometry->beginTriangles().getValue<Color4f>(::osg::Attribute::Colors, 0)[3], 1);
    }
  EXPECT_FALSE(osg::MaterialColorIntoVertex(::osg::NullFC));
  EXPECT_FALSE(osg::MaterialColorIntoVertex(::osg::Node::create()));
  EXPECT_FALSE(osg::MaterialColorIntoVertex(below_material(simple_material({1, 1, 1}), {})));
}

TEST(MaterialColor, MixesWithColorsThatAreThere) {
  const auto blue = simple_material({0, 0, 1});
  const auto geometry = geometry_of({{::osg::kTriangles, 3}});
  const auto other = geometry_of({{::osg::kTriangles, 3}});
  const auto colors = colors_of<::osg::GeoColors4f, Color4f>({{1, 0, 0, 0.25f}, {0, 1, 0, 1}});
  geometry->setColors(colors);
  other->setColors(colors);
  geometry->setMaterial(blue);
  ASSERT_TRUE(osg::MaterialColorIntoVertex(node_with(geometry)));
  ASSERT_EQ(geometry->getColors()->size(), 2u);
  EXPECT_EQ(geometry->getColors()->getValue(0), Color3f(0.5f, 0, 0.5f));
  EXPECT_EQ(geometry->getColors()->getValue(1), Color3f(0, 0.5f, 0.5f));
  EXPECT_EQ(geometry->beginTriangles().getValue<Color4f>(::osg::Attribute::Colors, 0)[3], 0.25f);
  EXPECT_EQ(other->getColors()->getValue(0), Color3f(1, 0, 0)) << "another geometry's colours";

  geometry->setColors(::osg::GeoColors3f::create());  // empty
  geometry->setMaterial(blue);
  ASSERT_TRUE(osg::MaterialColorIntoVertex(node_with(geometry)));
  EXPECT_EQ(geometry->getColors()->size(), 7u);
}

/// Whatever kinds of primitive and indices there are, and if memory runs out nothing has changed.
TEST(MaterialColor, HasAnEntryForEveryIndex) {
  std::mt19937 random(12);
  const auto material = simple_material({0.5f, 0.25f, 0});
  int failures = 0;
  for (int round = 0; round < 300; ++round) {
    const auto geometry = test::random_geometry(random, static_cast<test::layout>(round % 3));
    geometry->setColors(::osg::NullFC);
    geometry->setMaterial(material);
    const auto node = node_with(geometry);
    bool failed = false;
    try {
      const test::failing_memory memory(round % 4);
      osg::MaterialColorIntoVertex(node);
    } catch (const std::bad_alloc&) {
      failed = true;
      EXPECT_EQ(geometry->getMaterial(), MaterialPtr(material));
      EXPECT_TRUE(geometry->getColors().isNull());
    }
    failures += failed;
    EXPECT_EQ(osg::MaterialColorIntoVertex(node), failed) << "moves once";
    UInt32 triangles = 0, largest = 1;
    for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it) ++triangles;
    for (auto it = geometry->beginPrimitives(); !it.isAtEnd(); ++it)
      for (UInt32 k = 0; k < it.getLength(); ++k)
        largest = std::max(largest, static_cast<UInt32>(it.getPositionIndex(k)));
    ASSERT_EQ(geometry->getColors()->size(), std::max(3 * (triangles + 1), largest) + 1);
  }
  EXPECT_GT(failures, 50);
}

TEST(VertexColor, BecomesAMaterialIfItIsOne) {
  const auto geometry = geometry_of({{::osg::kTriangles, 3}});
  const auto into = [&](const ::osg::GeoColorsPtr& colors, bool with_alpha) {
    geometry->setMaterial(::osg::NullFC);
    geometry->setColors(colors);
    const bool done = osg::VertexColorIntoMaterial(geometry, with_alpha);
    EXPECT_EQ(geometry->getColors().isNull(), !geometry->getMaterial().isNull());
    return done && geometry->getMaterial();
  };
  const auto opaque = [](std::vector<Color3f> all) { return colors_of<::osg::GeoColors3f>(all); };
  const auto clear = [](std::vector<Color4f> all) { return colors_of<::osg::GeoColors4f>(all); };

  ASSERT_TRUE(into(opaque({{0.5f, 0, 1}, {0.5f, 5e-7f, 1}, {0.5f, 0, 1}}), false));
  const auto material = ::osg::SimpleMaterial::dcast(geometry->getMaterial());
  ASSERT_TRUE(material);
  EXPECT_EQ(material->getDiffuse(), Color3f(0.5f, 0, 1));
  EXPECT_FALSE(into(opaque({{0.5f, 0, 1}, {0.5f, 2e-6f, 1}}), false));
  EXPECT_FALSE(into(opaque({{0.5f, 2e-6f, 1}, {0.5f, 0, 1}}), false));
  EXPECT_FALSE(into(opaque({{nan_value, 0, 0}, {nan_value, 0, 0}}), false));
  EXPECT_TRUE(into(clear({{1, 0, 0, 1}, {1, 0, 0, 0.5f}}), false));
  EXPECT_FALSE(into(clear({{1, 0, 0, 1}, {1, 0, 0, 0.5f}}), true));

  ASSERT_TRUE(into(clear({{1, 0, 0, 0.5f}, {1, 0, 0, 0.5f}}), true));
  const auto chunks = ::osg::ChunkMaterial::dcast(geometry->getMaterial());
  ASSERT_EQ(chunks->getChunks().size(), 2u);
  const auto blend = ::osg::BlendChunk::dcast(chunks->getChunks()[0]);
  const auto color = ::osg::MaterialChunk::dcast(chunks->getChunks()[1]);
  ASSERT_TRUE(blend && color);
  EXPECT_EQ(blend->getSrcFactor(), 770u);
  EXPECT_EQ(blend->getDestFactor(), 771u);
  EXPECT_EQ(color->getDiffuse(), Color4f(1, 0, 0, 0.5f));
  ASSERT_TRUE(
      into(colors_of<::osg::GeoColors4ub>(std::vector(2, ::osg::Color4ub(255, 0, 51, 102))), true));
  EXPECT_EQ(::osg::ChunkMaterial::dcast(geometry->getMaterial())
                ->findLastChunk<::osg::MaterialChunk>()
                ->getDiffuse(),
            Color4f(1, 0, 0.2f, 0.4f));
}

TEST(VertexColor, StaysWithAReason) {
  const auto geometry = geometry_of({{::osg::kTriangles, 3}});
  EXPECT_FALSE(osg::VertexColorIntoMaterial(::osg::NullFC, true));
  EXPECT_FALSE(osg::VertexColorIntoMaterial(geometry, true));
  geometry->setColors(::osg::GeoColors3f::create());
  EXPECT_FALSE(osg::VertexColorIntoMaterial(geometry, true));
  const auto colors = colors_of<::osg::GeoColors3f>(std::vector(2, Color3f(1, 0, 0)));
  geometry->setColors(colors);
  test::said said;
  EXPECT_TRUE(osg::VertexColorIntoMaterial(geometry, true));
  said.end();
  EXPECT_EQ(said.out, "Sorry No AlphaColor\n");
  EXPECT_TRUE(geometry->getMaterial().isNull());
  const MaterialPtr own = simple_material({1, 0, 0});
  geometry->setMaterial(own);
  EXPECT_FALSE(osg::VertexColorIntoMaterial(geometry, false));
  EXPECT_EQ(geometry->getMaterial(), own);
  EXPECT_EQ(geometry->getColors(), colors);
}

TEST(OneMaterial, IsTheOneWithTheMostPrimitives) {
  const MaterialPtr older = simple_material({1, 0, 0}), newer = simple_material({0, 1, 0});
  const auto chosen = [&](const PrimitiveList& of_older, const PrimitiveList& of_newer) {
    const auto a = geometry_of(of_older, {{}}), b = geometry_of(of_newer, {{}});
    a->setMaterial(older);
    b->setMaterial(newer);
    osg::reduceSceneMaterialsToOne(node_with(::osg::Group::create(), {node_with(b), node_with(a)}));
    EXPECT_EQ(a->getMaterial(), b->getMaterial());
    return a->getMaterial();
  };
  using namespace ::osg;
  EXPECT_EQ(chosen({{kPoints, 3}}, {{kLines, 9}}), newer);
  EXPECT_EQ(chosen({{kPoints, 4}}, {{kLines, 9}}), older);
  EXPECT_EQ(chosen({{kTriangles, 8}}, {{kQuads, 7}}), newer);
  EXPECT_EQ(chosen({{kTriangles, 9}}, {{kQuads, 7}}), older);
  EXPECT_EQ(chosen({{kTriangleStrip, 3}, {kTriangleFan, 3}, {kPolygon, 4}}, {{kPoints, 5}}), newer);
  EXPECT_EQ(chosen({{kTriangleStrip, 3}, {kTriangleFan, 3}, {kPolygon, 4}}, {{kPoints, 4}}), older);
  EXPECT_EQ(chosen({{kTriangleStrip, 1}, {kPolygon, 0}, {kLineStrip, 99}}, {{kPoints, 1}}), newer);
  EXPECT_EQ(chosen({{kLineStrip, 3}}, {{kLineLoop, 9}, {kQuadStrip, 40}, {77, 40}}), NullFC);
  const std::pair<UInt32, UInt32> most{kTriangles, ~0u};  // four have more than 32 bits hold
  EXPECT_EQ(chosen({most, most, most, most}, {{kPoints, 2'000'000'000}}), older);
}

TEST(OneMaterial, GoesToTheTopmostGroup) {
  const MaterialPtr heavy = simple_material({1, 0, 0}), light = simple_material({0, 1, 0}),
                    own = simple_material({0, 0, 1});
  const auto shape = [](const MaterialPtr& material, UInt32 points) {
    const auto geometry = geometry_of({{::osg::kPoints, points}});
    geometry->setMaterial(material);
    return node_with(geometry);
  };
  const auto below = shape(::osg::NullFC, 2), with_own = shape(own, 1), much = shape(heavy, 9);
  const auto empty = geometry_of({{::osg::kPoints, 1000}});
  empty->setPositions(::osg::NullFC);
  const auto inner = below_material(light, {below, with_own});
  const auto outer = below_material(light, {inner});
  osg::reduceSceneMaterialsToOne(
      node_with(::osg::Group::create(), {outer, much, node_with(empty)}));
  const auto material_of = [](const NodePtr& node) {
    const auto group = ::osg::MaterialGroup::dcast(node->getCore());
    return group ? group->getMaterial() : ::osg::Geometry::dcast(node->getCore())->getMaterial();
  };
  EXPECT_EQ(material_of(outer), heavy);
  EXPECT_EQ(material_of(inner), light);
  EXPECT_TRUE(material_of(below).isNull());
  EXPECT_EQ(material_of(with_own), own);
  EXPECT_EQ(empty->getMaterial(), heavy);
  osg::reduceSceneMaterialsToOne(::osg::NullFC);

  const auto strips = geometry_of({{::osg::kLineStrip, 5}});
  strips->setMaterial(own);
  osg::reduceSceneMaterialsToOne(node_with(strips));
  EXPECT_TRUE(strips->getMaterial().isNull());
}

::osg::TransformChunkPtr transform_of(const GeometryPtr& geometry) {
  return ::osg::ChunkMaterial::dcast(geometry->getMaterial())
      ->findLastChunk<::osg::TransformChunk>();
}

TEST(TransformChunk, KeepsThePlaceAndMakesCoordinatesSmall) {
  const struct {
    float low, shift;
  } cases[] = {{12.5f, -12},
               {-0.25f, 1},
               {0.5f, 0},
               {1, 0},
               {-1, 2},
               {0, 0},
               {16777216, -16777216},
               {-2147483008.0f, 2147483008.0f},  // not one more, which is no float
               {3e9f, 0},
               {-3e9f, 0},
               {-infinite, 0},
               {nan_value, 0}};
  for (const auto& [low, shift] : cases)
    for (unsigned axis = 0; axis < 3; ++axis) {
      SCOPED_TRACE(testing::Message() << low << " on axis " << axis);
      std::vector<Pnt3f> points{{0.5f, 0.5f, 0.5f}, {0.5f, 0.5f, 0.5f}};
      points[0][axis] = low;
      points[1][axis] = std::isnan(low) ? low : 3.5e9f;
      const auto geometry = geometry_of({{::osg::kPoints, 2}}, points);
      osg::addTransformChunk(geometry);
      ASSERT_TRUE(geometry->getMaterial() && transform_of(geometry));
      auto matrix = ::osg::Matrix();
      matrix[12 + axis] = -shift;
      EXPECT_EQ(transform_of(geometry)->getMatrix(), matrix);
      for (UInt32 i = 0; i < 2; ++i)
        for (unsigned k = 0; k < 3; ++k) {
          const float moved = geometry->getPositions()->getValue(i)[k];
          const float expected = points[i][k] + (k == axis ? shift : 0);
          EXPECT_TRUE(moved == expected || (std::isnan(moved) && std::isnan(expected)));
        }
    }
}

TEST(TransformChunk, LeavesWhatOthersUse) {
  const auto former = ::osg::TransformChunk::create();
  former->setMatrix(::osg::Matrix::translation(5, 0, 0));
  const auto wrong = ::osg::TransformChunk::create();
  const auto texture = ::osg::TextureChunk::create();
  const auto shared = of_chunks({wrong, former, texture});
  const auto geometry = geometry_of({{::osg::kPoints, 1}}, {{12.5f, -0.5f, 0}});
  const auto other = ::osg::Geometry::create();
  other->setPositions(geometry->getPositions());
  for (const auto& each : {geometry, other}) each->setMaterial(shared);
  osg::addTransformChunk(geometry);
  EXPECT_EQ(other->getPositions()->getValue(0), Pnt3f(12.5f, -0.5f, 0));
  EXPECT_EQ(former->getMatrix(), ::osg::Matrix::translation(5, 0, 0));
  EXPECT_EQ(shared->getChunks(), (std::vector<StateChunkPtr>{wrong, former, texture}));
  const auto chunks = ::osg::ChunkMaterial::dcast(geometry->getMaterial())->getChunks();
  ASSERT_EQ(chunks.size(), 3u);
  EXPECT_EQ(chunks[0], StateChunkPtr(wrong));
  EXPECT_EQ(chunks[2], StateChunkPtr(texture));
  EXPECT_EQ(transform_of(geometry)->getMatrix(), ::osg::Matrix::translation(17, -1, 0));
  EXPECT_EQ(geometry->getPositions()->getValue(0), Pnt3f(0.5f, 0.5f, 0));
}

TEST(TransformChunk, IsWrittenInPlaceWhereNobodyElseUsesIt) {
  const auto geometry = geometry_of({{::osg::kPoints, 1}}, {{0, 0, 0}});
  float moved = 0;
  geometry->setMaterial(of_chunks({::osg::TextureChunk::create()}));
  const auto* material = geometry->getMaterial().get();
  const auto* positions = geometry->getPositions().get();
  const ::osg::TransformChunk* chunk = nullptr;
  for (const float x : {0.5f, 7.5f, 0.25f, -3.5f}) {
    geometry->getPositions()->setValue({x, 0, 0}, 0);
    osg::addTransformChunk(geometry);
    moved += x - geometry->getPositions()->getValue(0)[0];
    EXPECT_EQ(transform_of(geometry)->getMatrix(), ::osg::Matrix::translation(moved, 0, 0));
    EXPECT_EQ(geometry->getMaterial().get(), material);
    EXPECT_EQ(geometry->getPositions().get(), positions);
    if (chunk) {
      EXPECT_EQ(transform_of(geometry).get(), chunk);
    }
    chunk = transform_of(geometry).get();
    EXPECT_EQ(::osg::ChunkMaterial::dcast(geometry->getMaterial())->getChunks().size(), 2u);
  }
}

TEST(TransformChunk, RefusesOtherMaterialsAndNothing) {
  osg::addTransformChunk(::osg::NullFC);
  const auto geometry = ::osg::Geometry::create();
  osg::addTransformChunk(geometry);
  geometry->setPositions(::osg::GeoPositions3f::create());
  osg::addTransformChunk(geometry);
  EXPECT_TRUE(geometry->getMaterial().isNull());
  const auto far = geometry_of({{::osg::kPoints, 1}}, {{12.5f, 0, 0}});
  far->setMaterial(::osg::SwitchMaterial::create());
  test::said said;
  osg::addTransformChunk(far);
  said.end();
  EXPECT_EQ(said.out, "Geometry has a Non-Chunk Material. Can't add a Transformchunk.\n");
  EXPECT_EQ(far->getPositions()->getValue(0)[0], 12.5f);
}

}  // namespace
}  // namespace morlu::tests
