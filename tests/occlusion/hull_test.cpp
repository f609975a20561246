// Which elements a hull keeps: exact numbers, ties in walking order, all kinds of primitive.

#include <gtest/gtest.h>

#include <osg/state_chunks.h>

#include <limits>

#include "morlu/kd.h"
#include "occlusion/hull.h"
#include "occlusion/plain_walk.h"
#include "support/failing_memory.h"
#include "support/random_geometry.h"
#include "support/same_surface.h"

namespace morlu::tests {
namespace {

using ::osg::PrimitiveType;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

TEST(Hull, CountsNothingWhereThereAreNoPrimitives) {
  for (const ::osg::NodePtr& node :
       {::osg::NodePtr(), group({}), node_with(::osg::Geometry::create())})
    EXPECT_EQ(osg::countPrimitives(node), 0u);
}

/// One primitive after the other at x = 0, 1, ...: of triangles, lines or points, each in the
/// brightness of its place.
::osg::NodePtr row_of(PrimitiveType type, const std::vector<float>& brightness) {
  const unsigned corners = type == ::osg::kPoints ? 1 : type == ::osg::kLines ? 2 : 3;
  const auto geometry = make_geometry({});
  const auto colors = ::osg::GeoColors3f::create();
  for (std::size_t i = 0; i < brightness.size(); ++i)
    for (unsigned k = 0; k < corners; ++k) {
      geometry->getPositions()->push_back(
          {static_cast<float>(i), k == 1 ? 1.0f : 0.0f, k == 2 ? 1.0f : 0.0f});
      colors->push_back({brightness[i], brightness[i], brightness[i]});
    }
  geometry->setColors(colors);
  geometry->getTypes()->setValue(type, 0);
  geometry->getLengths()->setValue(colors->size(), 0);
  return node_with(geometry);
}

/// x of the first corner of each point, line and triangle that is left.
std::vector<int> places_in(const ::osg::NodePtr& node) {
  std::vector<int> all;
  const auto& geometry = *core(node);
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    all.push_back(static_cast<int>(it.getPosition(0)[0]));
    EXPECT_EQ(it.getLength(), it.getType() == ::osg::kPoints  ? 1u
                              : it.getType() == ::osg::kLines ? 2u
                                                              : 3u);
  }
  return all;
}

::osg::NodePtr color_hull(const ::osg::NodePtr& root, unsigned target) {
  ::osg::NodePtr hull;
  const auto nodes = std::to_string(geometry_nodes(root).size());
  EXPECT_EQ(said_on_out([&] { hull = osg::buildModelHullWithVertexColors(root, target); }),
            "GeoNodes: " + nodes + "\n");
  return hull;
}

TEST(ColorHull, KeepsTheBrightest) {
  const struct {
    std::vector<float> brightness;
    unsigned target;
    std::vector<int> kept;  // by place in a row of two nodes, one after the other
  } cases[] = {{{0.1f, 0.9f, 0, 0.3f, 0.7f, 0.6f}, 3, {1, 4}},
               {{0.1f, 0.9f, 0, 0.3f, 0.7f, 0.6f}, 1, {}},
               {{0.1f, 0.9f, 0, 0.3f, 0.7f, 0.6f}, 0, {0, 1, 3, 4, 5}},
               {{0.1f, 0.9f, 0, 0.3f, 0.7f, 0.6f}, 6, {0, 1, 3, 4, 5}},
               {{0.1f, 0.9f, 0, 0.3f, 0.7f, 0.6f}, 700, {0, 1, 3, 4, 5}},
               {{0.7f, 0.7f, 0.7f, 0.7f, 0.7f, 0.7f}, 4, {0, 1, 2}},
               {{0.7f, 0.9f, 0.7f, 0.1f, 0.7f, 0.7f}, 4, {0, 1, 2}},
               {{0.7f, 0.9f, 0.7f, 0.1f, 0.7f, 0.7f}, 5, {0, 1, 2, 4}},
               {{1, 1, 0.5f, 1, 1, 1}, 4, {0, 1, 3}},
               {{1, 1, 1, 1, 1, 1}, 6, {0, 1, 2, 3, 4, 5}},
               {{2, 2, 3, 2, 2, 2}, 3, {0, 2}},
               {{0.5f, nan, 0.7f, 3, nan, 0.6f}, 2, {1}},
               {{0.5f, nan, 0.7f, 3, nan, 0.6f}, 3, {1, 4}},
               {{0.5f, nan, 0.7f, 3, nan, 0.6f}, 4, {1, 3, 4}}};
  for (const PrimitiveType type : {::osg::kPoints, ::osg::kLines, ::osg::kTriangles})
    for (const auto& each : cases) {
      const std::vector<float> first(each.brightness.begin(), each.brightness.begin() + 4);
      const std::vector<float> rest(each.brightness.begin() + 4, each.brightness.end());
      const auto hull = color_hull(group({row_of(type, first), row_of(type, rest)}), each.target);
      ASSERT_EQ(hull->getNChildren(), 2u);
      std::vector<int> kept = places_in(hull->getChild(0));
      for (const int place : places_in(hull->getChild(1))) kept.push_back(4 + place);
      EXPECT_EQ(kept, each.kept) << type << ' ' << each.target;
    }
}

TEST(ColorHull, KeepsElementsWhole) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto geometry = test::random_geometry(random, static_cast<test::layout>(seed % 3));
    const auto colors = property_of<::osg::GeoColors3f>({{0.5f, 0.5f, 0.5f}});
    geometry->setColors(colors);
    const auto material = ::osg::SimpleMaterial::create();
    geometry->setMaterial(material);
    auto before = test::surface_of(geometry);
    const auto hull = color_hull(group({node_with(geometry)}), 0);
    const auto copy = core(hull->getChild(0));
    EXPECT_EQ(copy->getMaterial(), material);
    EXPECT_FALSE(copy->getColors());
    EXPECT_EQ(copy->getNormals().isNull(),
              !geometry->getNormals() || geometry->getNormals()->empty());
    EXPECT_TRUE(copy->getIndexMapping().getValues().empty());
    copy->setColors(colors);
    test::expect_same_surface(before, test::surface_of(copy));
  }
}

TEST(ColorHull, MovesNodesWithTheirPlaces) {
  const auto inner = row_of(::osg::kTriangles, {1, 1}), outer = row_of(::osg::kTriangles, {1});
  const auto bare = mesh_node(ball(3)), other = group({});
  outer->addChild(placed(inner, scaled({2, 2, 2}, {0, 5, 0})));
  outer->addChild(other);
  const auto root = group({placed(outer, scaled({1, 1, 1}, {7, 0, 0})), bare});
  const auto place = inner->getToWorld();
  const auto hull = color_hull(root, 0);
  EXPECT_FALSE(hull->getParent());
  ASSERT_EQ(hull->getNChildren(), 3u);
  EXPECT_EQ(inner->getToWorld(), place);
  EXPECT_EQ(outer->getToWorld(), scaled({1, 1, 1}, {7, 0, 0}));
  EXPECT_EQ(bare->getParent(), hull);
  EXPECT_FALSE(bare->getCore()) << "no colours tell of it";
  EXPECT_EQ(outer->getNChildren(), 0u);
  EXPECT_EQ(other->getParent()->getParent(), root->getChild(0));
  EXPECT_EQ(color_hull(::osg::NullFC, 5)->getNChildren(), 0u);
}

struct ray_hull {
  ::osg::NodePtr root;
  std::string said;

  ray_hull(const ::osg::NodePtr& of, unsigned target, bool two_sided = true) {
    osg::forget_directions();
    said = said_on_out([&] { root = osg::buildModelHull(of, setup(), target, 3, two_sided); });
  }
  static osg::mergeGeo_setup setup() {
    osg::mergeGeo_setup settings;
    settings.silent = true;
    settings.keeprenderfalse = true;
    return settings;
  }
  std::vector<test::surface> surfaces() const {
    std::vector<test::surface> all;
    for (const auto& node : geometry_nodes(root)) all.push_back(test::surface_of(core(node)));
    return all;
  }
};

/// Soups and rows of lines and points around each other, some of it transparent.
::osg::NodePtr model(unsigned seed) {
  std::mt19937 random(seed);
  std::vector<::osg::NodePtr> parts;
  for (int i = 0; i < 9; ++i) {
    const auto node = i % 3 == 0   ? mesh_node(random_soup(random, 40))
                      : i % 3 == 1 ? row_of(::osg::kLines, std::vector<float>(9, 0.5f))
                                   : row_of(::osg::kPoints, std::vector<float>(9, 0.5f));
    if (i == 6) {
      core(node)->setMaterial(of_chunks({diffuse({1, 1, 1, 0.5f})}));
      parts.push_back(placed(node_with(node->getCore()), scaled({1, 1, 1}, {-9, 0, 0})));
    }
    parts.push_back(placed(node, scaled({1, 1, 1}, random_point(random, 6))));
  }
  return group(parts);
}

/// What the elements of a geometry are worth, by plain walks.
std::vector<double> plain_worths(const ::osg::NodePtr& node, const plain_walk& walk) {
  const auto values = walk.values(node);
  std::vector<double> all;
  const auto add = [&](const auto& it, std::initializer_list<unsigned> corners) {
    double sum = 0;
    for (const unsigned k : corners)
      sum += values[static_cast<std::size_t>(it.getPositionIndex(k))];
    all.push_back(sum / static_cast<double>(corners.size()));
  };
  const auto& geometry = *core(node);  // merged: of one kind
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it)
    for (unsigned i = 0; it.getType() == ::osg::kPoints && i < it.getLength(); ++i) add(it, {i});
  for (auto it = geometry.beginLines(); !it.isAtEnd(); ++it) add(it, {0, 1});
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it) add(it, {0, 1, 2});
  return all;
}

template <class Element>
void keep_some(std::vector<Element>& elements, const std::vector<bool>& kept) {
  std::size_t next = 0;
  if (elements.size() != kept.size()) return;
  std::erase_if(elements, [&](const Element&) { return !kept[next++]; });
}

TEST(RayHull, KeepsWhatAPlainWalkKeeps) {
  for (const bool two_sided : {true, false}) {
    for (const unsigned target : {0u, 1u, 2u, 30u, 100u, 200u}) {
      SCOPED_TRACE(target);
      const ray_hull whole(model(3), 100000);
      const auto nodes = geometry_nodes(whole.root);
      const test_scene scene(whole.root);
      const auto reach = static_cast<float>(diagonal_of(whole.root) * 0.75);
      const plain_walk walk{scene, reach, two_sided, 0, false};
      std::vector<std::vector<double>> worths;
      std::vector<double> sorted;
      for (const auto& node : nodes) {
        worths.push_back(plain_worths(node, walk));
        sorted.insert(sorted.end(), worths.back().begin(), worths.back().end());
      }
      std::sort(sorted.begin(), sorted.end());
      const float threshold = target == 0 ? 0 : static_cast<float>(sorted[sorted.size() - target]);
      std::ptrdiff_t ties = 0;
      if (target > 0) {
        const auto from = sorted.end() - static_cast<std::ptrdiff_t>(target) + 1;
        for (auto next = from; next != sorted.end() && *next == threshold; ++next) ++ties;
      }

      const ray_hull reduced(model(3), target, two_sided);
      const auto got = reduced.surfaces();
      ASSERT_EQ(got.size(), nodes.size());
      std::size_t total = 0;
      for (std::size_t i = 0; i < nodes.size(); ++i) {
        std::vector<bool> kept;
        for (const double worth : worths[i])
          kept.push_back(worth > threshold || (worth == threshold && ties-- > 0));
        auto expected = test::surface_of(core(nodes[i]));
        keep_some(expected.triangles, kept);
        keep_some(expected.lines, kept);
        keep_some(expected.points, kept);
        test::expect_same_surface(expected, got[i]);
        total += got[i].triangles.size() + got[i].lines.size() + got[i].points.size();
        EXPECT_FALSE(core(geometry_nodes(reduced.root)[i])->getTexCoords6());
      }
      constexpr double rounding = 12;  // of the threshold, with ties about it
      if (target > 0) {
        EXPECT_NEAR(static_cast<double>(total), target - 1.0, rounding);
      }
    }
  }
}

TEST(RayHull, ReducesNothingFromTheCountOn) {
  const std::uint32_t count = 40 * 4 + 9 * 6;  // the transparent soup stands in two places
  for (const unsigned target : {count, count + 1}) {
    const ray_hull hull(model(8), target);
    EXPECT_EQ(hull.said.find("Prepare Geoset"), std::string::npos);
    std::uint32_t total = 0;
    for (const auto& node : geometry_nodes(hull.root)) {
      total += osg::countPrimitives(node);
      EXPECT_FALSE(core(node)->getTexCoords6());
    }
    EXPECT_EQ(total, count);
  }
  const ray_hull reduced(model(8), count - 1);
  const auto nodes = geometry_nodes(reduced.root).size();
  const auto at = reduced.said.find("Prepare Geoset: \n\rDone 1 of " + std::to_string(nodes));
  EXPECT_NE(at, std::string::npos) << reduced.said;
  const auto end = reduced.said.rfind("\nCalc Ambient Occlusion: \n\r0%\r");
  EXPECT_NE(end, std::string::npos) << reduced.said;
  EXPECT_EQ(reduced.said.back(), '%');
  EXPECT_EQ(ray_hull(::osg::NullFC, 5).root->getNChildren(), 0u);
}

TEST(RayHull, BringsHiddenGeometryAlong) {
  for (const unsigned target : {3u, 1000u}) {
    const auto hidden = mesh_node(ball(3));
    hidden->setTravMask(0);
    const auto root = group({mesh_node(ball(4)), placed(hidden, scaled({1, 1, 1}, {5, 0, 0}))});
    const ray_hull hull(root, target);
    EXPECT_EQ(hidden->getToWorld(), scaled({1, 1, 1}, {5, 0, 0}));
    auto above = hidden;
    while (above->getParent()) above = above->getParent();
    EXPECT_EQ(above, hull.root);
    EXPECT_EQ(osg::countPrimitives(hidden), ball(3).size());
  }
}

TEST(Hull, SaysWhatItCouldNotStore) {
  const test_scene nothing(group({}));
  const auto node = node_with(::osg::Geometry::create());
  EXPECT_EQ(said_on_out([&] {
              osg::occlusion_scene scene(group({}));
              EXPECT_FALSE(osg::storeOcclusion(node, scene, {3, 1, true}));
            }),
            "Prepare Geoset: \n\nCalc Ambient Occlusion: \nPositions are NullFC. Skipping this "
            "Geometry.\n");
  osg::hull_cut cut;
  EXPECT_FALSE(osg::copyPrimitivesWithAOThreshold(node, cut));
  EXPECT_FALSE(osg::copyPrimitivesWithAOThreshold(::osg::NullFC, cut));
  EXPECT_FALSE(osg::copyTrianglesWithColorThreshold(node, cut));
}

TEST(Hull, SaysThatACopyHasFailed) {
  const auto node = row_of(::osg::kTriangles, {1, 1, 1});
  EXPECT_EQ(osg::countPrimitives(node), 3u);  // from here on the types are registered
  int failures = 0;
  for (int nth = 0; nth < 2000; ++nth) {
    osg::hull_cut cut;
    ::osg::GeometryPtr copy;
    const auto lines = test::with_failing_memory(
        nth, [&] { copy = osg::copyTrianglesWithColorThreshold(node, cut); });
    EXPECT_FALSE(lines.thrown);
    if (!lines.met) break;
    ++failures;
    EXPECT_FALSE(copy) << nth;
    EXPECT_EQ(lines.err,
              "bad_alloc caught in Extract geometry in copyPrimitivesWithAOThreshold(): t: "
              "std::bad_alloc\n");
  }
  EXPECT_GT(failures, 10);
}

}  // namespace
}  // namespace morlu::tests
