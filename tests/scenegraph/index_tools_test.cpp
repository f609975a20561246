#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <limits>
#include <random>
#include <set>

#include "osg/geometry_tools.h"
#include "support/random_geometry.h"
#include "support/same_surface.h"
#include "support/scene_parts.h"

namespace {

using morlu::test::layout;
using morlu::test::surface_of;
using osg::Attribute;
using osg::UInt32;

constexpr UInt32 seeds = 400;
constexpr layout layouts[] = {layout::none, layout::single, layout::multi};

std::vector<std::byte> bytes_of(const osg::GeoProperty* property) {
  if (!property || property->empty()) return {};
  return {property->getData(), property->getData() + property->size() * property->getStride()};
}

/// All that could be damaged where other geometries hold the same properties.
struct shared_state {
  std::vector<osg::GeoPropertyPtr> properties;
  std::vector<std::vector<std::byte>> bytes;

  explicit shared_state(const osg::Geometry& geometry) {
    for (UInt32 i = 0; i < osg::kAttributeCount; ++i)
      hold(geometry.getAttribute(osg::attributeAt(i)));
    hold(geometry.getIndices().get());
    hold(geometry.getTypes().get());
    hold(geometry.getLengths().get());
  }
  void hold(osg::GeoProperty* property) {
    properties.emplace_back(property);
    bytes.push_back(bytes_of(property));
  }
  void expect_untouched() const {
    for (std::size_t i = 0; i < properties.size(); ++i)
      EXPECT_TRUE(bytes_of(properties[i].get()) == bytes[i]) << "property " << i;
  }
};

/// The geometry's whole index data and properties, to tell whether a second run changes anything.
std::vector<std::vector<std::byte>> contents(const osg::Geometry& geometry) {
  return shared_state(geometry).bytes;
}

UInt32 reached(const osg::Geometry& geometry) {
  UInt32 count = 0;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) count += it.getLength();
  return count;
}

/// Distinct index tuples over the corners that the primitives reach.
std::size_t distinct_tuples(const osg::Geometry& geometry) {
  std::set<std::vector<osg::Int32>> tuples;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    for (UInt32 corner = 0; corner < it.getLength(); ++corner) {
      std::vector<osg::Int32> tuple;
      for (UInt32 i = 0; i < osg::kAttributeCount; ++i)
        tuple.push_back(it.getAttributeIndex(osg::attributeAt(i), corner));
      tuples.insert(tuple);
    }
  }
  return tuples.size();
}

/// Every index is at most one above all before it, and all entries are used.
void expect_first_use_order(const osg::Geometry& geometry, Attribute attribute) {
  osg::Int32 next = 0;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    for (UInt32 corner = 0; corner < it.getLength(); ++corner) {
      const osg::Int32 index = it.getAttributeIndex(attribute, corner);
      ASSERT_LE(index, next);
      next = std::max(next, index + 1);
    }
  }
  EXPECT_EQ(next, static_cast<osg::Int32>(geometry.getAttribute(attribute)->size()));
}

void expect_distinct_values(const osg::GeoProperty& property) {
  const bool is_float = property.getComponentType() == osg::ComponentType::Float32;
  std::set<std::vector<UInt32>> values;
  for (UInt32 i = 0; i < property.size(); ++i) {
    std::vector<UInt32> value;
    for (UInt32 k = 0; k < property.getDimension(); ++k) {
      const std::byte* from = property.getData() + i * property.getStride();
      float component = static_cast<float>(from[k]);
      if (is_float) std::memcpy(&component, from + 4 * k, 4);
      value.push_back(std::bit_cast<UInt32>(component == 0 ? 0.0f : component));
    }
    EXPECT_TRUE(values.insert(value).second) << "entry " << i << " is there twice";
  }
}

void check_shared(const osg::GeometryPtr& geometry) {
  const auto before = surface_of(geometry);
  const osg::GeometryPtr other = osg::GeometryPtr(osg::Geometry::dcast(geometry->shallowCopy()));
  const shared_state held(*geometry);
  const auto types = geometry->getTypes();
  const auto lengths = geometry->getLengths();
  const UInt32 corners = reached(*geometry);
  ASSERT_EQ(osg::createSharedIndex(geometry), static_cast<osg::Int32>(corners));

  morlu::test::expect_same_surface(before, surface_of(geometry));
  morlu::test::expect_same_surface(before, surface_of(other));
  held.expect_untouched();
  EXPECT_TRUE(geometry->getTypes() == types && geometry->getLengths() == lengths);
  if (corners == 0) return;
  std::vector<osg::UInt16> mapping;
  for (UInt32 i = 0; i < osg::kAttributeCount; ++i) {
    const osg::GeoProperty* property = geometry->getAttribute(osg::attributeAt(i));
    if (!property) continue;
    EXPECT_TRUE(property->getType() == held.properties[i]->getType());
    if (property->empty()) continue;
    mapping.push_back(osg::mappingFlag(osg::attributeAt(i)));
    expect_distinct_values(*property);
    expect_first_use_order(*geometry, osg::attributeAt(i));
  }
  EXPECT_EQ(geometry->getIndexMapping().getValues(), mapping);
  EXPECT_EQ(geometry->getIndices()->size(), corners * mapping.size());

  const auto once = contents(*geometry);
  osg::createSharedIndex(geometry);
  EXPECT_TRUE(contents(*geometry) == once);
}

void check_single(const osg::GeometryPtr& geometry) {
  const auto before = surface_of(geometry);
  const shared_state held(*geometry);
  const std::size_t tuples = distinct_tuples(*geometry);
  ASSERT_EQ(osg::createSingleIndex(geometry), static_cast<osg::Int32>(tuples));

  morlu::test::expect_same_surface(before, surface_of(geometry));
  held.expect_untouched();
  if (tuples == 0) return;
  EXPECT_TRUE(geometry->getIndexMapping().empty());
  EXPECT_FALSE(osg::GeoIndicesUI32::dcast(geometry->getIndices()).isNull());
  for (UInt32 i = 0; i < osg::kAttributeCount; ++i) {
    const osg::GeoProperty* property = geometry->getAttribute(osg::attributeAt(i));
    if (!property || property->empty()) continue;
    EXPECT_EQ(property->size(), tuples);
    EXPECT_TRUE(property->getType() == held.properties[i]->getType());
    expect_first_use_order(*geometry, osg::attributeAt(i));
  }
  const auto once = contents(*geometry);
  osg::createSingleIndex(geometry);
  EXPECT_TRUE(contents(*geometry) == once);
}

TEST(IndexTools, KeepTheSurfaceOfAnyGeometry) {
  for (UInt32 seed = 0; seed < seeds; ++seed) {
    for (const layout kind : layouts) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " layout " +
                   std::to_string(static_cast<int>(kind)));
      for (const auto check : {check_shared, check_single}) {
        std::mt19937 random(seed);
        check(morlu::test::random_geometry(random, kind));
      }
      std::mt19937 random(seed);
      const osg::GeometryPtr both = morlu::test::random_geometry(random, kind);
      osg::createSharedIndex(both);
      check_single(both);
      if (HasFailure()) return;
    }
  }
}

osg::GeometryPtr soup(const std::vector<osg::Pnt3f>& points) {
  return one_primitive(osg::kTriangles, points);
}

TEST(IndexTools, ZerosAreOneValueAndNaNsGoByTheirBits) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const osg::GeometryPtr geometry =
      soup({{-0.0f, 1, 2}, {0.0f, 1, 2}, {nan, 0, 0}, {nan, 0, 0}, {-nan, 0, 0}, {0, 1, -2}});
  osg::createSharedIndex(geometry);
  const auto positions = osg::GeoPositions3f::dcast(geometry->getPositions());
  ASSERT_EQ(positions->size(), 4u);
  EXPECT_TRUE(std::signbit(positions->getValue(0)[0])) << "the first used one stays";
  const auto indices = osg::GeoIndicesUI32::dcast(geometry->getIndices())->values();
  EXPECT_EQ(std::vector<UInt32>(indices.begin(), indices.end()),
            (std::vector<UInt32>{0, 0, 1, 1, 2, 3}));
}

TEST(IndexTools, ASmallGeometryInLargeSharedPropertiesIsCutOut) {
  const osg::GeometryPtr geometry = soup(std::vector<osg::Pnt3f>(100'000, {1, 2, 3}));
  geometry->setLengths(property_of<osg::GeoPLengthsUI32>({6}));
  geometry->setIndices(property_of<osg::GeoIndicesUI32>({90'000, 7, 99'999, 7, 90'000, 1'000'000}));
  const auto before = surface_of(geometry);
  EXPECT_EQ(osg::createSingleIndex(geometry), 3) << "the last index means the last entry";
  EXPECT_EQ(geometry->getPositions()->size(), 3u);
  morlu::test::expect_same_surface(before, surface_of(geometry));
  osg::createSharedIndex(geometry);
  EXPECT_EQ(geometry->getPositions()->size(), 1u);
}

TEST(IndexTools, NothingComesOfNothing) {
  EXPECT_EQ(osg::createSharedIndex(osg::NullFC), 0);
  EXPECT_EQ(osg::createSingleIndex(osg::NullFC), 0);
  EXPECT_EQ(osg::createOptimizedPrimitives(osg::NullFC), 0);
  osg::calcVertexNormals(osg::NullFC);
  osg::calcVertexNormals(osg::NullFC, 0.5f);

  const osg::GeometryPtr bare = osg::Geometry::create();
  const osg::GeometryPtr points_only = osg::Geometry::create();
  points_only->setPositions(property_of<osg::GeoPositions3f>(std::vector<osg::Pnt3f>(5)));
  for (const auto& geometry : {bare, points_only}) {
    EXPECT_EQ(osg::createSharedIndex(geometry), 0);
    EXPECT_EQ(osg::createSingleIndex(geometry), 0);
    EXPECT_EQ(osg::createOptimizedPrimitives(geometry), 0);
    osg::calcVertexNormals(geometry);
    osg::calcVertexNormals(geometry, 0.5f);
    EXPECT_TRUE(geometry->getNormals().isNull() && geometry->getIndices().isNull());
  }
  EXPECT_EQ(points_only->getPositions()->size(), 5u) << "what no primitive uses is not thrown away";
}

TEST(IndexTools, PropertiesKeepTheirNamesAndTheGeometryItsAttachments) {
  const osg::GeometryPtr geometry = soup({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
  osg::setName(geometry, "wheel");
  osg::setName(geometry->getPositions(), "rim");
  osg::createSharedIndex(geometry);
  osg::createSingleIndex(geometry);
  EXPECT_STREQ(osg::getName(geometry), "wheel");
  EXPECT_STREQ(osg::getName(geometry->getPositions()), "rim");
}

}  // namespace
