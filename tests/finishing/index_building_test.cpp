#include "finishing/index_building.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "finishing/plain_index.h"
#include "support/failing_memory.h"
#include "support/random_geometry.h"
#include "support/scene_parts.h"

namespace morlu::tests {
namespace {

using ::osg::Attribute;
using ::osg::GeometryPtr;
using ::osg::UInt32;
using test::layout;

constexpr std::array stated{Attribute::Positions, Attribute::Normals, Attribute::Colors,
                            Attribute::TexCoords, Attribute::TexCoords7};

std::vector<Attribute> all_attributes() {
  std::vector<Attribute> all;
  for (UInt32 i = 0; i < ::osg::kAttributeCount; ++i) all.push_back(::osg::attributeAt(i));
  return all;
}

/// The index data as it stands, of the attributes that the geometry holds.
plain_index contents(const ::osg::Geometry& geometry, std::span<const Attribute> attributes) {
  plain_index result;
  result.mapping = geometry.getIndexMapping().getValues();
  const auto indices = ::osg::GeoIndicesUI32::dcast(geometry.getIndices());
  if (indices) result.indices.assign(indices->values().begin(), indices->values().end());
  for (const Attribute attribute : attributes) {
    const auto* property = geometry.getAttribute(attribute);
    if (!property) continue;
    auto& values = result.values[attribute];
    for (UInt32 i = 0; i < property->size(); ++i) {
      bits& value = values.emplace_back(property->getStride() / 4);
      std::memcpy(value.data(), property->getData() + i * property->getStride(),
                  property->getStride());
    }
  }
  return result;
}

std::array<::osg::GeoProperty*, ::osg::kAttributeCount + 3> properties(
    const ::osg::Geometry& geometry) {
  std::array<::osg::GeoProperty*, ::osg::kAttributeCount + 3> held{
      geometry.getTypes().get(), geometry.getLengths().get(), geometry.getIndices().get()};
  for (UInt32 i = 0; i < ::osg::kAttributeCount; ++i)
    held[3 + i] = geometry.getAttribute(::osg::attributeAt(i));
  return held;
}

void expect_one_primitive(const ::osg::Geometry& geometry, std::size_t corners) {
  ASSERT_EQ(geometry.getTypes()->size(), 1u);
  ASSERT_EQ(geometry.getLengths()->size(), 1u);
  EXPECT_EQ(geometry.getTypes()->getValue(0), ::osg::kTriangles);
  EXPECT_EQ(geometry.getLengths()->getValue(0), corners);
}

using build = void(::osg::Geometry&, std::span<const Attribute>);
using plain_build = plain_index(const ::osg::Geometry&, std::span<const Attribute>);

/// The very bits of the plain way; what isn't in the list stays, and so do the old properties,
/// which other geometries may hold; a second run changes nothing.
template <class Build>
void check(const GeometryPtr& geometry, std::span<const Attribute> attributes, const Build& built,
           plain_build* plain) {
  const plain_index expected = plain(*geometry, attributes);
  const auto before = properties(*geometry);
  const auto other = ::osg::Geometry::dcast(geometry->shallowCopy());
  const auto other_positions = corner_values(*other, Attribute::Positions);
  built(*geometry, attributes);

  plain_index made = contents(*geometry, attributes);
  for (UInt32 i = 0; i < ::osg::kAttributeCount; ++i) {
    const Attribute attribute = ::osg::attributeAt(i);
    if (expected.values.contains(attribute)) continue;
    EXPECT_EQ(geometry->getAttribute(attribute), before[3 + i]) << "attribute " << i;
    made.values.erase(attribute);
  }
  EXPECT_TRUE(made == expected);
  expect_one_primitive(*geometry, other_positions.size());
  EXPECT_EQ(properties(*other), before);
  EXPECT_EQ(corner_values(*other, Attribute::Positions), other_positions);

  built(*geometry, attributes);
  plain_index again = contents(*geometry, attributes);
  for (auto entry = again.values.begin(); entry != again.values.end();)
    entry = expected.values.contains(entry->first) ? std::next(entry) : again.values.erase(entry);
  EXPECT_TRUE(again == expected) << "the second run";
}

/// Some components become NaN of one kind or another.
void sprinkle_nan(const ::osg::GeometryPtr& geometry, std::mt19937& random) {
  for (UInt32 i = 0; i < ::osg::kAttributeCount; ++i) {
    auto* property = geometry->getAttribute(::osg::attributeAt(i));
    if (!property || property->getComponentType() != ::osg::ComponentType::Float32) continue;
    auto* words = reinterpret_cast<UInt32*>(property->editData());
    for (std::size_t k = 0; k < property->size() * property->getStride() / 4; ++k)
      if (random() % 8 == 0) words[k] = random() % 2 == 0 ? 0x7fc00000 : 0xffc00001;
  }
}

TEST(IndexBuilding, EqualsThePlainWayBitByBit) {
  const auto all = all_attributes();
  std::size_t triangles = 0;
  for (UInt32 seed = 0; seed < 600; ++seed) {
    for (const layout kind : {layout::none, layout::single, layout::multi}) {
      for (const bool single : {false, true}) {
        for (const auto attributes : {std::span<const Attribute>(stated), std::span(all)}) {
          SCOPED_TRACE("seed " + std::to_string(seed) + " layout " +
                       std::to_string(static_cast<int>(kind)) + (single ? " single " : " shared ") +
                       std::to_string(attributes.size()));
          std::mt19937 random(seed);
          const GeometryPtr geometry = test::random_geometry(random, kind);
          if (seed % 3 == 0) sprinkle_nan(geometry, random);
          // What is exported goes by the stated attributes.
          const auto built = [&](::osg::Geometry& of, std::span<const Attribute> list) {
            if (list.size() == all.size())
              (single ? osg::build_single_index : osg::build_shared_index)(of, list);
            else
              (single ? osg::createSingleIndex : osg::createSharedIndex)(GeometryPtr(&of));
          };
          check(geometry, attributes, built, single ? plain_single_index : plain_shared_index);
          triangles += geometry->getLengths()->getValue(0) / 3;
          if (HasFailure()) return;
        }
      }
    }
  }
  EXPECT_GT(triangles, 10000u);
}

TEST(IndexBuilding, ValuesAreSharedExactly) {
  const float one = 1, next = std::nextafter(one, 2.0f);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const GeometryPtr geometry = one_primitive(
      ::osg::kTriangles,
      {{one, 0, 0}, {next, 0, 0}, {one, -0.0f, 0}, {nan, 0, 0}, {-nan, 0, 0}, {nan, -0.0f, 0}});
  osg::createSharedIndex(geometry);
  EXPECT_EQ(contents(*geometry, stated).indices, (std::vector<UInt32>{0, 1, 0, 2, 3, 2}));
  EXPECT_FALSE(std::signbit(geometry->getPositions()->getValue(0)[1])) << "the first one stays";
}

TEST(IndexBuilding, LinesEndAsAnEmptyPrimitive) {
  const GeometryPtr geometry = one_primitive(::osg::kLineStrip, {{0, 0, 0}, {0, 1, 0}, {1, 0, 0}});
  geometry->setNormals(::osg::GeoNormals3f::create());
  const auto node = node_with(geometry);
  EXPECT_TRUE(node->getVolume(true).isValid() && !node->getVolume(true).isEmpty());
  osg::createSharedIndex(geometry);
  expect_one_primitive(*geometry, 0);
  EXPECT_TRUE(geometry->getPositions()->empty() && geometry->getIndices()->empty());
  EXPECT_EQ(geometry->getIndexMapping().size(), 2u);
  EXPECT_TRUE(node->getVolume(true).isEmpty()) << "the volume knows";
  const GeometryPtr none = ::osg::Geometry::create();
  osg::createSingleIndex(none);
  expect_one_primitive(*none, 0);
  osg::createSharedIndex(::osg::NullFC);
  osg::createSingleIndex(::osg::NullFC);
}

TEST(IndexBuilding, AGeometryIsAsItWasWhenMemoryRunsOut) {
  int failures = 0;
  for (build* built : {osg::build_shared_index, osg::build_single_index}) {
    bool met = true;
    for (int nth = 0; met; ++nth) {
      std::mt19937 random(7);
      const GeometryPtr geometry = test::random_geometry(random, layout::single);
      if (nth == 0) built(*::osg::Geometry::dcast(geometry->shallowCopy()), stated);  // warms up
      const auto before = properties(*geometry);
      const auto done = test::with_failing_memory(nth, [&] { built(*geometry, stated); });
      met = done.met;
      EXPECT_EQ(done.thrown, met) << "request " << nth;
      EXPECT_EQ(properties(*geometry) == before, met) << "request " << nth;
      EXPECT_TRUE(!met || geometry->getIndexMapping().empty());
      failures += met;
    }
  }
  EXPECT_GT(failures, 40);
}

}  // namespace
}  // namespace morlu::tests
