// Out of the scene graph into sets, beside a plain walk with the iterators.

#include "geoset/extract.h"

#include <gtest/gtest.h>

#include <cmath>

#include <osg/cores.h>
#include <osg/state_chunks.h>

#include "geoset/plain_extract.h"
#include "optimiser/id_map_handler.h"
#include "support/failing_memory.h"
#include "support/random_geometry.h"
#include "support/run_threads.h"
#include "support/said.h"

namespace morlu::tests {
namespace {

using ::osg::GeometryPtr;
using ::osg::NodePtr;
using test::said;

struct how {
  bool to_world = false, material_group = false, ids = false, set_up = false, drop = false;
};

template <class Set>
int extract(const NodePtr& node, Set& set, how flags = {}) {
  const auto [world, group, ids, up, drop] = flags;
  if constexpr (corners<Set> == 3)
    return osg::extract(node, set, world, group, ids, up, drop);
  else if constexpr (corners<Set> == 2)
    return osg::extractLines(node, set, world, group, ids, up);
  else
    return osg::extractPoints(node, set, world, group, ids, up);
}

NodePtr node_of(const ::osg::NodeCorePtr& core, const char* name = nullptr) {
  const auto node = node_with(core);
  if (name) ::osg::setName(node, name);
  return node;
}

/// One primitive over points (0, 0, 0), (1, 0, 0), (2, 1, 0), (3, 4, 0), ...: no three in a line.
GeometryPtr primitive(unsigned type, unsigned length) {
  std::vector<::osg::Pnt3f> corners;
  for (unsigned i = 0; i < length; ++i) corners.push_back({i, i > 0 ? (i - 1) * (i - 1) : 0u, 0});
  return one_primitive(type, corners);
}
/// That a set of this kind takes whole.
template <class Set>
GeometryPtr primitive_of(unsigned elements) {
  return primitive(corners<Set> == 3 ? 4 : corners<Set> - 1, elements * corners<Set>);
}

bool same(const std::vector<float>& a, const std::vector<float>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](float x, float y) { return x == y || (std::isnan(x) && std::isnan(y)); });
}

/// Not what sets are filled from.
struct derived_geometry
    : ::osg::ContainerClass<"DerivedGeometry", derived_geometry, ::osg::Geometry> {
  derived_geometry() = default;
  derived_geometry(const derived_geometry&) = default;
};
GeometryPtr derived_from(const GeometryPtr& geometry) {
  const GeometryPtr derived = derived_geometry::create();
  derived->setTypes(geometry->getTypes());
  derived->setLengths(geometry->getLengths());
  derived->setPositions(geometry->getPositions());
  return derived;
}

/// Before the lines of extraction into such a set.
template <class Set>
const std::string prefix = corners<Set> == 3   ? "Morlu_osg_geoset_tools::Extract: "
                           : corners<Set> == 2 ? "Morlu_osg_line_geoset_tools::Extract: "
                                               : "Morlu_osg_point_geoset_tools::Extract: ";

/// What fills have written so far.
template <class Set>
std::vector<float> filled(Set& set) {
  set.num_objects = set.vertex_count / corners<Set>;
  auto all = content(set);
  set.num_objects = 0;
  return all;
}

template <class Set>
class Extraction : public testing::Test {
 protected:
  void SetUp() override { osg::getIdMapHandler().reset(); }
};
using AllSets = testing::Types<osg_geoset, osg_line_geoset, osg_point_geoset>;
TYPED_TEST_SUITE(Extraction, AllSets);

// --- Beside the plain walk -----------------------------------------------------------------------

/// Random geometry with now and then a position that no triangle may have.
GeometryPtr wild_geometry(std::mt19937& random) {
  const auto geometry = test::random_geometry(random, static_cast<test::layout>(random() % 3));
  const float wild[] = {NAN, INFINITY, -3e38f, 1e13f, 1e-7f};
  auto& positions = *::osg::GeoPositions3f::dcast(geometry->getPositions());
  if (random() % 3 == 0 && !positions.empty())
    positions.values()[random() % positions.size()][random() % 3] = wild[random() % 5];
  return geometry;
}

::osg::Matrix wild_matrix(std::mt19937& random) {
  const auto share = [&] { return static_cast<float>(random() % 1000) / 250 - 2; };
  if (random() % 10 == 0) return ::osg::Matrix::scale(1, 0, 1);  // singular
  return ::osg::Matrix::translation(share(), share(), share()) *
         ::osg::Matrix::rotation({1, share(), 0}, share()) *
         ::osg::Matrix::scale(share() + 2.5f, 1, random() % 2 ? 1 : -2);
}

TYPED_TEST(Extraction, GivesWhatAPlainWalkOverAllSourcesGives) {
  std::size_t elements = 0, remade = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    osg::getIdMapHandler().reset();
    TypeParam set;
    plain_set<TypeParam> plain;
    if (random() % 2) set.setVertexCapacity(random() % 200);
    for (unsigned left = random() % 4 + 1; left > 0; --left) {
      typename plain_set<TypeParam>::source from{wild_geometry(random)};
      const NodePtr node = node_of(from.geometry);
      from.matrix = wild_matrix(random);
      const NodePtr root = node_with(transform(from.matrix), {node});
      from.to_world = random() % 2;
      from.want_ids = random() % 3 == 0;
      from.named = random() % 3 > 0;
      from.id = static_cast<float>(osg::getIdMapHandler().names().size());
      if (from.named)
        ::osg::setName(random() % 2 ? ::osg::AttachmentContainerPtr(node)
                                    : ::osg::AttachmentContainerPtr(from.geometry),
                       "part " + std::to_string(left));

      said lines;
      const int refused_before = plain.refused;
      const int count = corners<TypeParam> == 3   ? osg::countPrimitiveTriangles(from.geometry)
                        : corners<TypeParam> == 2 ? osg::countPrimitiveLines(from.geometry)
                                                  : osg::countPrimitivePoints(from.geometry);
      const bool takes = count > 0 && !from.geometry->getPositions()->empty();
      if (takes) plain.add(from);
      EXPECT_EQ(extract(node, set, {from.to_world, false, from.want_ids}),
                plain.refused - refused_before);
      lines.end();
      EXPECT_EQ(lines.err, "");
      ASSERT_EQ(set.vertex_count, plain.count);
      if (!takes) continue;
      EXPECT_GE(set.vertex_capacity, set.vertex_count);
      EXPECT_EQ(set.geometry->getTypes()->size(), 1u);
      EXPECT_EQ(set.geometry->getTypes()->getValue(0),
                corners<TypeParam> == 3 ? 4u : corners<TypeParam> - 1);
      EXPECT_EQ(set.geometry->getLengths()->getValue(0), plain.count);
      for (unsigned a = 1; a < 8; ++a)
        if (const auto* property = from.geometry->getAttribute(::osg::attributeAt(a))) {
          EXPECT_FALSE(property->empty()) << "empty attributes are taken away";
        }
    }
    elements += plain.count / corners<TypeParam>;
    remade += plain.rows.count(Attribute::Normals);
    if (plain.rows.empty()) continue;
    if (seed % 5 == 0) {
      set.geometry->setNormals(::osg::NullFC);
      plain.rows.erase(Attribute::Normals);
    }
    set.setup();
    ASSERT_EQ(set.num_objects, plain.count / corners<TypeParam>);
    const auto once = content(set);
    set.setup();
    ASSERT_TRUE(same(content(set), once)) << "all normals were made";
    if (corners<TypeParam> == 3 && !plain.rows.count(Attribute::Normals))
      set.geometry->setNormals(::osg::NullFC);  // those that set-up makes for a set without
    ASSERT_TRUE(same(content(set), plain.content()));
  }
  EXPECT_GT(elements, 3000u);
  EXPECT_GT(remade, 300u);
}

// --- Sizes ---------------------------------------------------------------------------------------

TEST(Counts, GoByTypesAndLengthsAlone) {
  const struct {
    unsigned type, length;
    int triangles, lines, points;
  } promises[] = {{0, 5, 0, 0, 5}, {1, 5, 0, 2, 0}, {2, 4, 0, 4, 0},  {3, 4, 0, 3, 0},
                  {3, 0, 0, 0, 0}, {4, 8, 2, 0, 0}, {5, 5, 3, 0, 0},  {5, 1, 0, 0, 0},
                  {6, 2, 0, 0, 0}, {6, 4, 2, 0, 0}, {7, 6, 3, 0, 0},  {8, 6, 0, 0, 0},
                  {9, 5, 3, 0, 0}, {9, 0, 0, 0, 0}, {77, 9, 0, 0, 0}, {0, ~0u, 0, 0, 0x7fffffff}};
  for (const auto& [type, length, triangles, lines, points] : promises) {
    SCOPED_TRACE(testing::Message() << "type " << type << ", length " << length);
    const auto geometry = primitive(type, 0);
    geometry->getLengths()->setValue(length, 0);
    geometry->getTypes()->push_back(4);  // without a length
    EXPECT_EQ(osg::countPrimitiveTriangles(geometry), triangles);
    EXPECT_EQ(osg::countPrimitiveLines(geometry), lines);
    EXPECT_EQ(osg::countPrimitivePoints(geometry), points);
  }
  EXPECT_EQ(osg::countPrimitiveTriangles(::osg::NullFC), 0);
  EXPECT_EQ(osg::countPrimitiveTriangles(::osg::Geometry::create()), 0);
}

TEST(Rooms, AreMadeForQuadStripsWhichPromiseNothing) {
  const auto geometry = primitive(::osg::kQuadStrip, 50);
  osg_geoset set;
  EXPECT_EQ(extract(node_of(geometry), set), 0);
  EXPECT_EQ(set.vertex_count, 0u) << "alone they are nothing";
  geometry->getTypes()->push_back(::osg::kTriangles);
  geometry->getLengths()->setValue(47, 0);
  geometry->getLengths()->push_back(3);
  EXPECT_EQ(extract(node_of(geometry), set), 0);
  EXPECT_EQ(set.vertex_count, 3 * (44 + 1u));
}

TYPED_TEST(Extraction, GrowsSetsThatWereSetUpOrCleared) {
  const NodePtr node = node_of(primitive_of<TypeParam>(7));
  TypeParam set;
  set.setVertexCapacity(100000);
  extract(node, set, {.set_up = true});
  extract(node, set);
  EXPECT_EQ(set.vertex_count, 14 * corners<TypeParam>);
  EXPECT_EQ(set.vertex_capacity, 100000u);
  set.setup();
  const auto twice = content(set);
  EXPECT_EQ(twice.size() % 2, 0u);

  set.clear();
  extract(node, set);
  EXPECT_EQ(set.vertex_capacity, 500000u);
  EXPECT_EQ(set.geometry->getPositions()->size(), 500000u) << "room at once";
  set.clear();
  extract(node_of(primitive_of<TypeParam>(400000)), set, {.set_up = true});
  EXPECT_EQ(set.num_objects,
            corners<TypeParam> == 1 ? 400000u : set.vertex_count / corners<TypeParam>);
  EXPECT_EQ(set.vertex_capacity, corners<TypeParam> == 1 ? 500000u : 400000 * corners<TypeParam>);
}

TYPED_TEST(Extraction, StopsWhereASetThatCannotGrowIsFull) {
  TypeParam set;
  set.setVertexCapacity(10 * corners<TypeParam>);
  extract(node_of(primitive_of<TypeParam>(10)), set);
  const auto entries = set.geometry->getPositions()->size();
  set.not_enlargeable = true;
  said lines;
  for (int i = 0; i < 3; ++i) extract(node_of(primitive_of<TypeParam>(8)), set);
  lines.end();
  const std::string line = prefix<TypeParam> + "No room for all vertices.\n";
  EXPECT_EQ(lines.out, "");
  EXPECT_EQ(set.vertex_count, entries / corners<TypeParam> * corners<TypeParam>)
      << "what fits stays";
  EXPECT_EQ(lines.err, entries == 10 * corners<TypeParam> ? line + line + line : line + line);
  EXPECT_EQ(set.geometry->getLengths()->getValue(0), set.vertex_count);
}

TYPED_TEST(Extraction, SaysWhatItCannotTake) {
  const auto output = [&](const NodePtr& node, bool without_geometry = false) {
    TypeParam set;
    if (without_geometry) set.geometry = ::osg::NullFC;
    said lines;
    EXPECT_EQ(extract(node, set, {.set_up = true}), 0);
    lines.end();
    EXPECT_EQ(lines.err, "");
    EXPECT_EQ(set.vertex_count + set.vertex_capacity, 0u);
    return lines.out;
  };
  const auto good = primitive_of<TypeParam>(2);
  EXPECT_EQ(output(::osg::NullFC), prefix<TypeParam> + "No Node\n");
  EXPECT_EQ(output(::osg::Node::create()), prefix<TypeParam> + "No Core\n");
  const NodePtr group = node_with(::osg::Group::create(), {node_of(good)});
  for (const NodePtr& other : {group, node_of(derived_from(primitive_of<TypeParam>(1)))})
    EXPECT_EQ(output(other), prefix<TypeParam> + "No GeometryCore\n");
  EXPECT_EQ(output(node_of(good), true),
            "Morlu_osg_geoset_tools::Extract: No Geometry in geoset!\n");

  EXPECT_EQ(output(node_of(primitive(77, 9))), "");
  EXPECT_EQ(output(node_of(::osg::Geometry::create())), "");
  for (const auto& take_away : std::initializer_list<void (*)(const GeometryPtr&)>{
           [](const GeometryPtr& g) { g->getTypes()->clear(); },
           [](const GeometryPtr& g) { g->getLengths()->clear(); },
           [](const GeometryPtr& g) { g->getPositions()->clear(); },
           [](const GeometryPtr& g) { g->setPositions(::osg::NullFC); }}) {
    const auto geometry = primitive_of<TypeParam>(2);
    take_away(geometry);
    EXPECT_EQ(output(node_of(geometry)), "");
  }
}

// --- Materials, images, ids ----------------------------------------------------------------------

TYPED_TEST(Extraction, TakesTheFirstMaterialThereIs) {
  const ::osg::MaterialPtr topmost = ::osg::SimpleMaterial::create();
  const auto own = primitive_of<TypeParam>(1);
  own->setMaterial(::osg::SimpleMaterial::create());
  const NodePtr plain = node_of(primitive_of<TypeParam>(1));
  const NodePtr top =
      below_material(topmost, {below_material(::osg::SimpleMaterial::create(), {plain})});

  TypeParam set;
  extract(plain, set);
  EXPECT_FALSE(set.geometry->getMaterial());
  extract(plain, set, {.material_group = true});
  EXPECT_EQ(set.geometry->getMaterial(), topmost);
  extract(node_of(own), set);
  EXPECT_EQ(set.geometry->getMaterial(), topmost) << "it keeps what it has";
  set.clear();
  extract(node_of(own), set, {.material_group = true});
  extract(plain, set, {.material_group = true});
  EXPECT_EQ(set.geometry->getMaterial(), own->getMaterial());
}

TEST(UnusedCoordinates, GoAwayUnlessAnotherNodeShowsAnImageOnThem) {
  const auto geometry = [] {
    const auto made = primitive_of<osg_geoset>(2);
    made->setTexCoords2(
        random_property<::osg::GeoTexCoords2f>(6, *std::make_unique<std::mt19937>()));
    return made;
  };
  const auto has_coords = [](const NodePtr& node, bool drop) {
    osg_geoset set;
    extract(node, set, {.drop = drop});
    return !set.geometry->getTexCoords2().isNull();
  };
  const auto shared = geometry();
  const NodePtr bare = node_of(shared), shown = node_of(shared);
  const NodePtr top = below_material(simple_textured(), {shown});
  EXPECT_TRUE(has_coords(bare, false));
  EXPECT_FALSE(has_coords(bare, true));
  EXPECT_TRUE(has_coords(shown, true)) << "the other node still has them";
  shared->setMaterial(::osg::SimpleMaterial::create());
  EXPECT_FALSE(has_coords(bare, true));
  EXPECT_FALSE(shared->getTexCoords2()) << "now both nodes agree";

  const auto of_one = geometry();
  EXPECT_FALSE(has_coords(node_of(of_one), true));
  EXPECT_FALSE(of_one->getTexCoords2());
}

TYPED_TEST(Extraction, GivesIdsByNamesAndKeepsThoseThatAreThere) {
  const auto ids = [](const TypeParam& set) {
    std::vector<float> all;
    for (unsigned i = 0; i < set.vertex_count; i += corners<TypeParam>)
      all.push_back(set.geometry->getTexCoords7()->getValue(i)[0]);
    return all;
  };
  const auto geometry = [](const char* name = nullptr) {
    const auto made = primitive_of<TypeParam>(1);
    if (name) ::osg::setName(made, name);
    return made;
  };
  auto& handler = osg::getIdMapHandler();
  const auto material = ::osg::SimpleMaterial::create();
  const auto with_material = geometry();
  with_material->setMaterial(material);
  const auto with_ids = geometry("own ids");
  with_ids->setTexCoords7(property_of<::osg::GeoTexCoords2f>({{42, 7}}));

  TypeParam set;
  extract(node_of(geometry(), "ids come later"), set);
  said lines;
  extract(node_of(geometry(), ""), set, {.ids = true});
  EXPECT_FALSE(set.geometry->getTexCoords7()) << "nothing had an id yet";
  extract(node_of(with_material, "a"), set, {.ids = true});
  extract(node_of(geometry("b"), ""), set);
  extract(node_of(geometry("b"), "a"), set);
  extract(node_of(geometry()), set);
  extract(node_of(with_ids), set);
  lines.end();
  EXPECT_EQ(ids(set), (std::vector<float>{-1, -1, 0, 1, 0, -1, 42}));
  const std::string line = "Node has no name and will not get an IDmap.\n";
  EXPECT_EQ(lines.out, line + line);
  EXPECT_EQ(handler.names(), (std::vector<std::string>{"a", "b", "own ids"}));
  EXPECT_EQ(handler.appearances().count(material), 1u);
  const auto last = static_cast<float>(corners<TypeParam> - 1);
  EXPECT_EQ(handler.maxs()[0][0], last);

  handler.merged = true;
  extract(node_of(geometry(), "c"), set);
  EXPECT_EQ(ids(set).back(), 0);
  EXPECT_EQ(handler.names().size(), 3u);
}

TYPED_TEST(Extraction, RegistersTheBoxInTheSpaceOfTheSet) {
  const NodePtr node = node_of(primitive_of<TypeParam>(1), "part");
  const NodePtr root = node_with(transform(::osg::Matrix::translation(10, 0, 0)), {node});
  for (const bool to_world : {false, true}) {
    osg::getIdMapHandler().reset();
    TypeParam set;
    extract(node, set, {.to_world = to_world, .ids = true});
    EXPECT_EQ(osg::getIdMapHandler().mins()[0][0], to_world ? 10 : 0);
  }
}

TEST(SourceNames, AreRegisteredAsExtractionDoes) {
  auto& handler = osg::getIdMapHandler();
  std::size_t names = 0;
  for (unsigned seed = 0; seed < 1000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const bool group = random() % 2, ids = random() % 3 == 0;
    std::vector<NodePtr> nodes;
    for (const char* name : {"a", "b", "c", "d"}) {
      GeometryPtr geometry = wild_geometry(random);
      if (random() % 8 == 0) geometry = derived_from(geometry);
      if (random() % 2) geometry->setMaterial(::osg::SimpleMaterial::create());
      nodes.push_back(node_of(geometry, random() % 2 ? name : nullptr));
    }
    const auto registered = [&](const auto& add) {
      handler.reset();
      said lines;
      for (const NodePtr& node : nodes) add(node);
      lines.end();
      names += handler.names().size();
      return std::pair(handler.names(), handler.appearance_names());
    };
    osg_geoset triangles;
    osg_line_geoset lines;
    osg_point_geoset points;
    osg::source_names beforehand(false, group, ids);
    const auto by_extraction = registered([&](const NodePtr& node) {
      extract(node, triangles, {.material_group = group, .ids = ids});
      extract(node, lines, {.material_group = group, .ids = ids});
      extract(node, points, {.material_group = group, .ids = ids});
    });
    ASSERT_EQ(registered([&](const NodePtr& node) { beforehand.add(node); }), by_extraction);
  }
  EXPECT_GT(names, 1000u);
}

TEST(StoredIds, SayOnceWhereFloatsEnd) {
  said lines;
  EXPECT_EQ(osg::stored_id(1u << 24), 16777216.0f);
  osg::stored_id((1u << 24) + 1);
  osg::stored_id((1u << 24) + 3);
  lines.end();
  EXPECT_EQ(lines.err,
            "Morlu_osg_geoset_tools::Extract: IDmap ids above 16777216 are not exact.\n");
}

TEST(Threads, MayTakeOneGeometryIntoDifferentSets) {
  const auto shared = primitive(::osg::kTriangleStrip, 2000);
  std::array<osg_geoset, 4> sets;
  support::run_threads(4, [&](int thread) {
    extract(node_of(shared, "part"), sets[static_cast<unsigned>(thread)],
            {true, true, true, true, true});
  });
  for (const osg_geoset& set : sets) EXPECT_TRUE(same(content(set), content(sets[0])));
  EXPECT_EQ(sets[0].num_objects, 1998u);
}

TYPED_TEST(Extraction, WithoutMemoryLeavesTheEarlierSourcesAsTheyWere) {
  const auto first = primitive_of<TypeParam>(30), second = primitive_of<TypeParam>(40);
  std::mt19937 random(5);
  second->setNormals(random_property<::osg::GeoNormals3f>(40 * corners<TypeParam>, random));
  second->setColors(random_property<::osg::GeoColors3f>(40 * corners<TypeParam>, random));
  const NodePtr node = node_of(second, "a name that takes memory of its own");
  const std::string kind = corners<TypeParam> == 3 ? "osg_geoset" : "morlu::osg_line_geoset";
  const std::string failure =
      "bad_alloc caught in Extract geometry in " + kind + ": std::bad_alloc\n";
  TypeParam unhindered;  // types make themselves known at their first use
  extract(node, unhindered, {.ids = true});
  bool failed = true;
  int aborted = 0, frozen = 0;
  for (int nth = 0; failed; ++nth) {
    SCOPED_TRACE(testing::Message() << "request " << nth);
    osg::getIdMapHandler().reset();
    TypeParam set;
    extract(node_of(first), set);
    const auto before = filled(set);
    const auto count = set.vertex_count;
    const auto lines = test::with_failing_memory(
        nth, [&] { extract(node, set, {.ids = true}); }, true);
    failed = lines.met;
    EXPECT_FALSE(lines.thrown);
    const auto after = filled(set);
    if (lines.err == failure) {
      ++aborted;
      EXPECT_EQ(set.vertex_count, count);
      EXPECT_EQ(set.geometry->getLengths()->getValue(0), count);
      EXPECT_TRUE(same(after, before));
    } else if (set.not_enlargeable) {
      ++frozen;
    } else {
      EXPECT_EQ(lines.out + lines.err, "");
      EXPECT_EQ(set.vertex_count, count + 40 * corners<TypeParam>);
      EXPECT_GT(after.size(), before.size());
    }
    set.setup();
    EXPECT_EQ(set.num_objects, set.vertex_count / corners<TypeParam>);
  }
  EXPECT_GT(aborted + frozen, 5);
}

}  // namespace
}  // namespace morlu::tests
