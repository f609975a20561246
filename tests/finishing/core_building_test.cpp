// Cores out of sets: what a core shows is compared with elements picked one by one, what the walk
// builds with the plain recursion over the tree.

#include "finishing/core_building.h"

#include <gtest/gtest.h>
#include <osg/cores.h>
#include <osg/material.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <numeric>

#include "finishing/plain_cores.h"
#include "geoset/random_sets.h"
#include "support/failing_memory.h"
#include "support/said.h"
#include "support/same_surface.h"
#include "support/scene_parts.h"

namespace morlu::tests {
namespace {

using ::osg::GeometryPtr;
using ::osg::NodePtr;
using test::said;

template <class Set>
class Cores : public testing::Test {};
using AllSets = testing::Types<osg_geoset, osg_line_geoset, osg_point_geoset>;
TYPED_TEST_SUITE(Cores, AllSets);

unsigned number_of(const std::string& name) {
  EXPECT_EQ(name.substr(0, 3), "MG_");
  return static_cast<unsigned>(std::stoul(name.substr(3)));
}

/// Some attributes are gone, values are few so that corners coincide, some are not finite.
template <class Set>
void fill_oddly(Set& set, std::size_t elements, std::mt19937& random) {
  fill(set, elements, random);
  for (unsigned a = 1; a < ::osg::kAttributeCount; ++a) {
    auto* property = set.geometry->getAttribute(::osg::attributeAt(a));
    if (!property) continue;
    auto* values = reinterpret_cast<float*>(property->editData());
    for (std::size_t i = 0; i < property->size() * property->getDimension(); ++i)
      values[i] = random() % 50 == 0 ? NAN : std::round(values[i]);
    if (random() % 3 == 0) set.geometry->setAttribute(::osg::attributeAt(a), ::osg::NullFC);
  }
  for (auto& p : ::osg::GeoPositions3f::dcast(set.geometry->getPositions())->values())
    for (unsigned axis = 0; axis < 3; ++axis) p[axis] = std::round(4 * p[axis]);
  const auto material = ::osg::ChunkMaterial::create();
  set.geometry->setMaterial(material);
  set.setup();
}

/// Elements at random, twice or not at all; about one in ten the set doesn't have.
std::vector<std::uint64_t> random_list(std::uint64_t elements, std::mt19937& random) {
  std::vector<std::uint64_t> list(1 + random() % 60);
  for (auto& entry : list)
    entry = random() % 10 == 0 ? elements + random() % 3 * 5'000'000'000 : random() % elements;
  return list;
}

/// What is said of entries that the set doesn't have.
template <class Set>
std::string refusals(const kd_tree& tree, const Set& set, unsigned first, unsigned count) {
  std::string text;
  for (unsigned i = first; i < first + count; ++i)
    if (tree.indices[i] >= set.num_objects)
      text += "Index out of bounce.( Splitmodel )\nI: " + std::to_string(i) +
              " index: " + std::to_string(tree.indices[i]) +
              " num_objects: " + std::to_string(set.num_objects) + "\n";
  return text;
}

/// Each attribute of the set in the one class of its own, as long as it has to be and not the set's
/// object; nothing else.
template <class Set>
void expect_layout(const ::osg::Geometry& core, const Set& set, unsigned level,
                   std::size_t elements) {
  using ::osg::Attribute;
  const std::size_t corners = elements * tests::corners<Set>;
  const bool is_indexed = level >= 1 && level <= 3 && elements > 0;
  std::size_t columns = 0;
  for (unsigned a = 0; a < ::osg::kAttributeCount; ++a) {
    const Attribute attribute = ::osg::attributeAt(a);
    const auto* made = core.getAttribute(attribute);
    const auto* source = set.geometry->getAttribute(attribute);
    ASSERT_EQ(made != nullptr, source != nullptr) << "attribute " << a;
    if (!made) continue;
    ++columns;
    EXPECT_NE(made, source);
    EXPECT_STREQ(made->getType().getCName(), attribute == Attribute::Positions  ? "GeoPositions3f"
                                             : attribute == Attribute::Normals  ? "GeoNormals3f"
                                             : attribute < Attribute::TexCoords ? "GeoColors3f"
                                                                                : "GeoTexCoords2f");
    if (level != 2) {
      EXPECT_EQ(made->size(), is_indexed ? core.getPositions()->size() : corners) << a;
    }
  }
  if (level != 3) {
    EXPECT_EQ(core.getLengths()->getValue(0), corners);
    EXPECT_EQ(core.getLengths()->size() + core.getTypes()->size(), 2u);
  }
  if (elements == 0) return;
  EXPECT_EQ(core.getIndexMapping().size(), level == 2 ? columns : 0);
  ASSERT_EQ(core.getIndices() != ::osg::NullFC, is_indexed);
  if (level == 1 || level == 2) {
    EXPECT_EQ(core.getIndices()->size(), level == 2 ? corners * columns : corners);
  }
}

TYPED_TEST(Cores, ShowTheElementsOfTheRunAtEveryLevel) {
  for (unsigned seed = 0; seed < 150; ++seed) {
    std::mt19937 random(seed);
    TypeParam set;
    fill_oddly(set, 1 + random() % 40, random);
    kd_tree tree = tree_of_one_leaf(random_list(set.num_objects, random));
    const auto first = static_cast<unsigned>(random() % tree.index_count);
    const auto count = static_cast<unsigned>(tree.index_count - first);
    const test::surface expected = plain_surface(tree, set, first, count);
    const std::size_t elements =
        expected.triangles.size() + expected.lines.size() + expected.points.size();
    for (const unsigned level : {0u, 1u, 2u, 3u, 7u}) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " level " + std::to_string(level));
      said lines;
      const NodePtr node = osg::MakeGeoCore(tree, set, first, count, level, false);
      lines.end();
      EXPECT_EQ(lines.err, "");
      EXPECT_EQ(lines.out, refusals(tree, set, first, count) +
                               (level == 7 ? "Splitmodel: OutputLevel 7 not supported\n" : ""));
      const GeometryPtr core = ::osg::Geometry::dcast(node->getCore());
      ASSERT_TRUE(core);
      EXPECT_EQ(name_of(node), name_of(core));
      EXPECT_EQ(core->getMaterial(), set.geometry->getMaterial());
      expect_layout(*core, set, level, elements);
      if (level == 3)
        expect_same_triangles(expected, test::surface_of(core));
      else
        expect_same_surface(expected, test::surface_of(core));
      if (this->HasFailure()) return;
    }
  }
}

TYPED_TEST(Cores, WidthsOfLengthsAndIndicesFollowTheirThresholds) {
  constexpr unsigned width = corners<TypeParam>;
  std::mt19937 random(1);
  TypeParam set;
  const unsigned most = 65535 / width + 1;
  set.geometry->setPositions(random_property<::osg::GeoPositions3f>(most * width, random));
  set.vertex_count = most * width;
  set.setup();
  std::vector<std::uint64_t> list(most);
  std::iota(list.begin(), list.end(), 0u);
  set.geometry->setNormals(::osg::NullFC);  // positions alone: one index a corner at every level
  const kd_tree tree = tree_of_one_leaf(list);
  const auto built = [&](unsigned count, unsigned level) {
    return ::osg::Geometry::dcast(osg::MakeGeoCore(tree, set, 0, count, level, false)->getCore());
  };
  EXPECT_STREQ(built(21844, 0)->getLengths()->getType().getCName(), "GeoPLengthsUI16");
  EXPECT_STREQ(built(21845, 0)->getLengths()->getType().getCName(), "GeoPLengthsUI32");
  const unsigned last_narrow = 65534 / width;
  for (const unsigned level : {1u, 2u}) {
    EXPECT_STREQ(built(last_narrow, level)->getIndices()->getType().getCName(), "GeoIndicesUI16");
    EXPECT_STREQ(built(last_narrow + 1, level)->getIndices()->getType().getCName(),
                 "GeoIndicesUI32");
    EXPECT_EQ(built(last_narrow, level)->getLengths()->getValue(0), last_narrow * width);
  }
}

// Two triangles share an edge and are folded by `angle`; the set's own normals are wrong.
//    c
//   /|\   folded along bc
//  a | d
//   \|/
//    b
TEST(CoreNormals, AreMadeAnewWithACreaseOfThirtyDegrees) {
  for (const double degrees : {29, 31}) {
    const double angle = degrees * M_PI / 180;
    const ::osg::Pnt3f a(-1, 0, 0), b(0, -1, 0), c(0, 1, 0),
        d(static_cast<float>(std::cos(angle)), 0, static_cast<float>(std::sin(angle)));
    osg_geoset set;
    std::mt19937 random(1);
    fill(set, 2, random);
    for (unsigned i = 0; const auto& p : {a, b, c, c, b, d})
      set.geometry->getPositions()->setValue(p, i++);
    set.setup();
    const kd_tree tree = tree_of_one_leaf({0, 1});
    for (const unsigned level : {0u, 1u, 2u, 3u}) {
      const auto core =
          ::osg::Geometry::dcast(osg::MakeGeoCore(tree, set, 0, 2, level, true)->getCore());
      const double half = degrees > 30 ? 0 : angle / 2;
      const ::osg::Vec3f flat(0, 0, 1);
      const ::osg::Vec3f shared(static_cast<float>(-std::sin(half)), 0,
                                static_cast<float>(std::cos(half)));
      for (auto it = core->beginTriangles(); !it.isAtEnd(); ++it)
        for (unsigned k = 0; k < 3; ++k) {
          const bool starts_shared = it.getPosition(k) == b && it.getPosition((k + 2) % 3) == a;
          if (it.getPosition(k) == a) {
            EXPECT_LT((it.getNormal(k) - flat).length(), 1e-6f);
          }
          if (starts_shared) {
            EXPECT_LT((it.getNormal(k) - shared).length(), 1e-6f) << degrees;
          }
        }
      expect_same_triangles(plain_surface(tree, set, 0, 2, test::normals::left_out),
                            test::surface_of(core, test::normals::left_out));
    }
  }
  osg_line_geoset lines;
  std::mt19937 random(1);
  fill_oddly(lines, 3, random);
  const auto core = osg::MakeGeoCore(tree_of_one_leaf({0, 1, 2}), lines, 0, 3, 0, true)->getCore();
  EXPECT_FALSE(::osg::Geometry::dcast(core)->getNormals()) << "lines have no surface";
}

TYPED_TEST(Cores, FailedOnesAreEmptyAndSayWhy) {
  std::mt19937 random(5);
  TypeParam set;
  fill_oddly(set, 20, random);
  set.geometry->setColors(random_property<::osg::GeoColors3f>(20 * corners<TypeParam>, random));
  const kd_tree tree = tree_of_one_leaf({0, 5, 3, 1, 19});
  const auto next_name = [&] {
    return number_of(name_of(osg::MakeGeoCore(tree, set, 0, 1, 0, false)));
  };
  next_name();  // whatever is made once
  int failures = 0;
  for (const unsigned level : {0u, 1u, 2u, 3u}) {
    for (const unsigned way : {0u, 1u, 2u, 3u}) {
      const bool all_later = way % 2 == 1, calcnormals = way >= 2;
      bool met = true;
      for (int nth = 0; met; ++nth) {
        SCOPED_TRACE("level " + std::to_string(level) + " way " + std::to_string(way) +
                     " request " + std::to_string(nth));
        const unsigned name = next_name();
        NodePtr node;
        const auto done = test::with_failing_memory(
            nth, [&] { node = osg::MakeGeoCore(tree, set, 0, 5, level, calcnormals); }, all_later);
        met = done.met;
        EXPECT_FALSE(done.thrown);
        EXPECT_EQ(done.out, "");
        EXPECT_EQ(done.err, met ? "Bad_Alloc caught in MakeGeoCore: std::bad_alloc\n" : "");
        failures += met;
        EXPECT_EQ(!node, met && all_later);
        if (!node || !met) continue;
        EXPECT_EQ(number_of(name_of(node)), name + 1) << "one name a core";
        const auto core = ::osg::Geometry::dcast(node->getCore());
        EXPECT_EQ(name_of(node), name_of(core));
        EXPECT_EQ(core->getTypes()->getValue(0), 4u);
        EXPECT_TRUE(core->getLengths()->empty() && core->getPositions()->empty());
        EXPECT_STREQ(core->getLengths()->getType().getCName(), "GeoPLengthsUI32");
        EXPECT_FALSE(core->getNormals() || core->getColors() || core->getIndices());
      }
    }
  }
  EXPECT_GT(failures, 100);
  const unsigned name = next_name();
  EXPECT_FALSE(osg::MakeGeoCore(tree, set, 1, 0, 0, false));
  EXPECT_EQ(next_name(), name + 1) << "nothing needs no name";
  set.clear();
  set.geometry = ::osg::NullFC;  // as a clear without memory leaves it
  said lines;
  EXPECT_TRUE(osg::MakeGeoCore(tree, set, 0, 1, 0, false)) << "without elements";
  lines.end();
}

// --- The walk ------------------------------------------------------------------------------------

/// A point set whose element i stands at x = i.
void fill_with_numbers(osg_point_geoset& set, std::size_t elements) {
  set.geometry->setPositions(::osg::GeoPositions3f::create());
  for (std::size_t i = 0; i < elements; ++i) set.geometry->getPositions()->push_back({i, 0, 0});
  set.vertex_count = elements;
  set.setup();
}

/// Groups in brackets, cores as the numbers of their elements.
std::string text_of(const NodePtr& node) {
  if (!node) return "null";
  std::string text;
  if (const auto core = ::osg::Geometry::dcast(node->getCore())) {
    for (unsigned i = 0; i < core->getPositions()->size(); ++i)
      text += std::to_string(static_cast<int>(core->getPositions()->getValue(i)[0])) + " ";
    return text + ";";
  }
  for (const auto& child : node->getChildren()) text += text_of(child);
  return "[" + text + "]";
}

void expect_names_in_order(const NodePtr& node, unsigned& next) {
  if (!node) return;
  if (::osg::Geometry::dcast(node->getCore())) {
    EXPECT_EQ(number_of(name_of(node)), next++);
  }
  for (const auto& child : node->getChildren()) expect_names_in_order(child, next);
}

TEST(CoreWalk, EqualsThePlainRecursion) {
  osg_point_geoset set;
  fill_with_numbers(set, 500);
  const kd_tree one = tree_of_one_leaf({0});
  for (unsigned seed = 0; seed < 400; ++seed) {
    std::mt19937 random(seed);
    const kd_tree tree = random_tree(random, 500, random() % 9);
    const auto leaves = static_cast<int>(tree.stats.leaves);
    for (int run = 0; run < 12; ++run) {
      const auto index = run < 8 ? 0u : static_cast<unsigned>(random() % (tree.stats.nodes + 1));
      const auto limit = static_cast<unsigned>(random() % 12);
      const int parts = static_cast<int>(random() % static_cast<unsigned>(leaves + 4)) - 1;
      SCOPED_TRACE("seed " + std::to_string(seed) + " node " + std::to_string(index) + " limit " +
                   std::to_string(limit) + " parts " + std::to_string(parts));
      unsigned next = number_of(name_of(osg::MakeGeoCore(one, set, 0, 1, 0, false))) + 1;
      const NodePtr by_size = osg::Splitmodel(tree, set, index, limit, ::osg::NullFC, 0, false);
      const NodePtr by_parts =
          osg::SplitmodelParts(tree, set, index, parts, ::osg::NullFC, 0, false);
      expect_names_in_order(by_size, next);
      expect_names_in_order(by_parts, next);
      EXPECT_EQ(text_of(by_size), plain_split(tree, index, 0, limit));
      EXPECT_EQ(text_of(by_parts),
                plain_split(tree, index, parts < 0 || parts > leaves ? 0 : parts, 0));
      EXPECT_EQ(text_of(osg::splitmodelNode(tree, set, index, parts, limit, 0, false)),
                plain_split(tree, index, std::max(parts, 0), limit));
      if (HasFailure()) return;
    }
  }
}

TEST(CoreWalk, NeedsNoStackForDeepTrees) {
  constexpr unsigned depth = 60000;
  osg_point_geoset set;
  fill_with_numbers(set, 1);
  for (const bool to_left : {false, true}) {
    const NodePtr root =
        osg::Splitmodel(chain_tree(depth, to_left), set, 0, 0, ::osg::NullFC, 0, false);
    unsigned groups = 0;
    for (NodePtr at = root; at->getNChildren() == 2; at = at->getChild(to_left ? 0 : 1)) ++groups;
    EXPECT_EQ(groups, depth);
  }
}

TEST(CoreWalk, TheRootTakesTheGroupsMaterial) {
  osg_point_geoset set;
  fill_with_numbers(set, 10);
  const auto material_group = ::osg::MaterialGroup::create();
  const kd_tree two = tree_of("(1|2)"), leaf = tree_of_one_leaf({3});
  const NodePtr group = node_with(material_group);
  const NodePtr over_two = osg::Splitmodel(two, set, 0, 1, group, 0, false);
  EXPECT_EQ(over_two->getCore(), material_group);
  EXPECT_EQ(text_of(over_two), "[1 ;2 ;]");
  const NodePtr over_leaf = osg::SplitmodelParts(leaf, set, 0, 1, group, 0, false);
  EXPECT_EQ(over_leaf->getCore(), material_group);
  EXPECT_EQ(text_of(over_leaf), "[3 ;]");
  EXPECT_FALSE(osg::Splitmodel(tree_of_one_leaf({}), set, 0, 1, group, 0, false));
  EXPECT_EQ(text_of(osg::splitmodelPair(tree_of("((5 6|1)|(|2))"), set, 4, 0, false)), "[2 ;]")
      << "one side is empty";
  for (const ::osg::NodeCorePtr& other :
       {::osg::NodeCorePtr(::osg::Group::create()), ::osg::NodeCorePtr(::osg::NullFC)}) {
    const NodePtr plain = osg::Splitmodel(two, set, 0, 1, node_with(other), 0, false);
    EXPECT_NE(plain->getCore(), other);
    EXPECT_EQ(text_of(plain), "[1 ;2 ;]");
  }
}

TEST(CoreWalk, GoesOnWhereACoreFails) {
  osg_point_geoset set;
  fill_with_numbers(set, 10);
  const kd_tree tree = tree_of("((1|2)|(3|4))");
  int holes = 0;
  bool met = true;
  for (int nth = 0; met; ++nth) {
    NodePtr root;
    const auto done = test::with_failing_memory(
        nth, [&] { root = osg::Splitmodel(tree, set, 0, 0, ::osg::NullFC, 0, false); });
    met = done.met;
    if (done.thrown || !met) continue;
    ++holes;
    EXPECT_EQ(done.err, "Bad_Alloc caught in MakeGeoCore: std::bad_alloc\n");
    std::string text = text_of(root);
    const auto hole = std::find(text.begin(), text.end(), ';');
    EXPECT_EQ(std::count(text.begin(), text.end(), ';'), 4) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), ' '), 3) << text;
    EXPECT_NE(hole, text.end());
  }
  EXPECT_GT(holes, 40);
}

TEST(PartsForLeft, AreTheShareInSinglePrecision) {
  struct row {
    unsigned left, right;
    int parts, expected;
  };
  for (const row& of :
       {row{3, 1, 4, 3}, row{99, 1, 2, 1}, row{1, 99, 2, 1}, row{0, 5, 3, 0}, row{5, 0, 3, 3},
        row{0, 0, 3, 0}, row{1, 1, 3, 2}, row{1, 1, 2, 1}, row{2, 3, 5, 2},
        row{UINT_MAX, 1, INT_MAX, INT_MAX - 1}, row{1, UINT_MAX, INT_MAX, 1}})
    EXPECT_EQ(osg::partsForLeft(of.left, of.right, of.parts), of.expected)
        << of.left << " " << of.right << " " << of.parts;
  std::mt19937 random(1);
  for (int i = 0; i < 100000; ++i) {
    const unsigned left = 1 + random() % 1000000, right = 1 + random() % 1000000;
    const int parts = 2 + static_cast<int>(random() % 5000);
    const int share = osg::partsForLeft(left, right, parts);
    const double exact = static_cast<double>(left) * parts / (left + right);
    ASSERT_TRUE(share >= 1 && share < parts);
    ASSERT_LE(std::fabs(share - std::clamp(exact, 1.0, parts - 1.0)), 0.5 + 1e-3);
  }
}

}  // namespace
}  // namespace morlu::tests
