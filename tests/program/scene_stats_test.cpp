#include "scene_stats.h"

#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <list>
#include <random>
#include <set>

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/material.h>

#include "morlu/primitives.h"
#include "sample/sample_assembly.h"
#include "support/scene_parts.h"

namespace {

using morlu::program::count_scene;
using morlu::program::SceneStats;
using osg::Pnt3f;
using osg::UInt32;

struct Primitive {
  UInt32 type, length;
};

osg::GeometryPtr make_geometry(std::initializer_list<Primitive> primitives,
                               std::initializer_list<Pnt3f> points,
                               std::initializer_list<UInt32> indices = {}) {
  const auto geometry = osg::Geometry::create();
  const auto types = osg::GeoPTypesUI8::create();
  const auto lengths = osg::GeoPLengthsUI32::create();
  const auto positions = osg::GeoPositions3f::create();
  for (const Primitive& primitive : primitives) {
    types->push_back(primitive.type);
    lengths->push_back(primitive.length);
  }
  for (const Pnt3f& point : points) positions->push_back(point);
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setPositions(positions);
  if (indices.size() > 0) {
    const auto stored = osg::GeoIndicesUI32::create();
    for (const UInt32 index : indices) stored->push_back(index);
    geometry->setIndices(stored);
  }
  return geometry;
}

void expect_bounds(const SceneStats& stats, const osg::Pnt3d& min, const osg::Pnt3d& max) {
  ASSERT_TRUE(stats.bounds.has_value());
  for (unsigned axis = 0; axis < 3; ++axis) {
    EXPECT_DOUBLE_EQ(stats.bounds->min[axis], min[axis]) << axis;
    EXPECT_DOUBLE_EQ(stats.bounds->max[axis], max[axis]) << axis;
  }
}

TEST(SceneStats, NothingIsNothing) {
  for (const auto& root : {osg::NodePtr(osg::NullFC), osg::Node::create(),
                           node_with(osg::Group::create()), node_with(osg::Geometry::create())}) {
    const SceneStats stats = count_scene(root);
    EXPECT_EQ(stats.nodes, root ? 1u : 0u);
    EXPECT_EQ(stats.triangles + stats.lines + stats.points + stats.vertices, 0u);
    EXPECT_FALSE(stats.bounds.has_value());
    EXPECT_FALSE(stats.acmr().has_value());
    EXPECT_EQ(stats.warnings.size(), stats.geometry_nodes == 0 ? 1u : 0u);
  }
}

TEST(SceneStats, SharedCoresCountOnceOrEveryTime) {
  // Two triangles, of which one has two corners in one place, a loop of three lines, two points;
  // the last vertex of each list is left over.
  const auto core = make_geometry({{osg::kTriangles, 7}, {osg::kLineLoop, 3}, {osg::kPoints, 2}},
                                  {Pnt3f(0, 0, 0), Pnt3f(1, 0, 0), Pnt3f(0, 1, 0), Pnt3f(9, 9, 9)},
                                  {0, 1, 2, 0, 0, 2, 3, /**/ 0, 1, 2, /**/ 1, 1});
  const auto root =
      node_with(osg::Group::create(),
                {node_with(core), node_with(transform(osg::Matrix::translation(5, 0, 0)),
                                            {node_with(core), osg::Node::create()})});
  const SceneStats stats = count_scene(root);
  EXPECT_EQ(stats.nodes, 5u);
  EXPECT_EQ(stats.geometry_nodes, 2u);
  EXPECT_EQ(stats.cores, 1u);
  EXPECT_EQ(stats.triangles, 4u);
  EXPECT_EQ(stats.lines, 6u);
  EXPECT_EQ(stats.points, 4u);
  EXPECT_EQ(stats.unusable_triangles, 2u);
  EXPECT_EQ(stats.vertices, 3u);
  EXPECT_EQ(stats.index_entries, 12u);
  EXPECT_DOUBLE_EQ(stats.acmr().value(), 1.5);
  expect_bounds(stats, {0, 0, 0}, {6, 1, 0});  // the left-over vertex at (9, 9, 9) is in nothing
}

TEST(SceneStats, VerticesAreTuplesOfIndices) {
  const auto core =
      make_geometry({{osg::kTriangles, 6}}, {Pnt3f(0, 0, 0), Pnt3f(1, 0, 0), Pnt3f(0, 1, 0)},
                    {0, 0, 1, 1, 2, 0, /**/ 0, 0, 1, 0, 2, 5});
  const auto normals = osg::GeoNormals3f::create();
  normals->resize(2);
  core->setNormals(normals);
  core->getIndexMapping().push_back(osg::Geometry::MapPosition);
  core->getIndexMapping().push_back(osg::Geometry::MapNormal);
  // (0,0) (1,1) (2,0) (1,0) (2,1): the normal index 5 means the last entry, 1.
  EXPECT_EQ(count_scene(node_with(core)).vertices, 5u);
  core->setNormals(osg::NullFC);  // then its column tells nothing apart
  EXPECT_EQ(count_scene(node_with(core)).vertices, 3u);
  core->setIndices(osg::NullFC);  // three positions are all there is
  EXPECT_EQ(count_scene(node_with(core)).vertices, 3u);

  // In one column for all, an index is cut at the longest property: here (0,0) (1,1) (2,1).
  core->getIndexMapping().clear();
  core->setNormals(normals);
  EXPECT_EQ(count_scene(node_with(core)).vertices, 3u);
}

TEST(SceneStats, CacheForgetsInOrderOfArrival) {
  // A fan around vertex 0 that uses vertex 0 all the time: a FIFO drops it all the same after 32
  // others, and a fan of 64 triangles has 65 rim vertices.
  const auto core = osg::Geometry::create();
  const auto types = osg::GeoPTypesUI8::create();
  const auto lengths = osg::GeoPLengthsUI32::create();
  const auto positions = osg::GeoPositions3f::create();
  types->push_back(osg::kTriangleFan);
  lengths->push_back(66);
  for (int i = 0; i < 66; ++i)
    positions->push_back(Pnt3f(static_cast<float>(i), static_cast<float>(i * i), 0));
  core->setTypes(types);
  core->setLengths(lengths);
  core->setPositions(positions);
  const SceneStats stats = count_scene(node_with(core));
  // Misses: 65 on the rim. The hub comes in first (miss 1); triangle 30 brings miss 33, which drops
  // the hub; it comes back in triangle 31 (miss 34), and 32 misses later again in triangle 63.
  EXPECT_EQ(stats.cache_misses, 65u + 3u);
}

TEST(SceneStats, BoundsAreThoseOfThePlacedPoints) {
  // A needle along x = y, turned by 45 degrees: its own box would come out far too wide.
  const auto needle = make_geometry({{osg::kLines, 2}}, {Pnt3f(0, 0, 0), Pnt3f(1, 1, 0)});
  const float c = 0.70710678f;
  osg::Matrix turn;
  turn[0] = c, turn[1] = c, turn[4] = -c, turn[5] = c;
  const SceneStats stats = count_scene(node_with(transform(turn), {node_with(needle)}));
  ASSERT_TRUE(stats.bounds);
  EXPECT_NEAR(stats.bounds->max[0], 0.0, 1e-7);
  EXPECT_NEAR(stats.bounds->max[1], 1.41421356, 1e-7);
}

TEST(SceneStats, PositionsWithoutPlaceNeverWiden) {
  const float nan = std::numeric_limits<float>::quiet_NaN(),
              inf = std::numeric_limits<float>::infinity();
  const auto core =
      make_geometry({{osg::kPoints, 3}}, {Pnt3f(1, 2, 3), Pnt3f(nan, 2, 2), Pnt3f(2, 2, 2)});
  const auto other = make_geometry({{osg::kPoints, 2}}, {Pnt3f(0, -inf, 0), Pnt3f(2, 2, 2)});
  const SceneStats stats = count_scene(
      node_with(osg::Group::create(), {node_with(core), node_with(core), node_with(other)}));
  expect_bounds(stats, {1, 2, 2}, {2, 2, 3});
  ASSERT_EQ(stats.warnings.size(), 1u);
  EXPECT_EQ(stats.warnings[0], "3 positions are not finite in world space");
}

// Chains of transforms that turn, mirror, shear and scale one shared core, beside the box of every
// single point.
TEST(SceneStats, BoundsHoldEveryPointOfEveryPlacement) {
  constexpr unsigned seed = 77;
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  for (int scene = 0; scene < 50; ++scene) {
    const auto core = make_geometry({{osg::kPoints, 5}}, {});
    for (int i = 0; i < 5; ++i) {
      const float x = value(random), y = value(random);
      core->getPositions()->push_back(Pnt3f(x, y, value(random)));
    }
    const auto root = node_with(osg::Group::create());
    double low[3] = {1e9, 1e9, 1e9}, high[3] = {-1e9, -1e9, -1e9};
    for (int chain = 0; chain < 8; ++chain) {
      osg::NodePtr node = root;
      osg::Matrix4d world;
      for (int depth = 0; depth < 3; ++depth) {
        osg::Matrix matrix;
        osg::Matrix4d wide;
        for (unsigned i = 0; i < 16; ++i) {
          if (i % 4 < 3) matrix[i] = value(random);
          wide[i] = matrix[i];
        }
        world *= wide;
        const auto below = node_with(transform(matrix));
        node->addChild(below);
        node = below;
      }
      node->addChild(node_with(core));
      for (UInt32 i = 0; i < 5; ++i) {
        const Pnt3f p = core->getPositions()->getValue(i);
        const osg::Pnt3d at = world * osg::Pnt3d(p[0], p[1], p[2]);
        for (unsigned axis = 0; axis < 3; ++axis) {
          low[axis] = std::min(low[axis], at[axis]);
          high[axis] = std::max(high[axis], at[axis]);
        }
      }
    }
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", scene " << scene);
    expect_bounds(count_scene(root), {low[0], low[1], low[2]}, {high[0], high[1], high[2]});
  }
}

TEST(SceneStats, MaterialsAndImagesCountByHandle) {
  const auto image = osg::Image::create(), other = osg::Image::create(),
             ridden = osg::Image::create();
  const auto textured = osg::SimpleTexturedMaterial::create();
  textured->setImage(image);
  const auto chunked = osg::ChunkMaterial::create();
  for (const auto& used : {image, other}) {
    const auto chunk = osg::TextureChunk::create();
    chunk->setImage(used);
    chunked->addChunk(chunk);
  }
  const auto definition = osg::PBRChunk::create();
  definition->setImages({ridden, image, osg::NullFC});
  chunked->addChunk(definition);
  const auto choice = osg::SwitchMaterial::create();
  choice->addMaterial(chunked);
  choice->addMaterial(osg::NullFC);

  const auto group = osg::MaterialGroup::create();
  group->setMaterial(choice);
  const auto first = osg::Geometry::create(), second = osg::Geometry::create();
  first->setMaterial(textured);
  second->setMaterial(textured);
  const SceneStats stats = count_scene(node_with(
      group, {node_with(first), node_with(second), node_with(osg::MaterialGroup::create())}));
  EXPECT_EQ(stats.materials, 2u);  // what the switch holds is in use through it
  EXPECT_EQ(stats.images, 3u);
}

// The same figures in the plainest way: sets, lists and every point of every node.
SceneStats count_plainly(const osg::NodePtr& root) {
  SceneStats stats;
  std::list<osg::NodePtr> drawn;
  morlu::osg::collect_geo_nodes(root, drawn);
  stats.geometry_nodes = drawn.size();
  std::set<osg::NodeCorePtr> cores;
  osg::DynamicVolume box;
  for (const auto& node : drawn) {
    const auto geometry = osg::Geometry::dcast(node->getCore());
    const bool is_new = cores.insert(node->getCore()).second;
    const osg::Matrix world = node->getToWorld();
    std::set<std::vector<int>> tuples;
    std::deque<std::vector<int>> cache;
    const auto look_at = [&](const auto& element, UInt32 corner) {
      box.extendBy(world * element.getPosition(corner));
      std::vector<int> tuple;
      for (UInt32 i = 0; i < osg::kAttributeCount; ++i)
        tuple.push_back(element.getAttributeIndex(osg::attributeAt(i), corner));
      tuples.insert(tuple);
      return tuple;
    };
    for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it, ++stats.triangles) {
      for (UInt32 corner = 0; corner < 3; ++corner) {
        const auto tuple = look_at(it, corner);
        if (!is_new || std::find(cache.begin(), cache.end(), tuple) != cache.end()) continue;
        ++stats.cache_misses;
        cache.push_back(tuple);
        if (cache.size() > 32) cache.pop_front();
      }
      stats.core_triangles += is_new;
    }
    for (auto it = geometry->beginLines(); !it.isAtEnd(); ++it, ++stats.lines) {
      look_at(it, 0);
      look_at(it, 1);
    }
    for (auto it = geometry->beginPrimitives(); !it.isAtEnd(); ++it) {
      if (it.getType() != osg::kPoints) continue;
      for (UInt32 i = 0; i < it.getLength(); ++i, ++stats.points) look_at(it, i);
    }
    if (is_new) stats.vertices += tuples.size();
  }
  stats.cores = cores.size();
  stats.bounds = {{box.getMin()[0], box.getMin()[1], box.getMin()[2]},
                  {box.getMax()[0], box.getMax()[1], box.getMax()[2]}};
  return stats;
}

TEST(SceneStats, AgreesWithPlainCountingOnAPlant) {
  const auto plant = morlu::sample::make_sample_assembly(
      {.parts = 400, .seed = 5, .with_lines = true, .with_points = true});
  const SceneStats stats = count_scene(plant), plain = count_plainly(plant);
  EXPECT_EQ(stats.geometry_nodes, plain.geometry_nodes);
  EXPECT_EQ(stats.cores, plain.cores);
  EXPECT_EQ(stats.triangles, plain.triangles);
  EXPECT_EQ(stats.lines, plain.lines);
  EXPECT_EQ(stats.points, plain.points);
  EXPECT_EQ(stats.vertices, plain.vertices);
  EXPECT_EQ(stats.core_triangles, plain.core_triangles);
  EXPECT_EQ(stats.cache_misses, plain.cache_misses);
  for (unsigned axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(stats.bounds->min[axis], plain.bounds->min[axis], 1e-4);
    EXPECT_NEAR(stats.bounds->max[axis], plain.bounds->max[axis], 1e-4);
  }
}

}  // namespace
