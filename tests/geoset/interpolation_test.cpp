// Pieces of elements: what their corners get of the element they are cut from.

#include <gtest/gtest.h>

#include <cmath>

#include "geoset/random_sets.h"
#include "ray/triangle_set.h"

namespace morlu::tests {
namespace {

using vector3d = ::osg::Vec3d;

/// Shares of the corners at a point in the triangle's plane, by areas in double precision.
vector3d exact_shares(const std::array<::osg::Pnt3f, 3>& c, const ::osg::Pnt3f& p) {
  const vector3d a = wide(c[0]), b = wide(c[1]), d = wide(c[2]), at = wide(p);
  const vector3d normal = (b - a).cross(d - a);
  const double area = normal.dot(normal);
  return {normal.dot((b - at).cross(d - at)) / area, normal.dot((d - at).cross(a - at)) / area,
          normal.dot((a - at).cross(b - at)) / area};
}

::osg::Pnt3f mixed(const std::array<::osg::Pnt3f, 3>& c, float s, float t) {
  return c[0] + (c[1] - c[0]) * s + (c[2] - c[0]) * t;
}

/// A piece with one corner of its parent, one on an edge and one inside.
TEST(Interpolation, PiecesTakeWhatTheirParentShowsAtTheirCorners) {
  const unsigned seed = 11;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> share(0.05f, 0.45f);
  for (int round = 0; round < 300; ++round) {
    osg_geoset set;
    fill(set, 3, random);
    set.setup();
    set.buildTriangles();
    osg::prepared_element parent, piece;
    set.PrepareTriangle(parent, 1);
    const std::array<::osg::Pnt3f, 3> c{parent.position[0], parent.position[1], parent.position[2]};
    if (area_vector(c[0], c[1], c[2]).length() < 0.025) continue;  // floats tell little of slivers
    const std::array<::osg::Pnt3f, 3> corners{c[2], mixed(c, share(random), 0),
                                              mixed(c, share(random), share(random))};
    const auto check = [&](unsigned element) {
      set.PrepareTriangle(piece, element);
      for (unsigned k = 0; k < 3; ++k) {
        const vector3d shares = exact_shares(c, corners[k]);
        const auto expected = [&](const auto* of, unsigned i) {
          return shares[0] * of[0][i] + shares[1] * of[1][i] + shares[2] * of[2][i];
        };
        ASSERT_EQ(piece.position[k], corners[k]);
        ASSERT_EQ(piece.normal[k], parent.normal[k]);
        ASSERT_EQ(piece.id[k], parent.id[k]);
        for (unsigned i = 0; i < 3; ++i) {
          ASSERT_NEAR(piece.color[k][i], expected(parent.color, i), 2e-5);
          ASSERT_NEAR(piece.secondary_color[k][i], expected(parent.secondary_color, i), 2e-5);
          ASSERT_EQ(set.triangles[element].corners[k][i], corners[k][i]);
        }
        for (unsigned i = 0; i < 2; ++i) {
          ASSERT_NEAR(piece.tex_coord0[k][i], expected(parent.tex_coord0, i), 2e-5);
          ASSERT_NEAR(piece.tex_coord1[k][i], expected(parent.tex_coord1, i), 2e-5);
          ASSERT_NEAR(piece.tex_coord2[k][i], expected(parent.tex_coord2, i), 2e-5);
          ASSERT_NEAR(piece.tex_coord3[k][i], expected(parent.tex_coord3, i), 2e-5);
        }
      }
      ASSERT_EQ(piece.color[0], parent.color[2]) << "at a corner, without rounding";
    };
    ASSERT_TRUE(set.AddObject(corners[0], corners[1], corners[2], 1));
    check(3);
    set.replaceObject(corners[0], corners[1], corners[2], 1);
    check(1);
  }
}

/// 0---------2----1   no area: the share of the edge 0-1 counts, wherever the third corner is
TEST(Interpolation, ATriangleWithoutAreaGoesByItsLongestEdge) {
  for (unsigned first = 0; first < 3; ++first) {
    for (const ::osg::Vec3f& way : {::osg::Vec3f(3, 0, 0), ::osg::Vec3f(0.3f, 0.7f, 0.1f)}) {
      std::mt19937 random(3);
      osg_geoset set;
      fill(set, 1, random);
      const ::osg::Pnt3f start(0.1f, 0.2f, 0.3f);
      const std::array<::osg::Pnt3f, 3> p{start, start + way, start + way * (2.0f / 3)};
      const unsigned at[3] = {first, (first + 1) % 3, (first + 2) % 3};
      for (unsigned k = 0; k < 3; ++k) set.geometry->getPositions()->setValue(p[k], at[k]);
      set.setup();
      const auto color = [&](unsigned k) { return set.geometry->getColors()->getValue(at[k]); };
      ::osg::Color3f out;
      set.interpolateColor(out, 0, start + way * 0.25f, 0);
      for (unsigned i = 0; i < 3; ++i)
        EXPECT_NEAR(out[i], 0.75 * color(0)[i] + 0.25 * color(1)[i], 1e-5) << first;
    }
  }
}

TEST(Interpolation, ACornerIsWithinAMillionthOnAllAxes) {
  std::mt19937 random(3);
  osg_geoset set;
  fill(set, 1, random);
  for (unsigned k = 0; k < 3; ++k)
    set.geometry->getPositions()->setValue({k == 1 ? 1e-5f : 0.0f, k == 2 ? 1e-5f : 0.0f, 0}, k);
  set.setup();
  const float near = 1e-6f, far = std::nextafter(near, 1.0f);
  const auto color_at = [&](float x, float y) {
    ::osg::Color3f out;
    return set.interpolateColor(out, 0, {x, y, 0}, 0);
  };
  const auto corner = set.geometry->getColors()->getValue(0);
  EXPECT_EQ(color_at(near, -near), corner);
  EXPECT_NE(color_at(far, near), corner);
  EXPECT_NE(color_at(0, far), corner);
}

TEST(Interpolation, WhatIsNotThereLeavesTheResultAlone) {
  std::mt19937 random(3);
  osg_geoset set;
  fill(set, 1, random);
  set.geometry->setSecondaryColors(::osg::NullFC);
  set.setup();
  ::osg::Color3f color(4, 5, 6);
  ::osg::Vec2f coord(7, 8);
  EXPECT_EQ(&set.interpolateColor(color, 0, {}, 1), &color);
  set.interpolateColor(color, 0, {}, 2);
  set.interpolateColor(color, 1, {}, 0);
  set.interpolateTexCoord(coord, 0, {}, 4);
  set.interpolateTexCoord(coord, 0, {}, -1);
  EXPECT_EQ(color, ::osg::Color3f(4, 5, 6));
  EXPECT_EQ(coord, ::osg::Vec2f(7, 8));
}

}  // namespace
}  // namespace morlu::tests
