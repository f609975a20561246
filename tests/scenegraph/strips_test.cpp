#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "osg/geometry_tools.h"
#include "support/random_geometry.h"
#include "support/same_surface.h"
#include "support/scene_parts.h"

namespace {

using morlu::test::layout;
using morlu::test::surface_of;
using osg::UInt32;

osg::GeometryPtr single_indexed(UInt32 vertex_count, const std::vector<UInt32>& corners) {
  std::vector<osg::Pnt3f> positions;
  for (UInt32 i = 0; i < vertex_count; ++i) positions.push_back({i % 97, i / 97, i % 7});
  const auto geometry = one_primitive(osg::kTriangles, positions);
  geometry->getLengths()->setValue(static_cast<UInt32>(corners.size()), 0);
  geometry->setIndices(property_of<osg::GeoIndicesUI32>(corners));
  return geometry;
}

/// n x n squares of two triangles each; `wrap` closes the rows to rings.
std::vector<UInt32> grid_corners(UInt32 n, bool wrap = false) {
  const UInt32 row = wrap ? n : n + 1;
  std::vector<UInt32> corners;
  for (UInt32 y = 0; y < n; ++y) {
    for (UInt32 x = 0; x < n; ++x) {
      const UInt32 a = y * row + x, b = y * row + (x + 1) % row;
      corners.insert(corners.end(), {a, b, a + row, b, b + row, a + row});
    }
  }
  return corners;
}

struct outcome {
  std::size_t entries;
  std::size_t primitives;
};

outcome optimise_and_check(const osg::GeometryPtr& geometry) {
  const auto before = surface_of(geometry);
  const auto positions = geometry->getPositions();
  const osg::Int32 result =
      osg::createOptimizedPrimitives(geometry, 1, true, false, 16, false, true, false);
  morlu::test::expect_same_triangles(before, surface_of(geometry));
  EXPECT_TRUE(geometry->getPositions() == positions);
  EXPECT_TRUE(geometry->getIndexMapping().empty());
  EXPECT_EQ(result, static_cast<osg::Int32>(geometry->getIndices()->size()));
  return {geometry->getIndices()->size(), geometry->getTypes()->size()};
}

TEST(Strips, AGridSavesTwoThirdsOfItsIndices) {
  const outcome grid = optimise_and_check(single_indexed(101 * 101, grid_corners(100)));
  // One strip a row would be 100 strips and 20,200 indices, in place of 60,000.
  EXPECT_LE(grid.entries, 21'000u);
  EXPECT_LE(grid.primitives, 150u);
}

TEST(Strips, RingsAndShuffledTrianglesAreStrippedToo) {
  const outcome tube = optimise_and_check(single_indexed(60 * 61, grid_corners(60, true)));
  EXPECT_LE(tube.entries, 60u * 60 * 2 * 12 / 10);

  std::vector<UInt32> corners = grid_corners(50), shuffled(corners.size());
  std::vector<UInt32> order(corners.size() / 3);
  std::iota(order.begin(), order.end(), 0u);
  std::mt19937 random(7);
  for (std::size_t i = order.size() - 1; i > 0; --i) std::swap(order[i], order[random() % (i + 1)]);
  for (std::size_t i = 0; i < order.size(); ++i)
    for (UInt32 k = 0; k < 3; ++k) shuffled[3 * i + k] = corners[3 * order[i] + (k + i) % 3];
  const outcome mixed = optimise_and_check(single_indexed(51 * 51, shuffled));
  EXPECT_LE(mixed.entries, corners.size() * 45 / 100);
}

TEST(Strips, DoubleFacesAndFinsSurvive) {
  const std::vector<UInt32> grid = grid_corners(30);
  std::vector<UInt32> corners;
  for (std::size_t t = 0; t < grid.size(); t += 3)  // each triangle twice, one after the other
    for (int copy = 0; copy < 2; ++copy)
      corners.insert(corners.end(), grid.begin() + static_cast<std::ptrdiff_t>(t),
                     grid.begin() + static_cast<std::ptrdiff_t>(t) + 3);
  EXPECT_LE(optimise_and_check(single_indexed(31 * 31, corners)).entries, corners.size() * 4 / 10);

  corners.insert(corners.end(), grid.rbegin(), grid.rend());  // from behind
  for (UInt32 fin = 961; fin < 970; ++fin) corners.insert(corners.end(), {0, 1, fin});
  optimise_and_check(single_indexed(970, corners));
}

TEST(Strips, TrianglesWithoutAreaStayAsideAndNoneAreAdded) {
  // Between a square and the next one a flat triangle that fits to both.
  const std::vector<UInt32> grid = grid_corners(10);
  std::vector<UInt32> corners;
  for (std::size_t square = 0; square < grid.size(); square += 6) {
    corners.insert(corners.end(), grid.begin() + static_cast<std::ptrdiff_t>(square),
                   grid.begin() + static_cast<std::ptrdiff_t>(square) + 6);
    const UInt32 low = grid[square + 1], high = grid[square + 4];
    corners.insert(corners.end(), {high, low, low});
  }
  const auto geometry = single_indexed(121, corners);
  optimise_and_check(geometry);
  for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
    if (it.getType() != osg::kTriangleStrip) continue;
    EXPECT_TRUE(it.getPositionIndex(0) != it.getPositionIndex(1) &&
                it.getPositionIndex(1) != it.getPositionIndex(2) &&
                it.getPositionIndex(2) != it.getPositionIndex(0));
  }
}

TEST(Strips, AStripOnlyRunsOverEqualCornersInAllAttributes) {
  const std::vector<UInt32> corners = grid_corners(20);
  const auto geometry = single_indexed(21 * 21, corners);
  const auto indices = osg::GeoIndicesUI32::create();
  for (std::size_t i = 0; i < corners.size(); ++i) {
    indices->push_back(corners[i]);
    indices->push_back(i < corners.size() / 2 ? 0 : 1);
  }
  geometry->setColors(property_of<osg::GeoColors3f>({{1, 0, 0}, {0, 0, 1}}));  // one a half
  geometry->setIndices(indices);
  geometry->getIndexMapping().push_back(osg::Geometry::MapPosition);
  geometry->getIndexMapping().push_back(osg::Geometry::MapColor);
  const auto before = surface_of(geometry);
  osg::createOptimizedPrimitives(geometry);
  morlu::test::expect_same_triangles(before, surface_of(geometry));
  EXPECT_EQ(geometry->getIndexMapping().size(), 2u);
  EXPECT_LT(geometry->getIndices()->size(), corners.size());
}

TEST(Strips, SoupsAndRequestsForNoStripsStayAsTheyAre) {
  std::vector<UInt32> loose(300);
  std::iota(loose.begin(), loose.end(), 0u);
  for (const bool strips : {true, false}) {
    const auto geometry = single_indexed(1000, strips ? loose : grid_corners(10));
    const auto types = geometry->getTypes();
    osg::createOptimizedPrimitives(geometry, 1, strips);
    EXPECT_TRUE(geometry->getTypes() == types);
  }
}

TEST(Strips, KeepTheTrianglesOfAnyGeometry) {
  UInt32 shortened = 0;
  for (UInt32 seed = 0; seed < 1000; ++seed) {
    for (const layout kind : {layout::none, layout::single, layout::multi}) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " layout " +
                   std::to_string(static_cast<int>(kind)));
      std::mt19937 random(seed);
      const osg::GeometryPtr geometry = morlu::test::random_geometry(random, kind);
      const auto before = surface_of(geometry);
      const std::vector<osg::UInt16> mapping = geometry->getIndexMapping().getValues();
      const auto types = geometry->getTypes();
      const osg::Int32 once = osg::createOptimizedPrimitives(geometry);
      morlu::test::expect_same_triangles(before, surface_of(geometry));
      EXPECT_EQ(geometry->getIndexMapping().getValues(), mapping);
      EXPECT_EQ(geometry->getIndices().isNull(), kind == layout::none);
      EXPECT_LE(osg::createOptimizedPrimitives(geometry), once);
      morlu::test::expect_same_triangles(before, surface_of(geometry));
      shortened += geometry->getTypes() != types;
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(shortened, 100u) << "too few geometries in which anything is done";
}

}  // namespace
