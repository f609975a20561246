// Cache order and the chunks that it is cut into.

#include <gtest/gtest.h>
#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/geometry_tools.h>
#include <osg/material.h>

#include <algorithm>
#include <random>

#include "finishing/cache_chunks.h"
#include "finishing/cache_order.h"
#include "finishing/plain_cache.h"
#include "morlu/finishing.h"
#include "support/failing_memory.h"
#include "support/random_geometry.h"
#include "support/said.h"
#include "support/same_surface.h"
#include "support/scene_parts.h"

namespace morlu::tests {
namespace {

using ::osg::Attribute;
using osg::cache_source;
using ::osg::GeometryPtr;
using ::osg::MaterialPtr;
using ::osg::NodePtr;
using test::said;

// --- The order -----------------------------------------------------------------------------------

struct numbers {
  std::mt19937 random;
  unsigned below(unsigned limit) { return limit ? static_cast<unsigned>(random() % limit) : 0; }
};

/// Sheets, soups, fans, wheels whose tips stand on two sides, and an edge that all share: elements
/// of corners that differ but for lines, in any order, some of them twice.
std::vector<std::uint32_t> some_elements(unsigned corners, unsigned vertices, unsigned count,
                                         numbers& random) {
  std::vector<std::uint32_t> list;
  const unsigned kind = random.below(5);
  const std::uint32_t hub = random.below(vertices), other_hub = random.below(vertices);
  for (unsigned i = 0; i < count; ++i) {
    std::uint32_t at[3] = {random.below(vertices), random.below(vertices), random.below(vertices)};
    if (kind == 0) at[0] = i % vertices, at[1] = (i + 1) % vertices, at[2] = (i + 7) % vertices;
    if (kind == 1) at[i % corners] = hub;
    if (kind == 2) at[0] = i / 2 % vertices, at[1] = (at[0] + 1) % vertices;
    if (kind == 2) at[corners - 1] = i % 2 ? hub : other_hub;
    if (kind == 3) at[i % corners] = hub, at[(i + 1) % corners] = other_hub;
    if (corners == 3 && (at[0] == at[1] || at[1] == at[2] || at[0] == at[2])) continue;
    for (unsigned copies = 1 + (random.below(8) == 0); copies > 0; --copies)
      list.insert(list.end(), at, at + corners);
  }
  return list;
}

struct recorded {
  std::vector<std::vector<std::uint32_t>> chunks{{}};
  std::size_t limit;

  bool is_full() const { return chunks.back().size() >= limit; }
  void open() { chunks.emplace_back(); }
  void add(std::uint32_t element) { chunks.back().push_back(element); }
};

/// A source without a geometry: columns of any entries.
template <unsigned Corners>
void expect_plain_order(unsigned vertices, unsigned count, numbers& random) {
  const unsigned columns = 1 + random.below(4);
  cache_source source{Corners, {}, {}, {}, {some_elements(Corners, vertices, count, random)}};
  source.vertices = source.positions();
  for (unsigned c = 1; c < columns; ++c) {
    auto& entries = source.entries.emplace_back(source.vertices.size());
    for (auto& entry : entries) entry = random.below(1 + 40 * c);
  }
  plain_cache<Corners> plain;
  plain.limit = random.below(5) == 0 ? random.below(4) : 3 + random.below(400);
  plain.multi_index = random.below(2);
  plain.vertices.resize(vertices);
  for (std::size_t e = 0; e < source.vertices.size() / Corners; ++e) {
    auto& row = plain.table.emplace_back();
    for (const auto& entries : source.entries) {
      auto& corners = row.columns.emplace_back();
      for (unsigned k = 0; k < Corners; ++k)
        corners[k] = static_cast<int>(entries[e * Corners + k]);
    }
  }
  plain.run();

  std::vector<std::uint32_t> sizes;
  for (const auto& entries : source.entries)
    sizes.push_back(entries.empty() ? 0 : 1 + *std::max_element(entries.begin(), entries.end()));
  osg::cache_chunks chunks(source, sizes, plain.limit, plain.multi_index);
  osg::cache_order<Corners>(source.positions(), vertices).run(chunks);
  ASSERT_EQ(chunks.size(), plain.chunks.size());
  for (std::size_t i = 0; i < chunks.size(); ++i)
    ASSERT_TRUE(std::ranges::equal(chunks[i], plain.chunks[i].elements)) << "chunk " << i;
}

TEST(CacheOrder, IsThatOfThePlainSteps) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    numbers random{std::mt19937(seed)};
    const bool has_hubs = seed % 3 == 0;  // and vertices that are seldom in the cache
    const unsigned vertices = (has_hubs ? 60 : 4) + random.below(has_hubs ? 900 : 150);
    const unsigned count = (has_hubs ? 500 : 20) + random.below(has_hubs ? 1200 : 300);
    expect_plain_order<3>(vertices, count, random);
    expect_plain_order<2>(vertices, count, random);
    if (HasFatalFailure()) return;
  }
}

/// The square of that many would take minutes.
TEST(CacheOrder, TakesFansAsWellAsSheets) {
  constexpr std::uint32_t rim = 1'000'000;
  std::vector<std::uint32_t> corners;
  for (std::uint32_t i = 0; i < rim; ++i) corners.insert(corners.end(), {rim, i, (i + 1) % rim});
  recorded chunks{.limit = 2 * rim};
  osg::cache_order<3>(corners, rim + 1).run(chunks);
  std::vector<std::uint32_t>& order = chunks.chunks[0];
  std::sort(order.begin(), order.end());
  EXPECT_EQ(order.size(), rim);
  EXPECT_EQ(std::adjacent_find(order.begin(), order.end()), order.end());
}

// --- Geometry ------------------------------------------------------------------------------------

template <class Property, class Value>
auto filled(std::size_t size, const Value& value) {
  const auto property = Property::create();
  for (std::size_t i = 0; i < size; ++i) property->push_back(value(static_cast<float>(i)));
  return property;
}

/// A sheet of side * side squares, of all attributes that chunks may carry, and one that they
/// don't.
GeometryPtr make_sheet(unsigned side, ::osg::PrimitiveType type = ::osg::kTriangles) {
  const unsigned row = side + 1;
  const auto geometry = ::osg::Geometry::create();
  std::vector<::osg::UInt32> indices;
  for (unsigned y = 0; y < side; ++y)
    for (unsigned x = 0; x < side; ++x)
      for (const unsigned v : {0u, 1u, row, 1u, row + 1, row}) indices.push_back(y * row + x + v);
  geometry->setTypes(property_of<::osg::GeoPTypesUI8>({type}));
  geometry->setLengths(property_of<::osg::GeoPLengthsUI32>({side * side * 6}));
  geometry->setIndices(property_of<::osg::GeoIndicesUI32>(indices));
  geometry->setPositions(filled<::osg::GeoPositions3f>(row * row, [&](float i) {
    return ::osg::Pnt3f(std::fmod(i, static_cast<float>(row)), std::floor(i / row), 0.01f * i);
  }));
  geometry->setNormals(filled<::osg::GeoNormals3f>(
      row * row, [](float i) { return ::osg::Vec3f(i, 1, std::fmod(i, 3)); }));
  geometry->setColors(filled<::osg::GeoColors3f>(
      row * row, [](float i) { return ::osg::Color3f(std::fmod(i, 7), 0.5f, 1); }));
  geometry->setSecondaryColors(
      filled<::osg::GeoColors3f>(row * row, [](float) { return ::osg::Color3f(1, 0, 0); }));
  geometry->setTexCoords(filled<::osg::GeoTexCoords2f>(
      row * row, [](float i) { return ::osg::Vec2f(std::fmod(i, 11), i); }));
  geometry->setTexCoords7(filled<::osg::GeoTexCoords2f>(
      row * row, [](float i) { return ::osg::Vec2f(std::floor(i / 50), 0); }));
  geometry->setMaterial(::osg::SimpleMaterial::create());
  return geometry;
}

GeometryPtr geometry_of(const NodePtr& node) {
  return ::osg::Geometry::dcast(node->getCore());
}
/// What chunks carry of a geometry.
GeometryPtr carried(const GeometryPtr& geometry, bool lines = false) {
  const GeometryPtr copy = make_sheet(1);
  copy->setSecondaryColors(::osg::NullFC);
  copy->setTypes(geometry->getTypes());
  copy->setLengths(geometry->getLengths());
  copy->setIndices(geometry->getIndices());
  copy->getIndexMapping().getValues() = geometry->getIndexMapping().getValues();
  for (const Attribute a : {Attribute::Positions, Attribute::Normals, Attribute::Colors,
                            Attribute::TexCoords, Attribute::TexCoords7})
    copy->setAttribute(a, ::osg::GeoPropertyPtr(geometry->getAttribute(a)));
  if (lines) copy->setTexCoords(::osg::NullFC);
  return copy;
}

test::surface surface_of_chunks(const NodePtr& group) {
  test::surface all;
  for (::osg::UInt32 i = 0; i < group->getNChildren(); ++i) {
    const test::surface part = test::surface_of(geometry_of(group->getChild(i)));
    all.triangles.insert(all.triangles.end(), part.triangles.begin(), part.triangles.end());
    all.lines.insert(all.lines.end(), part.lines.begin(), part.lines.end());
  }
  return all;
}

TEST(OptimizeCache, LeavesTheOrderOfWhatFits) {
  for (const bool multi_index : {false, true}) {
    const GeometryPtr geometry = make_sheet(5);
    const unsigned entries = geometry->getIndices()->size();
    const auto before = test::surface_of(geometry);
    const NodePtr node = node_with(geometry);
    bool was_split = true;
    EXPECT_EQ(osg::optimizeCache(node, was_split, entries, multi_index), node);
    EXPECT_FALSE(was_split);
    test::expect_same_surface(before, test::surface_of(geometry));
    EXPECT_EQ(geometry->getIndexMapping().getValues().size(), multi_index ? 6u : 0u);
    EXPECT_EQ(name_of(node), name_of(geometry));
    EXPECT_NE(name_of(node).find("_G_"), std::string::npos);
  }
  // one entry too many, and be it of what chunks don't carry
  const GeometryPtr geometry = make_sheet(2);
  geometry->setSecondaryColors(
      filled<::osg::GeoColors3f>(60, [](float) { return ::osg::Color3f(1, 1, 1); }));
  bool was_split = false;
  EXPECT_NE(osg::optimizeCache(node_with(geometry), was_split, 59, true), NodePtr());
  EXPECT_TRUE(was_split);
}

void expect_chunks(const NodePtr& result, const GeometryPtr& source, unsigned most, bool lines) {
  const auto before = test::surface_of(carried(source, lines));
  const auto after = surface_of_chunks(result);
  if (lines) {
    auto sorted = [](auto list) { return std::sort(list.begin(), list.end()), list; };
    EXPECT_EQ(sorted(before.lines), sorted(after.lines));
  } else {
    test::expect_same_triangles(before, after);
  }
  EXPECT_GT(result->getNChildren(), 3u);
  for (::osg::UInt32 i = 0; i < result->getNChildren(); ++i) {
    const NodePtr child = result->getChild(i);
    const GeometryPtr chunk = geometry_of(child);
    EXPECT_EQ(name_of(child), name_of(chunk));
    EXPECT_EQ(chunk->getMaterial(), source->getMaterial());
    EXPECT_EQ(chunk->getSecondaryColors(), ::osg::GeoColorsPtr());
    EXPECT_EQ(chunk->getIndexMapping().getValues().front(), ::osg::Geometry::MapPosition);
    for (const Attribute a : {Attribute::Positions, Attribute::Normals, Attribute::Colors,
                              Attribute::TexCoords, Attribute::TexCoords7})
      if (const auto* property = chunk->getAttribute(a)) {
        EXPECT_LE(property->size(), most);
      }
  }
}

TEST(OptimizeCache, SplitsWhatDoesNotFit) {
  for (const bool multi_index : {false, true}) {
    const GeometryPtr geometry = make_sheet(20);
    bool was_split = false;
    const NodePtr result = osg::optimizeCache(node_with(geometry), was_split, 100, multi_index);
    EXPECT_TRUE(was_split);
    expect_chunks(result, geometry, 102, false);

    const GeometryPtr lines = make_sheet(20, ::osg::kLines);
    expect_chunks(osg::optimizeCache(node_with(lines), was_split, 100, multi_index), lines, 101,
                  true);
    EXPECT_TRUE(was_split);
  }
}

TEST(OptimizeCache, MakesNormalsAndTakesTheGroupsMaterial) {
  const GeometryPtr geometry = make_sheet(8);
  geometry->setNormals(::osg::NullFC);
  geometry->setMaterial(::osg::NullFC);
  const MaterialPtr material = ::osg::SimpleMaterial::create();
  const NodePtr node = node_with(geometry), above = below_material(material, {node});
  bool was_split = false;
  const NodePtr result = osg::optimizeCache(node, was_split, 50, true);
  for (::osg::UInt32 i = 0; i < result->getNChildren(); ++i) {
    const GeometryPtr chunk = geometry_of(result->getChild(i));
    EXPECT_EQ(chunk->getMaterial(), material);
    ASSERT_TRUE(chunk->getNormals());
    for (auto it = chunk->beginTriangles(); !it.isAtEnd(); ++it)
      EXPECT_NEAR(it.getNormal(0).length(), 1, 1e-5);
  }
}

TEST(OptimizeCache, RefusesWhatIsNoGeometry) {
  bool was_split = true;
  said text;
  EXPECT_FALSE(osg::optimizeCache({}, was_split, 10, true));
  EXPECT_FALSE(was_split);
  EXPECT_FALSE(osg::optimizeCache(node_with(::osg::Group::create()), was_split, 10, true));
  EXPECT_FALSE(osg::optimizeCache(node_with({}), was_split, 10, true));
  EXPECT_FALSE(osg::optimizeCache(node_with(::osg::Geometry::create()), was_split, 10, true));
  EXPECT_FALSE(osg::optimizeLineCache({}, 10, true));
  EXPECT_FALSE(osg::optimizeLineCache(node_with(::osg::Group::create()), 10, true));
  text.end();
  EXPECT_EQ(text.out,
            "Cacheopt Return: geoNode == ::osg::NullFC\n"
            "Cacheopt Return: geo == ::osg::NullFC\n"
            "Cacheopt Return: geo == ::osg::NullFC\n"
            "Cacheopt Return: Empty Type\n");
}

TEST(OptimizeCache, TakesPointsRoguesAndNothingAtAll) {
  bool was_split = false;
  const GeometryPtr points = make_sheet(3, ::osg::kPoints);
  const NodePtr node = node_with(points);
  EXPECT_EQ(osg::optimizeCache(node, was_split, 3, false), node);
  EXPECT_TRUE(was_split);
  EXPECT_EQ(name_of(node), "");

  const GeometryPtr rogues = make_sheet(3);
  for (auto& p : ::osg::GeoPositions3f::dcast(rogues->getPositions())->values()) p = {1, 2, 3};
  const NodePtr result = osg::optimizeCache(node_with(rogues), was_split, 3, false);
  ASSERT_EQ(result->getNChildren(), 1u);
  EXPECT_EQ(geometry_of(result->getChild(0))->getLengths()->getValue(0), 0u);

  const GeometryPtr bare = make_sheet(3);
  bare->setPositions(::osg::NullFC);
  EXPECT_TRUE(osg::optimizeCache(node_with(bare), was_split, 3, true));

  for (unsigned seed = 0; seed < 60; ++seed) {  // whatever comes, nothing breaks
    std::mt19937 random(seed);
    const auto kind = static_cast<test::layout>(seed % 3);
    osg::optimizeCache(node_with(test::random_geometry(random, kind)), was_split, seed % 7,
                       seed % 2);
    osg::optimizeLineCache(node_with(test::random_geometry(random, kind)), seed % 5, seed % 2);
  }
}

TEST(OptimizeCache, SaysWhenMemoryRunsOut) {
  unsigned told = 0;
  for (int nth = 0;; ++nth) {
    const GeometryPtr geometry = make_sheet(6);
    const NodePtr node = node_with(geometry);
    NodePtr result;
    bool was_split = false;
    const auto done = test::with_failing_memory(
        nth, [&] { result = osg::optimizeCache(node, was_split, 30, true); });
    if (!done.met) break;
    const bool has_told = done.err == "Error occured in morlu_osg_cacheopt.\n";
    told += has_told;
    EXPECT_TRUE(done.thrown || has_told || done.err.empty()) << done.err;
    EXPECT_EQ(geometry_of(node), geometry);
    EXPECT_TRUE(result || !has_told);
  }
  EXPECT_GT(told, 20u);
}

TEST(OptimizeCacheForTree, CollectsTheResults) {
  const GeometryPtr large = make_sheet(10), small = make_sheet(2);
  const NodePtr tree = node_with(::osg::Group::create(), {node_with(small), node_with(large)});
  said text;
  const NodePtr result = osg::optimizeCacheForTree(tree, 60, true, true);
  text.end();
  EXPECT_EQ(text.out, "\r0% \r50% ");
  ASSERT_EQ(result->getNChildren(), 2u);
  EXPECT_EQ(geometry_of(result->getChild(0)), small);
  EXPECT_FALSE(small->getNormals());
  EXPECT_TRUE(geometry_of(result->getChild(1)->getChild(0))->getNormals());
  EXPECT_EQ(tree->getNChildren(), 1u);
  EXPECT_EQ(osg::optimizeCacheForTree({}, 60, true, false)->getNChildren(), 0u);
}

TEST(OptimizeCacheForTree, LosesNothingWhenMemoryRunsOut) {
  said text;
  bool met = true;
  for (int nth = 0; met; ++nth) {
    const NodePtr tree = node_with(::osg::Group::create());
    for (const unsigned size : {2u, 3u}) tree->addChild(node_with(make_sheet(size)));
    const test::failing_memory memory(nth);
    try {
      osg::optimizeCacheForTree(tree, 60, true, false);
    } catch (const std::bad_alloc&) {
      EXPECT_EQ(tree->getNChildren(), 2u);
    }
    met = memory.met();
  }
  text.end();
}

}  // namespace
}  // namespace morlu::tests
