// What a geometry holds, what bounds it, and which edits make the volumes of its nodes stale.

#include "osg/geometry.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "osg/cores.h"
#include "support/run_threads.h"
#include "support/scene_parts.h"

namespace {

using osg::Attribute;
using osg::Geometry;
using osg::GeometryPtr;
using osg::NodePtr;
using osg::Pnt3f;
using osg::UInt32;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

osg::GeoPositions3fPtr make_positions(const std::vector<Pnt3f>& points) {
  return property_of<osg::GeoPositions3f>(points);
}

osg::GeoIndicesUI32Ptr make_indices(const std::vector<UInt32>& entries) {
  return property_of<osg::GeoIndicesUI32>(entries);
}

/// One point at one place.
GeometryPtr one_point(const osg::GeoPositionsPtr& positions) {
  const auto geometry = one_primitive(osg::kPoints, {{}});
  geometry->setPositions(positions);
  return geometry;
}

// --- Stale volumes -------------------------------------------------------------------------------

/// root (transform) - group - two nodes with one geometry core, indexed by two columns
struct Scene {
  GeometryPtr geometry = one_primitive(osg::kTriangles, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
  osg::TransformPtr transform = osg::Transform::create();
  NodePtr first = node_with(geometry), second = node_with(geometry);
  NodePtr group = node_with(osg::Group::create(), {first, second});
  NodePtr root = node_with(transform, {group});

  Scene() {
    geometry->setIndices(make_indices({0, 9, 1, 9, 2, 9}));
    geometry->setNormals(osg::GeoNormals3f::create());
    geometry->getIndexMapping().push_back(Geometry::MapPosition);
    geometry->getIndexMapping().push_back(Geometry::MapNormal);
  }
};

struct Edit {
  const char* name;
  std::function<void(Scene&)> apply;
};

/// Whether the stored volumes of both geometry nodes and all above are stale after `edit`.
bool makes_stale(const Edit& edit) {
  SCOPED_TRACE(edit.name);
  Scene scene;
  scene.root->updateVolume();
  edit.apply(scene);
  const bool stale = !scene.root->getVolume().isValid();
  EXPECT_EQ(stale, !scene.first->getVolume().isValid());
  EXPECT_EQ(stale, !scene.second->getVolume().isValid());
  EXPECT_EQ(stale, !scene.group->getVolume().isValid());
  // What is stale can be brought up to date, and goes stale again.
  scene.root->updateVolume();
  EXPECT_TRUE(scene.second->getVolume().isValid());
  edit.apply(scene);
  return stale && !scene.root->getVolume().isValid();
}

TEST(GeometryVolume, EditsOfWhatBoundsMakeItStaleAndNoOthers) {
  const Edit edits[] = {
      {"setTypes", [](Scene& s) { s.geometry->setTypes(osg::GeoPTypesUI8::create()); }},
      {"setLengths", [](Scene& s) { s.geometry->setLengths(osg::NullFC); }},
      {"setIndices",
       [](Scene& s) {
         s.geometry->setIndices(make_indices({0, 0}));
       }},
      {"setPositions",
       [](Scene& s) {
         s.geometry->setPositions(make_positions({{1, 1, 1}}));
       }},
      {"types", [](Scene& s) { endEditCP(s.geometry->getTypes()); }},
      {"lengths", [](Scene& s) { endEditCP(s.geometry->getLengths()); }},
      {"indices", [](Scene& s) { endEditCP(s.geometry->getIndices()); }},
      {"positions", [](Scene& s) { endEditCP(s.geometry->getPositions()); }},
      {"mapping", [](Scene& s) {
         auto& mapping = s.geometry->getIndexMapping();
         std::swap(mapping[0], mapping[1]);
         endEditCP(s.geometry);
       }}};
  const Edit others[] = {
      {"setNormals", [](Scene& s) { s.geometry->setNormals(osg::GeoNormals3f::create()); }},
      {"setColors", [](Scene& s) { s.geometry->setColors(osg::GeoColors4f::create()); }},
      {"setTexCoords", [](Scene& s) { s.geometry->setTexCoords3(osg::NullFC); }},
      {"setMaterial", [](Scene& s) { s.geometry->setMaterial(osg::NullFC); }},
      {"normals", [](Scene& s) { endEditCP(s.geometry->getNormals()); }},
      {"geometry", [](Scene& s) { endEditCP(s.geometry); }},
      {"name", [](Scene& s) { setName(s.geometry, "name"); }},
      {"flags of other attributes", [](Scene& s) {
         s.geometry->getIndexMapping()[1] |= Geometry::MapColor;
         endEditCP(s.geometry);
       }}};
  for (const Edit& edit : edits) EXPECT_TRUE(makes_stale(edit)) << edit.name;
  for (const Edit& edit : others) EXPECT_FALSE(makes_stale(edit)) << edit.name;
}

// A property of two geometries; the second one's volume was computed before the first one's.
TEST(GeometryVolume, ASharedPropertyReachesAllItsGeometries) {
  const auto positions = make_positions({{1, 2, 3}});
  const auto a = node_with(one_point(positions));
  const auto b = node_with(one_point(positions));
  for (float x : {4.0f, 5.0f, 6.0f}) {
    b->updateVolume();
    a->updateVolume();
    positions->setValue({x, 2, 3}, 0);
    endEditCP(positions);
    expect_box(a->getVolume(true), {x, 2, 3}, {x, 2, 3});
    expect_box(b->getVolume(true), {x, 2, 3}, {x, 2, 3});
  }
}

// The second node takes the bounds that the first one's volume was made from: an edit that nobody
// was told of doesn't show.
TEST(GeometryVolume, ASharedCoreIsMeasuredOnce) {
  const auto positions = make_positions({{1, 2, 3}});
  const auto core = one_point(positions);
  node_with(core)->updateVolume();
  positions->setValue({4, 4, 4}, 0);
  const auto second = node_with(core);
  expect_box(second->getVolume(true), {1, 2, 3}, {1, 2, 3});
  endEditCP(positions);
  expect_box(second->getVolume(true), {4, 4, 4}, {4, 4, 4});
}

// --- Bounds --------------------------------------------------------------------------------------

TEST(GeometryVolume, OnlyPositionsInUseCount) {
  const auto positions = make_positions({{9, 9, 9}, {1, 1, 1}, {2, 2, 2}, {3, 3, 3}, {-9, -9, -9}});
  const auto geometry = one_primitive(osg::kTriangles, std::vector<Pnt3f>(5));
  geometry->setPositions(positions);
  const auto node = node_with(geometry);
  geometry->setIndices(make_indices({1, 2, 3, 0, 4}));  // two left over
  expect_box(node->getVolume(true), {1, 1, 1}, {3, 3, 3});
  geometry->setIndices(make_indices({1, 2, 77}));  // past the end: the last entry
  expect_box(node->getVolume(true), {-9, -9, -9}, {2, 2, 2});
  geometry->setIndices(osg::NullFC);
  expect_box(node->getVolume(true), {1, 1, 1}, {9, 9, 9});
  geometry->getTypes()->setValue(200, 0);  // no known type
  endEditCP(geometry->getTypes());
  EXPECT_TRUE(node->getVolume(true).isEmpty());
  EXPECT_TRUE(node->getVolume(true).isValid());
}

TEST(GeometryVolume, NaNNeverWidens) {
  const auto positions =
      make_positions({{nan_value, nan_value, nan_value}, {1, 2, 3}, {2, nan_value, 0}});
  const auto geometry = one_primitive(osg::kPoints, std::vector<Pnt3f>(3));
  geometry->setPositions(positions);
  const auto node = node_with(geometry);
  expect_box(node->getVolume(true), {1, 2, 0}, {2, 2, 3});
  geometry->setIndices(make_indices({0, 0, 0}));
  EXPECT_TRUE(node->getVolume(true).isEmpty());
}

TEST(GeometryLinks, PropertyAndGeometryOutliveEachOther) {
  const auto positions = make_positions({{1, 2, 3}});
  auto geometry = one_point(positions);
  auto node = node_with(geometry);
  node->updateVolume();
  node = osg::NullFC;
  geometry = osg::NullFC;
  EXPECT_EQ(positions->getReferenceCount(), 1u);
  endEditCP(positions);  // no geometry is left to be told

  geometry = one_point(make_positions({{1, 2, 3}}));
  node = node_with(geometry);
  node->updateVolume();
  geometry->setPositions(osg::NullFC);  // the last reference
  EXPECT_TRUE(node->getVolume(true).isEmpty());
  geometry->setPositions(geometry->getPositions());
  geometry->setPositions(positions);
  geometry->setPositions(geometry->getPositions());
  EXPECT_EQ(positions->getReferenceCount(), 2u);
  expect_box(node->getVolume(true), {1, 2, 3}, {1, 2, 3});
}

TEST(GeometryLinks, AReplacedPropertyNoLongerBounds) {
  const auto old = make_positions({{1, 2, 3}});
  const auto geometry = one_point(old);
  const auto copy = Geometry::dcast(geometry->shallowCopy());
  const auto node = node_with(geometry);
  const auto copy_node = node_with(copy);
  geometry->setPositions(make_positions({{4, 5, 6}}));
  node->updateVolume();
  copy_node->updateVolume();
  old->setValue({7, 7, 7}, 0);
  endEditCP(old);
  EXPECT_TRUE(node->getVolume().isValid());
  expect_box(copy_node->getVolume(true), {7, 7, 7}, {7, 7, 7});
}

// Quadratic unlinking would take minutes here, in whatever order the geometries go.
TEST(GeometryLinks, ManyGeometriesShareAProperty) {
  const auto positions = make_positions({{1, 2, 3}});
  std::vector<GeometryPtr> geometries;
  for (int i = 0; i < 200'000; ++i) {
    geometries.push_back(Geometry::create());
    geometries.back()->setPositions(positions);
  }
  EXPECT_EQ(positions->getReferenceCount(), 200'001u);
  for (std::size_t i = 0; i < geometries.size() / 2; ++i) geometries[i] = osg::NullFC;
  while (!geometries.empty()) geometries.pop_back();
  EXPECT_EQ(positions->getReferenceCount(), 1u);
}

// --- Copies and attributes -----------------------------------------------------------------------

TEST(Geometry, ACloneSharesNoProperty) {
  const auto original = one_point(make_positions({{1, 2, 3}}));
  const auto coords = osg::GeoTexCoords2f::create();
  coords->push_back({1, 2});
  original->setIndices(make_indices({0}));
  original->setTexCoords2(coords);
  original->setTexCoords7(coords);
  original->getIndexMapping().push_back(Geometry::MapPosition);
  const auto texts = osg::StringAttributeMap::create(), cache = osg::StringAttributeMap::create();
  cache->setInternal(true);
  original->addAttachment(texts, 1);
  original->addAttachment(cache);
  setName(original, "part");

  const auto clone = original->clone();
  EXPECT_NE(clone->getTexCoords2(), coords);
  EXPECT_EQ(clone->getTexCoords2(), clone->getTexCoords7());
  EXPECT_FALSE(clone->getTexCoords());
  EXPECT_STREQ(getName(clone), "part");
  EXPECT_EQ(clone->findAttachment(osg::StringAttributeMap::getClassType(), 1), texts);
  EXPECT_FALSE(clone->findAttachment(osg::StringAttributeMap::getClassType()));
  EXPECT_EQ(clone->getIndexMapping().getValues(), original->getIndexMapping().getValues());
  original->getPositions()->setValue({9, 9, 9}, 0);
  original->getTypes()->clear();
  original->getLengths()->clear();
  original->getIndices()->clear();
  expect_box(node_with(clone)->getVolume(true), {1, 2, 3}, {1, 2, 3});

  const auto empty = Geometry::create()->clone();
  EXPECT_FALSE(empty->getPositions());
  EXPECT_EQ(getName(empty), nullptr);
}

// Each attribute's field takes properties of its own family and refuses the others.
TEST(Geometry, AttributesTakeTheirFamily) {
  const auto geometry = Geometry::create();
  const osg::GeoPropertyPtr families[] = {
      osg::GeoPositions3f::create(), osg::GeoNormals3f::create(),   osg::GeoColors3f::create(),
      osg::GeoColors4ub::create(),   osg::GeoTexCoords1f::create(), osg::GeoTexCoords3f::create()};
  const auto fits = [](Attribute attribute, std::size_t family) {
    const UInt32 at = osg::indexOf(attribute);
    return at < 2 ? family == at : at < 4 ? family == 2 || family == 3 : family > 3;
  };
  for (UInt32 i = 0; i < osg::kAttributeCount; ++i) {
    const Attribute attribute = osg::attributeAt(i);
    for (std::size_t family = 0; family < std::size(families); ++family) {
      EXPECT_TRUE(geometry->setAttribute(attribute, osg::NullFC));
      EXPECT_EQ(geometry->setAttribute(attribute, families[family]), fits(attribute, family));
      EXPECT_EQ(geometry->getAttribute(attribute) == families[family].get(),
                fits(attribute, family));
    }
    EXPECT_FALSE(geometry->setAttribute(attribute, osg::GeoIndicesUI32::create()));
  }
  const auto coords = osg::GeoTexCoords2f::create();
  geometry->setTexCoords5(coords);
  EXPECT_EQ(geometry->getAttribute(Attribute::TexCoords5), coords.get());
}

constexpr int rounds = 500;

// Each thread writes to its own geometry and reads its own node's box, which has to be that of the
// last write; all mark the same ancestors.
TEST(GeometryThreads, SiblingsAreEditedInPlace) {
  const auto parent = node_with(osg::Group::create());
  const auto root = node_with(osg::Group::create(), {parent});
  std::vector<NodePtr> nodes;
  for (int i = 0; i < 4; ++i) {
    nodes.push_back(node_with(one_point(make_positions({{0, 0, 0}}))));
    parent->addChild(nodes.back());
  }
  support::run_threads(4, [&](int thread) {
    const NodePtr node = nodes[static_cast<std::size_t>(thread)];
    const auto geometry = Geometry::dcast(node->getCore());
    for (int round = 0; round < rounds; ++round) {
      const Pnt3f point(thread, round, 0);
      beginEditCP(geometry->getPositions());
      geometry->getPositions()->setValue(point, 0);
      endEditCP(geometry->getPositions());
      geometry->setNormals(osg::GeoNormals3f::create());
      osg::DynamicVolume box;
      node->getWorldVolume(box);
      ASSERT_EQ(box.getMin(), point);
      ASSERT_EQ(box.getMax(), point);
    }
  });
  expect_box(root->getVolume(true), {0, rounds - 1, 0}, {3, rounds - 1, 0});
}

// Two threads exchange properties while two others compute the volumes of the whole graph. In the
// end nothing may be left marked as valid that isn't.
TEST(GeometryThreads, PropertiesAreExchangedWhileVolumesAreComputed) {
  const auto root = node_with(osg::Group::create());
  std::vector<GeometryPtr> geometries;
  for (int i = 0; i < 2; ++i) {
    geometries.push_back(one_point(make_positions({{0, 0, 0}})));
    root->addChild(node_with(geometries.back()));
  }
  const auto shared = make_positions({{5, 5, 5}});
  support::run_threads(4, [&](int thread) {
    for (int round = 1; round <= rounds; ++round) {
      if (thread >= 2) {
        root->updateVolume();
        continue;
      }
      const auto& geometry = geometries[static_cast<std::size_t>(thread)];
      if (round % 3 == 0) geometry->setPositions(shared);
      if (round % 5 == 0) geometry->setIndices(make_indices({0}));
      geometry->setPositions(make_positions({{thread + 1, round, 0}}));
      geometry->setColors(osg::GeoColors3f::create());
    }
  });
  expect_box(root->getVolume(true), {1, rounds, 0}, {2, rounds, 0});
}

}  // namespace
