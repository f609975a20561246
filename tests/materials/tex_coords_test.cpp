// Texture coordinates near zero: the steps, the pass over sets, single nodes.

#include "materials/tex_coords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <osg/cores.h>
#include <osg/material.h>

#include "geoset/random_sets.h"
#include "morlu/materials.h"
#include "support/same_surface.h"

namespace morlu::tests {
namespace {

using ::osg::Pnt3f;
using ::osg::UInt32;
using ::osg::Vec2f;
using coords = std::array<Vec2f, 3>;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

// --- Plain forms ---------------------------------------------------------------------------------

/// The steps one value at a time, with the C library's functions.
void plain_normalise(coords& t, float limit) {
  for (Vec2f& corner : t)
    for (unsigned k = 0; k < 2; ++k) {
      float& x = corner[k];
      if (const float f = std::floor(x); std::abs(x - f) <= 0.001f)
        x = f;
      else if (const float g = std::ceil(x); std::abs(g - x) <= 0.001f)
        x = g;
    }
  for (unsigned k = 0; k < 2; ++k) {
    const float m = std::min({0.0f, t[0][k], t[1][k], t[2][k]});
    for (Vec2f& corner : t) corner[k] -= m < 0 ? std::floor(m) : 0;
  }
  for (unsigned k = 0; k < 2; ++k) {
    const float m = std::min({t[0][k], t[1][k], t[2][k]});
    for (Vec2f& corner : t) corner[k] -= m > 1 ? std::floor(m) : 0;
  }
  for (Vec2f& corner : t) {
    float &u = corner[0], &v = corner[1];
    if (u > limit) {
      u -= std::floor(u);
      if (v > 1) v -= std::floor(v);
    }
    if (v > limit) {
      v -= std::floor(v);
      if (u > 1) u -= std::floor(u);
    }
  }
}

coords coords_of(const osg_geoset& set, UInt32 i) {
  const auto& property = *set.geometry->getTexCoords();
  return {property.getValue(3 * i), property.getValue(3 * i + 1), property.getValue(3 * i + 2)};
}

void set_coords(const osg_geoset& set, UInt32 i, const coords& t) {
  for (UInt32 k = 0; k < 3; ++k) set.geometry->getTexCoords()->setValue(t[k], 3 * i + k);
}

/// With a bound of 1, what lies in 1 to 2 on an axis is no reason to cut.
bool is_beyond(const coords& t, float bound) {
  for (unsigned k = 0; k < 2; ++k) {
    const auto [low, high] = std::minmax({t[0][k], t[1][k], t[2][k]});
    if (high > bound && !(bound == 1 && low >= 1 && high <= 2)) return true;
  }
  return false;
}

/// Element by element, each again and again until it fits.
unsigned plain_pass(osg_geoset& set, int bound, int cut) {
  unsigned sum = 0;
  for (UInt32 i = 0; i < set.num_objects;) {
    coords t = coords_of(set, i);
    plain_normalise(t, static_cast<float>(cut));
    set_coords(set, i, t);
    unsigned added = 0;
    std::size_t first = 0;
    if (bound > 0 && is_beyond(t, static_cast<float>(bound)))
      set.splitElementInTwoParts(i, added, first, 0, false);
    sum += added;
    i += added == 0;
  }
  return sum;
}

// --- Sets ----------------------------------------------------------------------------------------

/// Random triangles whose coordinates span up to `span`; ids say which element a piece is of.
void fill_tiled(osg_geoset& set, UInt32 elements, float span, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> corner(0, span), origin(-20, 20);
  fill(set, elements, random);
  set.setup();
  for (UInt32 i = 0; i < elements; ++i) {
    const Vec2f base(origin(random), std::round(origin(random)));
    coords t;
    for (Vec2f& each : t) each = base + Vec2f(corner(random), corner(random));
    set_coords(set, i, t);
    for (UInt32 k = 0; k < 3; ++k)
      set.geometry->getTexCoords7()->setValue(Vec2f(static_cast<float>(i), 0), 3 * i + k);
  }
}

/// One triangle with these texture coordinates.
struct one_triangle : osg_geoset {
  one_triangle(const std::array<Pnt3f, 3>& corners, const coords& t) {
    std::mt19937 random(3);
    fill(*this, 1, random);
    for (UInt32 k = 0; k < 3; ++k) geometry->getPositions()->setValue(corners[k], k);
    setup();
    set_coords(*this, 0, t);
  }
};

const std::array<Pnt3f, 3> right_angled{Pnt3f(0, 0, 0), Pnt3f(4, 0, 0), Pnt3f(0, 4, 0)};

osg::prepared_element element(osg_geoset& set, UInt32 i) {
  osg::prepared_element out;
  set.PrepareTriangle(out, i);
  return out;
}

/// Pieces by id tile their source and show its texture, shifted by whole numbers.
void expect_same_texture(osg_geoset& before, osg_geoset& after) {
  std::vector<double> areas(before.num_objects);
  for (UInt32 i = 0; i < after.num_objects; ++i) {
    const auto piece = element(after, i);
    const auto source = static_cast<UInt32>(piece.id[0]);
    ASSERT_LT(source, before.num_objects);
    const auto whole = element(before, source);
    const Pnt3f(&p)[3] = whole.position;
    const auto area = area_vector(p[0], p[1], p[2]);
    if (area.length() < 0.02) continue;  // shares on slivers are mostly rounding
    const auto& q = piece.position;
    areas[source] += area_vector(q[0], q[1], q[2]).dot(area) / area.dot(area);
    Vec2f shift;
    for (unsigned k = 0; k < 3; ++k) {
      const double first = area_vector(q[k], p[1], p[2]).dot(area) / area.dot(area);
      const double second = area_vector(p[0], q[k], p[2]).dot(area) / area.dot(area);
      for (unsigned axis = 0; axis < 2; ++axis) {
        const double shown = first * whole.tex_coord0[0][axis] +
                             second * whole.tex_coord0[1][axis] +
                             (1 - first - second) * whole.tex_coord0[2][axis];
        const double moved = piece.tex_coord0[k][axis] - shown;
        if (k == 0) shift[axis] = static_cast<float>(std::round(moved));
        EXPECT_NEAR(moved, shift[axis], 0.006) << "piece " << i << " of " << source;
      }
    }
  }
  for (UInt32 i = 0; i < areas.size(); ++i)
    if (areas[i] != 0) {
      EXPECT_NEAR(areas[i], 1, 1e-4) << i;
    }
}

/// Of any values, to the bit; and what is no number harms none.
TEST(TexCoordSteps, AreThoseOfThePlainForms) {
  const unsigned seed = 91;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const float scales[] = {0.002f, 1, 3, 60, 1000, 1e7f, 1e10f, 1e30f};
  for (int round = 0; round < 200'000; ++round) {
    coords t;
    for (Vec2f& corner : t)
      for (unsigned k = 0; k < 2; ++k) {
        const float whole = static_cast<float>(random() % 9) - 4;
        std::uniform_real_distribution<float> any(-1, 1);
        corner[k] = whole + any(random) * scales[random() % 8];
      }
    coords ours = t, plain = t;
    const int limit = static_cast<int>(random() % 60) - 3;
    osg::roundTCToInteger(ours[0], ours[1], ours[2]);
    osg::getTCPositiv(ours[0], ours[1], ours[2]);
    osg::getTCNearToZero(ours[0], ours[1], ours[2]);
    osg::cutTC(ours[0], ours[1], ours[2], limit);
    plain_normalise(plain, static_cast<float>(limit));
    ASSERT_EQ(ours, plain) << "round " << round;
  }
  coords t{Vec2f(nan_value, -infinite), {-0.5f, 0.25f}, {infinite, 70.5f}};
  osg::getTCPositiv(t[0], t[1], t[2]);
  osg::getTCNearToZero(t[0], t[1], t[2]);
  osg::cutTC(t[0], t[1], t[2], 50);
  EXPECT_TRUE(std::isnan(t[0][0]));
  EXPECT_EQ(t[0][1], -infinite);
  EXPECT_EQ(t[1], Vec2f(0.5f, 0.25f));
  EXPECT_EQ(t[2], Vec2f(infinite, 0.5f));
}

// --- Sets ----------------------------------------------------------------------------------------

TEST(TexCoordPass, DoesWhatAWalkOverSingleElementsDoes) {
  for (const int bound : {-1, 0, 1, 2, 3})
    for (const int cut : {50, 4}) {
      SCOPED_TRACE(testing::Message() << "bound " << bound << ", cut " << cut);
      const float span = bound == 1 ? 1.2f : 6;
      const UInt32 elements = bound == 1 ? 30 : 1100;  // some hundred pieces each, or about ten
      osg_geoset ours, plain;
      fill_tiled(ours, elements, span, 7);
      fill_tiled(plain, elements, span, 7);
      ours.resizeFields(5000);
      const Vec2f unused(-3.5f, 9);
      const UInt32 behind = 4999 * 3;
      if (bound < 1) ours.geometry->getTexCoords()->setValue(unused, behind);

      const unsigned added = osg::optimizeGeosetTexCoords(ours, bound, cut);
      EXPECT_EQ(added, plain_pass(plain, bound, cut));
      EXPECT_EQ(added > 0, bound > 0);
      EXPECT_EQ(ours.num_objects, elements + added);
      EXPECT_EQ(ours.geometry->getLengths()->getValue(0), 3 * ours.num_objects);
      EXPECT_TRUE(content(ours) == content(plain));
      if (bound < 1) {
        EXPECT_EQ(ours.geometry->getTexCoords()->getValue(behind), unused);
      }
    }
}

TEST(TexCoordPass, KeepsTheTextureAndComesWithinTheBound) {
  for (const int bound : {1, 2, 3}) {
    SCOPED_TRACE(bound);
    osg_geoset before, after;
    for (osg_geoset* set : {&before, &after})
      fill_tiled(*set, bound == 1 ? 30 : 200, bound == 1 ? 1.2f : 7, 23);
    osg::optimizeGeosetTexCoords(after, bound, 50);
    expect_same_texture(before, after);
    std::size_t beyond = 0;
    for (UInt32 i = 0; i < after.num_objects; ++i)
      beyond += is_beyond(coords_of(after, i), static_cast<float>(bound));
    EXPECT_EQ(beyond, 0u);
  }
  one_triangle tiled(right_angled, {Vec2f(0, 0), {5, 0}, {0, 0.5f}});
  EXPECT_GE(osg::optimizeGeosetTexCoords(tiled, 2, 50), 3u);
}

/// Each of these could be cut for ever, or as long as there is memory.
TEST(TexCoordPass, EndsOnAnyInput) {
  const auto added = [](const std::array<Pnt3f, 3>& corners, const coords& t, int bound) {
    one_triangle set(corners, t);
    const unsigned result = osg::optimizeGeosetTexCoords(set, bound, 50);
    EXPECT_EQ(set.num_objects, result + 1);
    return result;
  };
  for (const float strange : {nan_value, infinite, -infinite})
    EXPECT_EQ(added(right_angled, {Vec2f(0, 0), {5, 0}, {0.5f, strange}}, 2), 0u);
  for (const float far : {1e30f, -1e30f, 3e38f, -3e38f})
    EXPECT_LT(added(right_angled, {Vec2f(0, far), {5, 0}, {0.5f, -far}}, 2), 10'000u);
  EXPECT_EQ(added(right_angled, {Vec2f(1, 1), {2, 1}, {1.5f, 2}}, 1), 0u);
  EXPECT_EQ(added(right_angled, {Vec2f(1, 0), {2, 0}, {1.5f, 0.5f}}, 1), 0u);

  // The image is repeated across a needle: its many pieces are needles too.
  const std::array<Pnt3f, 3> needle{Pnt3f(0, 0, 0), Pnt3f(1e6f, 0, 0), Pnt3f(0, 1e-3f, 0)};
  const unsigned most = (1u << 20) + 64;
  const unsigned pieces = added(needle, {Vec2f(0, 0), {0, 0}, {40, 0}}, 2);
  EXPECT_GE(pieces, most);
  EXPECT_LE(pieces, most + 1);
}

TEST(TexCoordPass, LeavesSetsWithoutTexCoordsAlone) {
  one_triangle set(right_angled, {Vec2f(0, 0), {5, 0}, {0, 5}});
  set.geometry->getTexCoords()->clear();
  EXPECT_EQ(osg::optimizeGeosetTexCoords(set, 2, 50), 0u);
  set.geometry->setTexCoords(::osg::NullFC);
  const auto before = content(set);
  EXPECT_EQ(osg::optimizeGeosetTexCoords(set, 2, 50), 0u);
  EXPECT_EQ(content(set), before);
  set.geometry = ::osg::NullFC;
  EXPECT_EQ(osg::optimizeGeosetTexCoords(set, 2, 50), 0u);
}

// --- Nodes ---------------------------------------------------------------------------------------

/// A strip of two triangles whose image is repeated, below a group with a material for it.
struct strip_scene {
  ::osg::SimpleTexturedMaterialPtr material = simple_textured();
  ::osg::GeometryPtr core =
      one_primitive(::osg::kTriangleStrip, {{0, 0, 0}, {0, 1, 0}, {1, 0, 0}, {1, 1, 0}});
  ::osg::NodePtr node = node_with(core), group = below_material(material, {node});

  explicit strip_scene(float span) {
    core->setTexCoords(
        property_of<::osg::GeoTexCoords2f>({{3, 0}, {3, 1}, {3 + span, 0}, {3 + span, 1}}));
    ::osg::setName(core, "strip");
  }
};

TEST(TexCoordsOfNodes, GiveTheNodeACoreOfItsOwn) {
  strip_scene scene(2.5f);
  const auto other = node_with(scene.core);
  const auto before = test::surface_of(scene.core);
  const unsigned added = osg::normalizeNodeTexCoords(scene.node, 2, 50);
  EXPECT_GT(added, 0u);
  const auto core = ::osg::Geometry::dcast(scene.node->getCore());
  ASSERT_NE(core, scene.core);
  test::expect_same_surface(before, test::surface_of(::osg::Geometry::dcast(other->getCore())));
  EXPECT_EQ(core->getMaterial(), scene.material);
  EXPECT_STREQ(::osg::getName(core), "strip");
  EXPECT_EQ(core->getLengths()->getValue(0), 3 * (2 + added));
  EXPECT_EQ(core->getPositions()->size(), 3 * (2 + added));
  EXPECT_EQ(core->getTexCoords()->size(), 3 * (2 + added));
  double area = 0;
  for (auto it = core->beginTriangles(); !it.isAtEnd(); ++it) {
    area += area_vector(it.getPosition(0), it.getPosition(1), it.getPosition(2)).length();
    for (UInt32 k = 0; k < 3; ++k) EXPECT_LE(it.getTexCoords(k)[0], 2);
  }
  EXPECT_NEAR(area, 1, 1e-6);
}

TEST(TexCoordsOfNodes, LeaveAnyOtherCoreInPlace) {
  EXPECT_EQ(osg::normalizeNodeTexCoords(::osg::NullFC, 2, 50), 0u);
  EXPECT_EQ(osg::normalizeNodeTexCoords(::osg::Node::create(), 2, 50), 0u);
  const auto expect_kept = [](const strip_scene& scene) {
    EXPECT_EQ(osg::normalizeNodeTexCoords(scene.node, 2, 50), 0u);
    EXPECT_EQ(scene.node->getCore(), ::osg::NodeCorePtr(scene.core));
  };
  strip_scene with_line(4);
  with_line.core->getTypes()->push_back(::osg::kLines);
  with_line.core->getLengths()->setValue(3, 0);
  with_line.core->getLengths()->push_back(1);
  expect_kept(with_line);
  strip_scene without_coords(4);
  without_coords.core->setTexCoords(::osg::NullFC);
  expect_kept(without_coords);
  strip_scene without_image(4);
  without_image.material->setImage(::osg::NullFC);
  expect_kept(without_image);
  strip_scene flat(4);
  for (UInt32 i = 0; i < 4; ++i) flat.core->getPositions()->setValue({0, 0, 0}, i);
  expect_kept(flat);
}

}  // namespace
}  // namespace morlu::tests
