// Baked colours beside closed forms and plain walks, what becomes of materials and indices, and
// what is said.

#include <gtest/gtest.h>

#include <osg/material.h>

#include <bit>
#include <iomanip>
#include <iostream>
#include <limits>

#include "occlusion/plain_walk.h"
#include "support/random_geometry.h"
#include "support/same_surface.h"

namespace morlu::tests {
namespace {

using osg::AddAmbientOcclusion;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

std::string bake(const ::osg::NodePtr& root, bool overwrite, int samples = 3) {
  osg::forget_directions();
  return said_on_out([&] { AddAmbientOcclusion(root, overwrite, samples, 1); });
}

// A small sheet that faces up, and what stands around it. Of the n + 1 heights of directions the
// lowest runs within the sheet's plane; half of the directions lean to the wall.
const auto sheet = quad({1, -1, 0}, {2, -1, 0}, {2, 1, 0}, {1, 1, 0});
const auto wall = quad({0, -900, -900}, {0, 900, -900}, {0, 900, 900}, {0, -900, 900});
const auto lid = quad({-900, -900, 1}, {-900, 900, 1}, {900, 900, 1}, {900, -900, 1});
const auto room = turned(ball(12, {1.5f, 0, 0}, 9));

TEST(Bake, GivesClosedForms) {
  for (const int samples : {3, 15}) {
    const struct {
      const char* name;
      std::vector<triangle> around;
      float expected;
    } cases[] = {{"nothing", {}, 1},
                 {"wall", wall, 0.5f},
                 {"wall from behind", turned(wall), 1},
                 {"lid", lid, 1.0f / static_cast<float>(samples + 1)},
                 {"lid from above", turned(lid), 1},
                 {"room", room, 0},
                 {"room from outside", turned(room), 1}};
    for (const auto& each : cases)
      for (const ::osg::Matrix& place :
           {::osg::Matrix(), scaled({3, 3, 3}, {50, 60, 70}), scaled({1, 1, -1}, {0, 0, 0})}) {
        const bool mirrored = place[10] < 0;  // fronts are backs, normals are not
        const auto subject = mesh_node(mirrored ? turned(sheet) : sheet);
        const auto around = mirrored ? turned(each.around) : each.around;
        core(subject)->setNormals(property_of<::osg::GeoNormals3f>({{0, 0, 1}}));
        bake(placed(group({subject, mesh_node(around)}), place), true, samples);
        const auto& colors = *core(subject)->getColors();
        ASSERT_EQ(colors.size(), 4u);
        for (std::uint32_t i = 0; i < 4; ++i) {
          const ::osg::Color3f grey = colors.getValue(i);
          EXPECT_NEAR(grey[0], each.expected, 1e-6f) << each.name << " at " << place[0];
          EXPECT_EQ(grey, ::osg::Color3f(grey[0], grey[0], grey[0]));
        }
      }
  }
}

/// Soups with and without normals, points and lines among triangles, one place without a number.
::osg::NodePtr mixed_scene(std::mt19937& random) {
  std::vector<::osg::NodePtr> parts;
  for (int i = 0; i < 12; ++i) {
    auto geometry = make_geometry(random_soup(random, 30));
    if (i % 3 == 0) geometry = make_geometry(ball(4, random_point(random, 5), 2));
    auto& positions = *geometry->getPositions();
    if (i % 4 == 1) positions.setValue({nan, 1, 2}, 5);
    if (i % 4 == 2) {
      positions.setValue({0.0f, 1, 2}, 3);
      positions.setValue({-0.0f, 1, 2}, 10);
      geometry->getTypes()->setValue(i % 8 == 2 ? ::osg::kPoints : ::osg::kLines, 0);
    }
    parts.push_back(placed(node_with(geometry),
                           scaled({1, 1.5f, i % 5 ? 1.0f : -1.0f}, random_point(random, 4))));
  }
  return group(parts);
}

TEST(Bake, GivesTheValuesOfAPlainWalk) {
  const unsigned seed = 31;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto root = mixed_scene(random);
  const std::string said = bake(root, true);
  const test_scene scene(root);
  const plain_walk plain{scene, diagonal_of(root)};
  std::size_t occluded = 0;
  for (const auto& node : geometry_nodes(root)) {
    const auto expected = plain.values(node);
    const auto& colors = *core(node)->getColors();
    ASSERT_EQ(colors.size(), expected.size());
    for (std::uint32_t i = 0; i < colors.size(); ++i) {
      EXPECT_EQ(std::bit_cast<std::uint32_t>(colors.getValue(i)[2]),
                std::bit_cast<std::uint32_t>(expected[i]));
      occluded += expected[i] < 0.9f;
    }
  }
  EXPECT_GT(occluded, 200u);
}

// Two sheets back to back: their vertices coincide, and the first is the one that sees the lid.
TEST(Bake, SharesTheValueOfAPosition) {
  auto both = sheet;
  const auto back = turned(sheet);
  both.insert(both.end(), back.begin(), back.end());
  const auto geometry = make_geometry(both);
  const auto normals = ::osg::GeoNormals3f::create();
  for (int i = 0; i < 12; ++i) normals->push_back({0, 0, i < 6 ? 1.0f : -1.0f});
  geometry->setNormals(normals);
  bake(group({node_with(geometry), mesh_node(lid)}), true);
  ASSERT_EQ(geometry->getColors()->size(), 8u);
  for (std::uint32_t i = 0; i < 8; ++i) EXPECT_EQ(geometry->getColors()->getValue(i)[0], 0.25f);
}

// --- Materials and colours -----------------------------------------------------------------------

::osg::MaterialPtr plain_material() {
  return simple_material({0.5f, 0.25f, 1});
}

TEST(Bake, MultipliesOrReplacesColors) {
  const struct {
    const char* name;
    ::osg::MaterialPtr material;
    bool has_colors;
    ::osg::Color3f before;  // what is multiplied; white if nothing is there
    bool keeps_material;
  } cases[] = {{"bare", {}, false, {1, 1, 1}, false},
               {"colours", {}, true, {0.25f, 0.5f, 0.75f}, false},
               {"material", plain_material(), false, {0.5f, 0.25f, 1}, false},
               {"both", plain_material(), true, {0.375f, 0.375f, 0.875f}, false},
               {"image", simple_textured(), false, {1, 1, 1}, true},
               {"image and colours", simple_textured(), true, {0.25f, 0.5f, 0.75f}, true}};
  for (const auto& each : cases)
    for (const bool overwrite : {false, true}) {
      SCOPED_TRACE(each.name);
      const auto geometry = make_geometry(sheet);
      geometry->setMaterial(each.material);
      // for all: indices beyond the last mean the last
      const auto colors = property_of<::osg::GeoColors3f>({{0.25f, 0.5f, 0.75f}});
      if (each.has_colors) geometry->setColors(colors);
      bake(group({node_with(geometry), mesh_node(lid)}), overwrite);
      EXPECT_EQ(geometry->getMaterial(),
                each.keeps_material && !overwrite ? each.material : ::osg::MaterialPtr());
      ASSERT_EQ(geometry->getColors()->size(), 4u);
      for (std::uint32_t i = 0; i < 4; ++i)
        for (unsigned k = 0; k < 3; ++k)
          EXPECT_EQ(geometry->getColors()->getValue(i)[k],
                    overwrite ? 0.25f : each.before[k] * 0.25f);
      EXPECT_EQ(colors->size(), 1u) << "the property may be anybody's";
    }
}

TEST(Bake, StartsMissingColorsAtGrey) {
  const auto geometry = make_geometry({});
  geometry->setPositions(property_of<::osg::GeoPositions3f>({{}, {}, {}}));  // nobody uses them
  geometry->setColors(property_of<::osg::GeoColors4f>({{0.25f, 0.5f, 0.75f}}));
  bake(node_with(geometry), false);
  ASSERT_EQ(geometry->getColors()->size(), 3u);
  EXPECT_EQ(geometry->getColors()->getValue(0), ::osg::Color3f(0.25f, 0.5f, 0.75f));
  EXPECT_EQ(geometry->getColors()->getValue(2), ::osg::Color3f(0.5f, 0.5f, 0.5f));
}

TEST(Bake, DropsAllMaterialGroupsAbove) {
  auto node = mesh_node(sheet);
  core(node)->setMaterial(plain_material());
  std::vector<::osg::NodePtr> above;
  for (int i = 0; i < 3; ++i)
    above.push_back(below_material(plain_material(), {i == 0 ? node : above.back()}));
  bake(above[1], true);
  for (const auto& each : above) {
    EXPECT_FALSE(::osg::MaterialGroup::dcast(each->getCore()));
    EXPECT_TRUE(::osg::Group::dcast(each->getCore()));
  }
  EXPECT_FALSE(core(node)->getMaterial());
}

// --- Geometry ------------------------------------------------------------------------------------

TEST(Bake, GivesEachPlaceLightOfItsOwn) {
  const auto geometry = make_geometry(sheet);
  ::osg::setName(geometry, "sheet");
  const auto below = node_with(geometry), above = node_with(geometry);
  bake(group({below, placed(above, scaled({1, 1, 1}, {0, 0, 5})), mesh_node(lid)}), false);
  EXPECT_EQ(core(below), geometry);
  EXPECT_NE(core(above), geometry);
  EXPECT_STREQ(::osg::getName(core(above)), "sheet");
  EXPECT_EQ(core(below)->getColors()->getValue(0)[0], 0.25f);
  EXPECT_EQ(core(above)->getColors()->getValue(0)[0], 1.0f);
}

TEST(Bake, KeepsAllPrimitivesAndAttributes) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto geometry = test::random_geometry(random, static_cast<test::layout>(seed % 3));
    geometry->setColors(::osg::NullFC);
    geometry->setMaterial(simple_textured());  // or else texture coordinates have no use
    const auto before = test::surface_of(geometry, test::normals::left_out);
    bake(node_with(geometry), false);
    EXPECT_TRUE(geometry->getColors());
    geometry->setColors(::osg::NullFC);
    test::expect_same_surface(before, test::surface_of(geometry, test::normals::left_out));
  }
}

TEST(Bake, TellsItsProgress) {
  std::cout << std::hex << std::setprecision(9);
  const auto flags = std::cout.flags();
  const auto root = group(
      {mesh_node(sheet), node_with(::osg::Geometry::create()), mesh_node(lid), mesh_node(wall)});
  EXPECT_EQ(bake(root, true),
            "Prepare Geoset: \n\rDone 1 of 4\rDone 3 of 4\rDone 4 of 4\nCalc Ambient Occlusion: \n"
            "\r0%Positions are NullFC. Skipping this Geometry.\n\r50%\r75%\rdone.\n");
  EXPECT_EQ(std::cout.flags(), flags);
  EXPECT_EQ(std::cout.precision(), 9);
  EXPECT_EQ(bake(group({}), false), "Prepare Geoset: \n\nCalc Ambient Occlusion: \n\rdone.\n");
  EXPECT_EQ(bake(::osg::NullFC, false), "");
}

}  // namespace
}  // namespace morlu::tests
