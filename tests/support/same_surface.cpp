#include "support/same_surface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>

namespace morlu::test {

namespace {

template <class Value, class Iterator>
void append(corner& to, const Iterator& it, ::osg::Attribute attribute, ::osg::UInt32 of) {
  const auto value = it.template getValue<Value>(attribute, of);
  for (::osg::UInt32 k = 0; k < Value::dimension; ++k)
    to.push_back(value[k] == 0 ? 0u : std::bit_cast<std::uint32_t>(value[k]));
}

template <class Iterator>
corner corner_of(const Iterator& it, ::osg::UInt32 of, normals use) {
  corner result;
  for (::osg::UInt32 i = 0; i < ::osg::kAttributeCount; ++i) {
    const ::osg::Attribute attribute = ::osg::attributeAt(i);
    if (attribute == ::osg::Attribute::Normals && use == normals::left_out) continue;
    append<::osg::Vec4f>(result, it, attribute, of);  // no property is wider
  }
  return result;
}

std::vector<std::array<corner, 3>> turned_and_sorted(std::vector<std::array<corner, 3>> triangles) {
  for (auto& triangle : triangles) {
    auto best = triangle;
    for (int turn = 0; turn < 2; ++turn) {
      std::rotate(triangle.begin(), triangle.begin() + 1, triangle.end());
      best = std::min(best, triangle);
    }
    triangle = best;
  }
  std::sort(triangles.begin(), triangles.end());
  return triangles;
}

void expect_same_lines_and_points(const surface& before, const surface& after) {
  EXPECT_EQ(before.lines.size(), after.lines.size());
  EXPECT_TRUE(before.lines == after.lines) << "lines differ";
  EXPECT_EQ(before.points.size(), after.points.size());
  EXPECT_TRUE(before.points == after.points) << "points differ";
}

}  // namespace

surface surface_of(const ::osg::GeometryPtr& geometry, normals use) {
  surface result;
  for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it)
    result.triangles.push_back(
        {corner_of(it, 0, use), corner_of(it, 1, use), corner_of(it, 2, use)});
  for (auto it = geometry->beginLines(); !it.isAtEnd(); ++it)
    result.lines.push_back({corner_of(it, 0, use), corner_of(it, 1, use)});
  for (auto it = geometry->beginPrimitives(); !it.isAtEnd(); ++it)
    for (::osg::UInt32 k = 0; it.getType() == ::osg::kPoints && k < it.getLength(); ++k)
      result.points.push_back(corner_of(it, k, use));
  return result;
}

void expect_same_surface(const surface& before, const surface& after) {
  EXPECT_EQ(before.triangles.size(), after.triangles.size());
  EXPECT_TRUE(before.triangles == after.triangles) << "triangles differ";
  expect_same_lines_and_points(before, after);
}

void expect_same_triangles(const surface& before, const surface& after) {
  EXPECT_EQ(before.triangles.size(), after.triangles.size());
  EXPECT_TRUE(turned_and_sorted(before.triangles) == turned_and_sorted(after.triangles))
      << "triangles differ";
  expect_same_lines_and_points(before, after);
}

}  // namespace morlu::test
