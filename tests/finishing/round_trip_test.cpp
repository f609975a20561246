// From the scene into sets, through trees, and back as cores: the surface is the same.

#include <gtest/gtest.h>
#include <osg/cores.h>
#include <osg/scene_file_handler.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "finishing/core_building.h"
#include "geoset/random_sets.h"
#include "kd/compile_tree.h"
#include "kd/strategies.h"
#include "osg/io/model_files.h"
#include "primitives/rogue.h"
#include "sample/sample_assembly.h"
#include "support/model_truth.h"
#include "support/random_geometry.h"
#include "support/said.h"
#include "support/scene_parts.h"

namespace morlu::tests {
namespace {

using ::osg::Attribute;
using ::osg::GeometryPtr;
using ::osg::NodePtr;
using ::osg::Pnt3f;
using test::said;

/// What each element shows as one number, sorted: equal for the same elements in any order, for
/// triangles from any corner on.
using marks = std::vector<std::uint64_t>;

std::uint64_t mixed(std::uint64_t mark, std::uint32_t word) {
  mark = (mark ^ word) * 0x9e3779b97f4a7c15u;
  return mark ^ mark >> 29;
}

template <class Value>
std::uint64_t mixed(std::uint64_t mark, const Value& value) {
  for (unsigned k = 0; k < 3; ++k)
    mark = mixed(mark, value[k] == 0 ? 0u : std::bit_cast<std::uint32_t>(value[k]));
  return mark;
}

using attribute_list = std::vector<Attribute>;

attribute_list attributes_of(const ::osg::Geometry& geometry, bool with_normals) {
  attribute_list list;
  for (unsigned a = 0; a < ::osg::kAttributeCount; ++a)
    if (geometry.getAttribute(::osg::attributeAt(a)) && (a != 1 || with_normals))
      list.push_back(::osg::attributeAt(a));
  return list;
}

template <unsigned Corners>
std::uint64_t mark_of(const std::array<std::uint64_t, Corners>& corner) {
  std::uint64_t least = ~std::uint64_t{0};
  for (unsigned turn = 0; turn < (Corners == 3 ? 3 : 1); ++turn) {
    std::uint64_t mark = 1;
    for (unsigned k = 0; k < Corners; ++k)
      mark = mixed(mixed(mark, static_cast<std::uint32_t>(corner[(turn + k) % Corners])),
                   static_cast<std::uint32_t>(corner[(turn + k) % Corners] >> 32));
    least = std::min(least, mark);
  }
  return least;
}

/// Calls `use(iterator, first corner)` for each element of the kind that has so many corners.
template <unsigned Corners, class Use>
void for_each_element(const ::osg::Geometry& geometry, const Use& use) {
  if constexpr (Corners == 3) {
    for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it) use(it, 0u);
  } else if constexpr (Corners == 2) {
    for (auto it = geometry.beginLines(); !it.isAtEnd(); ++it) use(it, 0u);
  } else {
    for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it)
      for (unsigned k = 0; it.getType() == ::osg::kPoints && k < it.getLength(); ++k) use(it, k);
  }
}

template <unsigned Corners>
void add_marks(const ::osg::Geometry& geometry, const attribute_list& attributes, marks& to) {
  for_each_element<Corners>(geometry, [&](const auto& it, unsigned first) {
    std::array<std::uint64_t, Corners> corner{};
    for (unsigned k = 0; k < Corners; ++k)
      for (const Attribute attribute : attributes)
        corner[k] = mixed(corner[k], it.template getValue<::osg::Vec3f>(attribute, first + k));
    to.push_back(mark_of<Corners>(corner));
  });
}

/// Nothing is extracted from a geometry whose only triangles are those of quad strips.
bool promises_triangles(const ::osg::Geometry& geometry) {
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it)
    if (it.getType() != ::osg::kQuadStrip && ::osg::triangleCount(it.getType(), it.getLength()) > 0)
      return true;
  return false;
}

/// Positions in the world, without what no set takes.
template <unsigned Corners>
marks usable_marks(const NodePtr& node) {
  const GeometryPtr geometry = ::osg::Geometry::dcast(node->getCore());
  const ::osg::Matrix world = node->getToWorld();
  marks result;
  if (Corners == 3 && !promises_triangles(*geometry)) return result;
  for_each_element<Corners>(*geometry, [&](const auto& it, unsigned first) {
    std::array<Pnt3f, 3> p;
    std::array<std::uint64_t, Corners> corner{};
    for (unsigned k = 0; k < Corners; ++k) {
      p[k] = world * it.getPosition(first + k);
      corner[k] = mixed(0, p[k]);
    }
    if (Corners == 3 && osg::rogue_filter::is_rogue(p[0], p[1], p[2])) return;
    if (Corners == 2 && osg::rogue_filter::coincide(p[0], p[1])) return;
    result.push_back(mark_of<Corners>(corner));
  });
  std::sort(result.begin(), result.end());
  return result;
}

std::vector<GeometryPtr> cores_below(const NodePtr& node) {
  std::vector<GeometryPtr> cores;
  if (node)
    for_each_geometry(node,
                      [&](const NodePtr&, const GeometryPtr& core) { cores.push_back(core); });
  return cores;
}

struct cores_summary {
  marks all;
  std::size_t cores = 0;
  std::size_t largest = 0;  // elements
};

template <unsigned Corners>
cores_summary summary_of(const NodePtr& root, const attribute_list& attributes) {
  cores_summary result;
  for (const GeometryPtr& core : cores_below(root)) {
    const std::size_t before = result.all.size();
    add_marks<Corners>(*core, attributes, result.all);
    result.largest = std::max(result.largest, result.all.size() - before);
    ++result.cores;
  }
  std::sort(result.all.begin(), result.all.end());
  return result;
}

template <class Set>
int extract_to(Set& set, const NodePtr& node) {
  if constexpr (corners<Set> == 3)
    return osg::extract(node, set, true, false, true, true, false);
  else if constexpr (corners<Set> == 2)
    return osg::extractLines(node, set, true, false, true, true);
  else
    return osg::extractPoints(node, set, true, false, true, true);
}

std::uint64_t largest_leaf(const kd_tree& tree) {
  return tree.stats.max_leaf_size;
}

/// Both walks at every level give what the set shows, within their limits, and the set shows what
/// the source does. Returns the number of elements.
template <class Set>
std::size_t expect_round_trip(const NodePtr& source, unsigned leaf_size, std::mt19937& random) {
  constexpr unsigned width = corners<Set>;
  Set set;
  kd_tree tree;
  said lines;  // of names and bounds that are missing
  extract_to(set, source);
  compile_tree(set, tree, {.leaf_size = leaf_size, .strategy = 3}, kd_strategy_ObjMedian{});
  lines.end();
  const marks usable = usable_marks<width>(source);
  EXPECT_EQ(set.num_objects, usable.size());
  if (usable.empty()) {
    EXPECT_FALSE(osg::Splitmodel(tree, set, 0, 10, ::osg::NullFC, 1, false));
    return 0;
  }
  marks expected;
  const attribute_list all = attributes_of(*set.geometry, true);
  add_marks<width>(*set.geometry, all, expected);
  std::sort(expected.begin(), expected.end());

  const auto leaves = static_cast<int>(tree.stats.leaves);
  for (const unsigned level : {0u, 1u, 2u, 3u}) {
    SCOPED_TRACE("level " + std::to_string(level) + " corners " + std::to_string(width));
    const auto limit = static_cast<unsigned>(1 + random() % (2 * usable.size()));
    const auto by_size =
        summary_of<width>(osg::Splitmodel(tree, set, 0, limit, ::osg::NullFC, level, false), all);
    EXPECT_TRUE(by_size.all == expected) << by_size.all.size();
    EXPECT_LE(by_size.largest, std::max<std::uint64_t>(limit, largest_leaf(tree)));

    const auto parts = static_cast<int>(1 + random() % static_cast<unsigned>(leaves));
    const NodePtr in_parts = osg::SplitmodelParts(tree, set, 0, parts, ::osg::NullFC, level, false);
    const auto by_parts = summary_of<width>(in_parts, all);
    EXPECT_TRUE(by_parts.all == expected) << by_parts.all.size();
    EXPECT_LE(by_parts.cores, static_cast<std::size_t>(parts));
    EXPECT_TRUE(summary_of<width>(in_parts, {Attribute::Positions}).all == usable);
  }
  const auto plain = attributes_of(*set.geometry, false);
  marks without_normals;
  add_marks<width>(*set.geometry, plain, without_normals);
  std::sort(without_normals.begin(), without_normals.end());
  const NodePtr renewed = osg::Splitmodel(tree, set, 0, 50, ::osg::NullFC, 1, true);
  EXPECT_TRUE(summary_of<width>(renewed, plain).all == without_normals);
  return usable.size();
}

struct element_counts {
  std::size_t triangles = 0, lines = 0, points = 0;

  void add_round_trips(const NodePtr& node, unsigned leaf_size, std::mt19937& random) {
    triangles += expect_round_trip<osg_geoset>(node, leaf_size, random);
    lines += expect_round_trip<osg_line_geoset>(node, leaf_size, random);
    points += expect_round_trip<osg_point_geoset>(node, leaf_size, random);
  }
};

/// A node below a transform.
NodePtr placed(const GeometryPtr& geometry) {
  static NodePtr held;
  const NodePtr node = named("source", node_with(geometry));
  held = node_with(
      transform(::osg::Matrix::translation(1, 2, 3) * ::osg::Matrix::rotation({1, 2, 3}, 0.5f)),
      {node});
  return node;
}

float odd_coordinate(std::mt19937& random) {
  const auto unit = static_cast<float>(random()) / static_cast<float>(random.max());
  switch (random() % 40) {
    case 0:
      return std::numeric_limits<float>::quiet_NaN();
    case 1:
      return std::numeric_limits<float>::infinity();
    case 2:
      return 1e13f * (unit - 0.5f);
    case 3:
      return 1e11f * (unit - 0.5f);
    case 4:
      return 0;
    default:
      return random() % 3 == 0 ? std::round(4 * unit) : 4 * unit;
  }
}

/// Triangles, lines and points with all attributes: usable ones, degenerate, flat and huge ones,
/// such that are not finite.
GeometryPtr random_soup(std::mt19937& random) {
  PrimitiveList primitives;
  std::size_t vertices = 0;
  for (const unsigned type : {4u, 1u, 0u}) {
    const unsigned width = type == 4 ? 3 : type + 1;
    primitives.emplace_back(type, static_cast<unsigned>(random() % 400 * width));
    vertices += primitives.back().second;
  }
  std::vector<Pnt3f> positions;
  const bool is_flat = random() % 4 == 0;
  for (std::size_t i = 0; i < vertices; ++i) {
    Pnt3f p(odd_coordinate(random), odd_coordinate(random), is_flat ? 1 : odd_coordinate(random));
    if (i > 0 && random() % 20 == 0) p = positions.back();
    positions.push_back(p);
  }
  const auto geometry = primitives_over(positions, primitives);
  geometry->setNormals(random_property<::osg::GeoNormals3f>(vertices, random));
  geometry->setColors(random_property<::osg::GeoColors3f>(vertices, random));
  geometry->setSecondaryColors(random_property<::osg::GeoColors3f>(vertices, random));
  for (const unsigned set : {0u, 1u, 2u, 3u, 7u})
    geometry->setTexCoordsSet(set, random_property<::osg::GeoTexCoords2f>(vertices, random));
  return geometry;
}

TEST(RoundTrip, KeepsRandomSoups) {
  element_counts counts;
  for (unsigned seed = 0; seed < 60 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    counts.add_round_trips(placed(random_soup(random)), static_cast<unsigned>(1 + random() % 60),
                           random);
  }
  EXPECT_TRUE(counts.triangles > 5000 && counts.lines > 5000 && counts.points > 5000);
}

TEST(RoundTrip, KeepsAllPrimitivesAndIndexLayouts) {
  using test::layout;
  element_counts counts;
  for (unsigned seed = 0; seed < 150 && !testing::Test::HasFailure(); ++seed)
    for (const layout kind : {layout::none, layout::single, layout::multi}) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " layout " +
                   std::to_string(static_cast<int>(kind)));
      std::mt19937 random(seed);
      counts.add_round_trips(placed(test::random_geometry(random, kind)),
                             static_cast<unsigned>(1 + random() % 5), random);
    }
  EXPECT_TRUE(counts.triangles > 500 && counts.lines > 500 && counts.points > 500);
}

class Model : public testing::TestWithParam<std::string> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Model);

void expect_round_trips(const NodePtr& root, unsigned leaf_size) {
  std::mt19937 random(1);
  element_counts counts;
  for_each_geometry(root, [&](const NodePtr& node, const GeometryPtr&) {
    if (testing::Test::HasFailure()) return;
    if (!::osg::getName(node)) ::osg::setName(node, "model");
    counts.add_round_trips(node, leaf_size, random);
  });
  EXPECT_GT(counts.triangles + counts.lines + counts.points, 0u);
}

TEST_P(Model, ComesBackAsItWent) {
  ::osg::io::registerModelFormats();
  const auto read =
      ::osg::SceneFileHandler::the().read((support::models_folder() / GetParam()).string());
  ASSERT_TRUE(read) << read.error;
  expect_round_trips(read.root, 500);
}

TEST(RoundTrip, KeepsAnAssembly) {
  expect_round_trips(sample::make_sample_assembly({.parts = 60}), 100);
}

INSTANTIATE_TEST_SUITE_P(All, Model,
                         testing::ValuesIn(support::models_with({".obj", ".ply", ".stl", ".dae",
                                                                 ".3ds", ".gltf", ".glb"})),
                         [](const auto& model) { return support::test_name(model.param); });

// --- Cuts ----------------------------------------------------------------------------------------

using vector3 = ::osg::Vec3d;

vector3 wide(const float* value) {
  return {value[0], value[1], value[2]};
}
vector3 doubled_area(const std::array<vector3, 3>& p) {
  return (p[1] - p[0]).cross(p[2] - p[0]);
}

/// An element before it is cut. The first component of its secondary colour is its number, the same
/// at all corners, which no interpolation changes: it tells of a piece what it is a piece of.
template <unsigned Corners>
struct whole {
  std::array<vector3, Corners> position, color;

  /// How much of each corner a point on it takes.
  std::array<double, Corners> weights(const vector3& p) const {
    if constexpr (Corners == 2) {
      const vector3 way = position[1] - position[0];
      const double share = (p - position[0]).dot(way) / way.dot(way);
      return {1 - share, share};
    } else {
      const vector3 normal = doubled_area(position);
      const double area = normal.dot(normal);
      const double first = normal.dot(doubled_area({p, position[1], position[2]})) / area;
      const double second = normal.dot(doubled_area({p, position[2], position[0]})) / area;
      return {first, second, 1 - first - second};
    }
  }
  /// Length or doubled area, of a piece negative if it is turned over.
  double extent(const std::array<vector3, Corners>& piece) const {
    if constexpr (Corners == 2) {
      const vector3 way = position[1] - position[0];
      return (piece[1] - piece[0]).dot(way) / way.length();
    } else {
      const vector3 normal = doubled_area(position);
      return doubled_area(piece).dot(normal) / normal.length();
    }
  }
};

template <class Set>
void make_wholes(Set& set, std::vector<whole<corners<Set>>>& wholes, std::mt19937& random) {
  constexpr unsigned width = corners<Set>;
  fill(set, wholes.size(), random);
  auto positions = ::osg::GeoPositions3f::dcast(set.geometry->getPositions())->values();
  auto colors = ::osg::GeoColors3f::dcast(set.geometry->getColors())->values();
  auto numbers = ::osg::GeoColors3f::dcast(set.geometry->getSecondaryColors())->values();
  for (std::size_t i = 0; i < positions.size(); ++i) {
    for (unsigned axis = 0; axis < 3; ++axis) positions[i][axis] *= 4;
    numbers[i][0] = static_cast<float>(i / width);
    wholes[i / width].position[i % width] = wide(positions[i].getValues());
    wholes[i / width].color[i % width] = wide(colors[i].getValues());
  }
  set.setup();
}

template <class Set>
class Cuts : public testing::Test {};
using CuttableSets = testing::Types<osg_geoset, osg_line_geoset>;
TYPED_TEST_SUITE(Cuts, CuttableSets);

// Weights are computed in single precision from products of differences: the thinner the piece, the
// fewer of their digits are right. Of pieces of random triangles few are thin.
TYPED_TEST(Cuts, LeaveSurfaceAndValuesInPlace) {
  constexpr unsigned width = corners<TypeParam>;
  std::mt19937 random(11);
  TypeParam set;
  std::vector<whole<width>> wholes(300);
  make_wholes(set, wholes, random);
  kd_tree tree;
  said lines;
  compile_tree(set, tree, {.leaf_size = 20, .max_depth = 6, .strategy = 1},
               kd_strategy_ObjMedian{});
  lines.end();
  EXPECT_GT(set.num_objects, wholes.size() * 2);
  for (const unsigned level : {0u, 1u, 2u, 3u}) {
    std::vector<double> covered(wholes.size());
    std::vector<double> errors;
    std::size_t pieces = 0;
    for (const GeometryPtr& core :
         cores_below(osg::Splitmodel(tree, set, 0, 20, ::osg::NullFC, level, false)))
      for_each_element<width>(*core, [&](const auto& it, unsigned) {
        const auto number = static_cast<std::size_t>(std::lround(it.getSecondaryColor(0)[0]));
        ASSERT_LT(number, wholes.size());
        const whole<width>& of = wholes[number];
        std::array<vector3, width> corner;
        for (unsigned k = 0; k < width; ++k) {
          corner[k] = wide(it.getPosition(k).getValues());
          const auto weights = of.weights(corner[k]);
          for (unsigned c = 0; c < 3; ++c) {
            double exact = 0;
            for (unsigned j = 0; j < width; ++j) exact += weights[j] * of.color[j][c];
            errors.push_back(std::abs(exact - it.getColor(k)[c]));
          }
          for (const double weight : weights) ASSERT_TRUE(weight > -1e-3 && weight < 1 + 1e-3);
        }
        ASSERT_GT(of.extent(corner), 0) << "turned over";
        covered[number] += of.extent(corner);
        ++pieces;
      });
    EXPECT_EQ(pieces, set.num_objects);
    std::sort(errors.begin(), errors.end());
    EXPECT_LT(errors.back(), 1e-2);
    EXPECT_LT(errors[errors.size() * 99 / 100], 1e-5);
    for (std::size_t i = 0; i < wholes.size(); ++i)
      EXPECT_NEAR(covered[i], wholes[i].extent(wholes[i].position), 1e-4 * covered[i]) << i;
  }
}

}  // namespace
}  // namespace morlu::tests
