#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <optional>
#include <random>
#include <set>

#include "osg/geometry_tools.h"
#include "support/random_geometry.h"
#include "support/same_surface.h"
#include "support/scene_parts.h"

namespace {

using morlu::test::layout;
using morlu::test::surface_of;
using osg::Pnt3f;
using osg::UInt32;
using osg::Vec3d;
using osg::Vec3f;

constexpr float crease = 0.5235988f;  // 30 degrees

// --- Builders ------------------------------------------------------------------------------------

osg::GeometryPtr single_indexed(const osg::GeometryPtr& geometry) {
  osg::createSharedIndex(geometry);
  osg::createSingleIndex(geometry);
  return geometry;
}

/// A cone of `n` triangles around its tip, `height` over a circle of radius 1.
std::vector<Pnt3f> cone(UInt32 n, double height) {
  std::vector<Pnt3f> points;
  const auto rim = [&](UInt32 i) {
    const double angle = 2 * std::numbers::pi * (i % n) / n;
    return Pnt3f{std::cos(angle), std::sin(angle), 0.0};
  };
  for (UInt32 i = 0; i < n; ++i) {
    points.push_back({0.0, 0.0, height});
    points.push_back(rim(i));
    points.push_back(rim(i + 1));
  }
  return points;
}

// --- The definition, written out -----------------------------------------------------------------

using corner_normals = std::vector<std::array<std::optional<Vec3d>, 3>>;

Vec3d wide(const Pnt3f& p) {
  return {p[0], p[1], p[2]};
}

std::vector<Vec3d> face_normals(const osg::Geometry& geometry) {
  std::vector<Vec3d> faces;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it) {
    const Vec3d a = wide(it.getPosition(0)), b = wide(it.getPosition(1)),
                c = wide(it.getPosition(2));
    faces.push_back((b - a).cross(c - a));
  }
  return faces;
}

bool counts(const Vec3d& face) {
  return face.length() > 0 && std::isfinite(face.length());
}

/// Zeros for normals that cancel each other out.
Vec3d direction(const std::vector<Vec3d>& parts) {
  Vec3d sum;
  double lengths = 0;
  for (const Vec3d& part : parts) {
    sum += part;
    lengths += part.length();
  }
  return sum.length() > 1e-6 * lengths ? sum / sum.length() : Vec3d();
}

/// What each corner's normal has to be; nothing for corners that no rule gives one.
corner_normals expected_by_index(const osg::Geometry& geometry) {
  const std::vector<Vec3d> faces = face_normals(geometry);
  std::map<osg::Int32, std::vector<Vec3d>> parts;
  std::size_t t = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it, ++t)
    for (UInt32 k = 0; k < 3; ++k)
      if (counts(faces[t])) parts[it.getPositionIndex(k)].push_back(faces[t]);
  corner_normals expected(faces.size());
  t = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it, ++t)
    for (UInt32 k = 0; k < 3; ++k)
      if (const auto found = parts.find(it.getPositionIndex(k)); found != parts.end())
        expected[t][k] = direction(found->second);
  return expected;
}

corner_normals expected_with_crease(const osg::Geometry& geometry, double angle) {
  const std::vector<Vec3d> faces = face_normals(geometry);
  std::vector<std::array<Pnt3f, 3>> points;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    points.push_back({it.getPosition(0), it.getPosition(1), it.getPosition(2)});
  corner_normals expected(faces.size());
  for (std::size_t t = 0; t < faces.size(); ++t) {
    for (UInt32 k = 0; k < 3 && counts(faces[t]); ++k) {
      std::vector<Vec3d> parts;
      for (std::size_t other = 0; other < faces.size(); ++other) {
        if (!counts(faces[other])) continue;
        if (std::find(points[other].begin(), points[other].end(), points[t][k]) ==
            points[other].end())
          continue;
        const double cosine =
            faces[t].dot(faces[other]) / (faces[t].length() * faces[other].length());
        if (other == t || cosine >= std::cos(std::min(angle, std::numbers::pi)) - 1e-12)
          parts.push_back(faces[other]);
      }
      expected[t][k] = direction(parts);
    }
  }
  return expected;
}

void expect_normals(const osg::Geometry& geometry, const corner_normals& expected) {
  std::size_t t = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it, ++t) {
    for (UInt32 k = 0; k < 3; ++k) {
      if (!expected[t][k]) continue;
      const Vec3f normal = it.getNormal(k);
      for (UInt32 axis = 0; axis < 3; ++axis)
        ASSERT_NEAR(normal[axis], (*expected[t][k])[axis], 1e-6) << "triangle " << t;
    }
  }
  EXPECT_EQ(t, expected.size());
}

/// For each corner of points and lines in turn whether no triangle gives its position a normal.
/// With a normal a position entry, corners whose index lies past the positions share the last
/// one's.
std::vector<bool> bystanders(const osg::Geometry& geometry, bool by_entry) {
  const osg::IndexLayout layout(geometry);
  by_entry = by_entry && layout.getColumn(osg::Attribute::Normals) ==
                             layout.getColumn(osg::Attribute::Positions);
  std::set<osg::Int32> in_triangles;
  const std::vector<Vec3d> faces = face_normals(geometry);
  std::size_t t = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it, ++t)
    for (UInt32 k = 0; k < 3; ++k)
      if (counts(faces[t])) in_triangles.insert(it.getPositionIndex(k));
  std::vector<bool> result;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it)
    for (UInt32 k = 0; it.getType() <= osg::kLineStrip && k < it.getLength(); ++k)
      result.push_back(!in_triangles.contains(it.getPositionIndex(k)) &&
                       !(by_entry && it.getNormalIndex(k) > it.getPositionIndex(k)));
  return result;
}

/// Their normals.
std::vector<Vec3f> normals_of(const osg::Geometry& geometry, const std::vector<bool>& chosen) {
  std::vector<Vec3f> normals;
  std::size_t next = 0;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it)
    for (UInt32 k = 0; it.getType() <= osg::kLineStrip && k < it.getLength(); ++k)
      if (chosen[next++]) normals.push_back(it.getNormal(k));
  return normals;
}

TEST(Normals, FollowTheDefinitionInAnyGeometry) {
  std::size_t with_triangles = 0, kept = 0;
  for (UInt32 seed = 0; seed < 600; ++seed) {
    for (const layout kind : {layout::none, layout::single, layout::multi}) {
      for (const float angle : {-1.0f, 0.0f, crease, 1.0f, 4.0f}) {  // -1: the other form
        SCOPED_TRACE("seed " + std::to_string(seed) + " layout " +
                     std::to_string(static_cast<int>(kind)) + " angle " + std::to_string(angle));
        std::mt19937 random(seed);
        const osg::GeometryPtr geometry = morlu::test::random_geometry(random, kind);
        const auto before = surface_of(geometry, morlu::test::normals::left_out);
        const std::vector<bool> others = bystanders(*geometry, angle < 0);
        const auto untouched = normals_of(*geometry, others);
        const auto object = geometry->getNormals();
        const corner_normals expected =
            angle < 0 ? expected_by_index(*geometry) : expected_with_crease(*geometry, angle);
        angle < 0 ? osg::calcVertexNormals(geometry) : osg::calcVertexNormals(geometry, angle);

        expect_normals(*geometry, expected);
        morlu::test::expect_same_surface(before,
                                         surface_of(geometry, morlu::test::normals::left_out));
        EXPECT_TRUE(normals_of(*geometry, others) == untouched);
        EXPECT_TRUE(!object || geometry->getNormals() == object);
        EXPECT_EQ(geometry->getIndices().isNull(), kind == layout::none);
        EXPECT_EQ(geometry->getIndexMapping().empty(), kind != layout::multi);
        if (kind == layout::none && !before.triangles.empty()) {
          EXPECT_EQ(geometry->getNormals()->size(), geometry->getPositions()->size());
        }
        with_triangles += !before.triangles.empty();
        kept += untouched.size();
        if (HasFailure()) return;
      }
    }
  }
  EXPECT_GT(with_triangles, 5000u);
  EXPECT_GT(kept, 1000u);
}

TEST(Normals, ACubeHasTwentyFourWithACreaseAndEightWithout) {
  const auto sharp = single_indexed(triangles(box_corners()));
  osg::calcVertexNormals(sharp, crease);
  EXPECT_EQ(sharp->getPositions()->size(), 24u);
  EXPECT_EQ(sharp->getNormals()->size(), 24u);
  for (auto it = sharp->beginTriangles(); !it.isAtEnd(); ++it)
    for (UInt32 k = 0; k < 3; ++k) {
      const Vec3f n = it.getNormal(k);
      EXPECT_EQ(n.dot(n), 1.0f);
      EXPECT_EQ(n.dot(it.getPosition(k).subZero()), 1.0f) << "flat and outward";
    }

  const auto round = single_indexed(triangles(box_corners()));
  osg::calcVertexNormals(round);
  EXPECT_EQ(round->getPositions()->size(), 8u);
  EXPECT_EQ(round->getNormals()->size(), 8u);

  const auto mapped = triangles(box_corners());
  osg::createSharedIndex(mapped);
  osg::calcVertexNormals(mapped, crease);
  EXPECT_EQ(mapped->getPositions()->size(), 8u);
  EXPECT_EQ(mapped->getNormals()->size(), 6u) << "each distinct normal once";
  ASSERT_EQ(mapped->getIndexMapping().size(), 2u);
  EXPECT_EQ(mapped->getIndexMapping()[1], osg::Geometry::MapNormal);
}

TEST(Normals, SplitVerticesOutgrowNarrowIndices) {
  const auto geometry = triangles({});
  for (UInt32 i = 0; i < 3000; ++i)  // 24,000 vertices become 72,000
    for (const Pnt3f& point : box_corners())
      geometry->getPositions()->push_back(point + Vec3f(4 * i, 0, 0));
  geometry->getLengths()->setValue(geometry->getPositions()->size(), 0);
  single_indexed(geometry);
  const auto narrow = osg::GeoIndicesUI16::create();
  for (UInt32 i = 0; i < geometry->getIndices()->size(); ++i)
    narrow->push_back(geometry->getIndices()->getValue(i));
  geometry->setIndices(narrow);
  const auto before = surface_of(geometry, morlu::test::normals::left_out);
  osg::calcVertexNormals(geometry, crease);
  EXPECT_EQ(geometry->getNormals()->size(), 72'000u);
  morlu::test::expect_same_surface(before, surface_of(geometry, morlu::test::normals::left_out));
}

TEST(Normals, AFoldedStripIsTakenApartForACrease) {
  /* 0--2--4   flat squares, folded by a right angle at 2-3: a vertex of a strip has room for
     | /| /|   one normal only, so the strip has to become triangles there. The flat strip
     1--3--5   beside it stays. */
  const std::vector<Pnt3f> folded = {{0, 1, 0}, {0, 0, 0}, {1, 1, 0},
                                     {1, 0, 0}, {1, 1, 1}, {1, 0, 1}};
  for (const bool indexed : {false, true}) {
    auto geometry = one_primitive(osg::kTriangleStrip, folded);
    for (const Pnt3f& point : {Pnt3f{5, 1, 0}, Pnt3f{5, 0, 0}, Pnt3f{6, 1, 0}, Pnt3f{6, 0, 0}})
      geometry->getPositions()->push_back(point);
    geometry->getTypes()->push_back(osg::kTriangleStrip);
    geometry->getLengths()->push_back(4);
    if (indexed) geometry = single_indexed(geometry);
    const auto before = surface_of(geometry, morlu::test::normals::left_out);
    const corner_normals expected = expected_with_crease(*geometry, crease);
    osg::calcVertexNormals(geometry, crease);
    expect_normals(*geometry, expected);
    morlu::test::expect_same_surface(before, surface_of(geometry, morlu::test::normals::left_out));
    EXPECT_EQ(geometry->getTypes()->getValue(0), osg::kTriangles);
    EXPECT_EQ(geometry->getTypes()->getValue(1), osg::kTriangleStrip);
  }
}

TEST(Normals, OfManyTrianglesAtOnePointComeInTime) {
  constexpr UInt32 n = 100'000;  // all pairs would be ten thousand million
  // Flat: all are one. Steep: normals on a circle of radius s around the axis; two at angle a on
  // it meet at cos = 1 - s^2 (1 - cos a). Rim points are floats, 6e-5 apart: hence the tolerance.
  constexpr double tolerance = 2e-3;
  for (const double height : {1e-4, 1.0}) {
    const double s = height / std::sqrt(1 + height * height);  // of the horizontal part
    const double reach = 1 - (1 - std::cos(double{crease})) / (s * s);
    const double half = reach <= -1 ? std::numbers::pi : std::acos(reach);
    const auto geometry = triangles(cone(n, height));
    osg::calcVertexNormals(geometry, crease);
    UInt32 t = 0;
    for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it, ++t) {
      // Sum over the arc: horizontal parts shrink by sin(half) / half, and point along the middle.
      const double middle = 2 * std::numbers::pi * (t + 0.5) / n;
      const double flat = half >= std::numbers::pi ? 0 : s * std::sin(half) / half;
      const double up = std::sqrt(1 - s * s);
      const double length = std::sqrt(flat * flat + up * up);
      const Vec3f normal = it.getNormal(0);
      ASSERT_NEAR(normal[0], flat * std::cos(middle) / length, tolerance) << t;
      ASSERT_NEAR(normal[1], flat * std::sin(middle) / length, tolerance) << t;
      ASSERT_NEAR(normal[2], up / length, tolerance) << t;
    }
    EXPECT_EQ(t, n);
  }
  // Two flat fans, as near to the crease angle of each other as floats get.
  auto wedge = cone(n, 0);
  for (const Pnt3f& p : cone(n, 0)) wedge.push_back({p[0], 0.5f * p[1], 0.8660254f * p[1]});
  const auto geometry = triangles(wedge);
  osg::calcVertexNormals(geometry, crease);
  osg::calcVertexNormals(geometry, 0.0f);
  EXPECT_EQ(geometry->getNormals()->getValue(0), (Vec3f{0, 0, 1}));
}

TEST(Normals, TheTreeAgreesWithAllPairs) {
  std::mt19937 random(11);
  for (const UInt32 n : {65u, 200u, 500u}) {
    std::vector<Pnt3f> points;
    const auto anywhere = [&] { return static_cast<float>(random() % 2001) / 1000.0f - 1.0f; };
    for (UInt32 t = 0; t < n; ++t) {
      points.push_back({0, 0, 0});
      for (int k = 0; k < 2; ++k) points.push_back({anywhere(), anywhere(), anywhere()});
    }
    for (const float angle : {0.0f, 0.1f, crease, 2.0f, 3.2f}) {
      SCOPED_TRACE("triangles " + std::to_string(n) + " angle " + std::to_string(angle));
      const auto geometry = triangles(points);
      osg::calcVertexNormals(geometry, angle);
      expect_normals(*geometry, expected_with_crease(*geometry, angle));
    }
  }
}

TEST(Normals, SmallPartsHaveUnitNormalsAndBrokenTrianglesGiveNone) {
  const float nan = std::numeric_limits<float>::quiet_NaN(), tiny = 1e-6f;
  const std::vector<Pnt3f> points = {{0, 0, 0}, {tiny, 0, 0}, {0, tiny, 0},  // area 5e-13
                                     {0, 0, 0}, {1, 1, 1},    {2, 2, 2},     // no area
                                     {0, 0, 0}, {1, 0, nan},  {0, 1, 0}};
  for (const bool by_crease : {false, true}) {
    const auto geometry = triangles(points);
    by_crease ? osg::calcVertexNormals(geometry, crease) : osg::calcVertexNormals(geometry);
    ASSERT_EQ(geometry->getNormals()->size(), 9u);
    for (UInt32 i = 0; i < 9; ++i)
      EXPECT_EQ(geometry->getNormals()->getValue(i), i < 3 ? (Vec3f{0, 0, 1}) : Vec3f()) << i;
  }
}

TEST(Normals, LineGeometryStaysUntouched) {
  const auto geometry = one_primitive(osg::kLineStrip, box_corners());
  osg::calcVertexNormals(geometry);
  osg::calcVertexNormals(geometry, crease);
  EXPECT_TRUE(geometry->getNormals().isNull());
}

TEST(Normals, AMappingGetsTheNormalsWhereTheyBelong) {
  const auto joined = triangles(box_corners());
  osg::createSharedIndex(joined);
  osg::calcVertexNormals(joined);
  EXPECT_EQ(joined->getIndexMapping().getValues(),
            (std::vector<osg::UInt16>{osg::Geometry::MapPosition | osg::Geometry::MapNormal}));
  EXPECT_EQ(joined->getNormals()->size(), 8u);

  const auto own = triangles(box_corners());
  osg::calcVertexNormals(own);  // flat: one normal a corner
  osg::createSharedIndex(own);
  ASSERT_EQ(own->getIndexMapping().size(), 2u);
  const corner_normals expected = expected_by_index(*own);
  osg::calcVertexNormals(own);
  EXPECT_EQ(own->getIndexMapping().size(), 2u);
  expect_normals(*own, expected);
}

}  // namespace
