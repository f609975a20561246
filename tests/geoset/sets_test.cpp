// The sets themselves: sizes, growth, bounds, and what is left when there is no memory.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "geoset/random_sets.h"
#include "ray/bih_build.h"
#include "ray/triangle_set.h"
#include "support/failing_memory.h"
#include "support/said.h"

namespace morlu::tests {
namespace {

using test::said;

constexpr auto nan = std::numeric_limits<float>::quiet_NaN();

static_assert(bounded_elements<osg_geoset> && bounded_elements<osg_line_geoset> &&
              bounded_elements<osg_point_geoset>);

template <class Set>
bool append(Set& set, float at, std::size_t parent) {
  const ::osg::Pnt3f a(at, 0, 0), b(at + 1, 0, 0), c(at, 1, 0);
  if constexpr (corners<Set> == 3)
    return set.AddObject(a, b, c, parent);
  else
    return set.AddObject(a, b, parent);
}

template <class Set>
class Sets : public testing::Test {};
using AllSets = testing::Types<osg_geoset, osg_line_geoset, osg_point_geoset>;
TYPED_TEST_SUITE(Sets, AllSets);

template <class Set>
class CuttableSets : public testing::Test {};
using AllCuttableSets = testing::Types<osg_geoset, osg_line_geoset>;
TYPED_TEST_SUITE(CuttableSets, AllCuttableSets);

TYPED_TEST(Sets, SetUpGivesElementsTheirBoundsAndTheStatedRoom) {
  std::mt19937 random(7);
  TypeParam set;
  fill(set, 100, random);
  const auto& positions = *set.geometry->getPositions();
  const std::vector<::osg::Pnt3f> before(
      reinterpret_cast<const ::osg::Pnt3f*>(positions.getData()),
      reinterpret_cast<const ::osg::Pnt3f*>(positions.getData()) + positions.size());
  set.setup();
  ASSERT_EQ(set.num_objects, 100u);
  EXPECT_EQ(set.object_capacity, 100u);
  for (unsigned a = 0; a < ::osg::kAttributeCount; ++a)
    if (const auto* property = set.geometry->getAttribute(::osg::attributeAt(a))) {
      EXPECT_EQ(property->size(), corners<TypeParam> * set.vertex_count) << a;
    }

  for (int axis = 0; axis < 3; ++axis) {
    float lowest = INFINITY, highest = -INFINITY;
    for (unsigned i = 0; i < 100; ++i) {
      float low = INFINITY, high = -INFINITY;
      for (unsigned k = 0; k < corners<TypeParam>; ++k) {
        low = std::min(low, before[i * corners<TypeParam> + k][axis]);
        high = std::max(high, before[i * corners<TypeParam> + k][axis]);
      }
      ASSERT_EQ(set.low(i, axis), low);
      ASSERT_EQ(set.high(i, axis), high);
      lowest = std::min(lowest, low);
      highest = std::max(highest, high);
    }
    EXPECT_EQ(set.box.min[axis], lowest);
    EXPECT_EQ(set.box.max[axis], highest);
    EXPECT_EQ(set.box.size[axis], highest - lowest);
  }
}

TYPED_TEST(Sets, WithoutVerticesThereIsNothingAndNothingBreaks) {
  TypeParam set;
  set.setup();  // no positions at all
  EXPECT_EQ(set.num_objects, 0u);
  EXPECT_TRUE(set.resizeFields(7)) << "nothing to resize is no failure";
  std::mt19937 random(7);
  fill(set, 0, random);
  set.setup();  // positions, but none in use
  EXPECT_EQ(set.num_objects, 0u);
  for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(set.box.min[axis], 0.0f);

  osg::prepared_element element;
  element.position[0] = {1, 2, 3};
  said lines;
  if constexpr (corners<TypeParam> == 2)
    set.setLine(element, 0);
  else
    set.PrepareTriangle(element, 0);
  lines.end();
  EXPECT_EQ(lines.out, corners<TypeParam> == 3
                           ? "Morlu::osg::osg_geoset: Index Error in PrepareTriangle.\n"
                       : corners<TypeParam> == 2
                           ? "Morlu::osg::osg_line_geoset: Index Error in setLine.\n"
                           : "Morlu::osg::osg_point_geoset: Index Error in PrepareTriangle.\n");
  EXPECT_EQ(element.position[0], ::osg::Pnt3f(1, 2, 3));
  if constexpr (corners < TypeParam >> 1)
    set.updateObjectBounds(0, std::numeric_limits<unsigned>::max());
  if constexpr (corners<TypeParam> == 3) {
    set.buildTriangles();
    EXPECT_EQ(set.triangles, nullptr);
  }
}

TYPED_TEST(Sets, TheBoxHoldsEveryNumberBesideNaN) {
  ready<TypeParam> set(2);
  const auto& positions = set.geometry->getPositions();
  for (unsigned i = 0; i < 2 * corners<TypeParam>; ++i)
    positions->setValue({nan, i == 0 ? nan : 1.0f * i, 5}, i);
  set.calcBoundingBox();
  EXPECT_TRUE(std::isnan(set.box.min[0]));
  EXPECT_EQ(set.box.min[1], 1.0f);
  EXPECT_EQ(set.box.max[1], 2.0f * corners<TypeParam> - 1);
  EXPECT_EQ(set.box.size[2], 0.0f);
}

TYPED_TEST(Sets, SizesThatNoPropertyHasFreezeTheSetAndKeepItsContent) {
  ready<TypeParam> set(10);
  const auto before = content(set);
  const unsigned entries = set.geometry->getPositions()->size();
  said lines;
  set.setVertexCapacity(std::size_t{1} << 33);
  EXPECT_FALSE(set.resizeFields(1)) << "nothing resizes a frozen set";
  lines.end();
  EXPECT_EQ(lines.out, "Error while resizing FieldContainers.\n");
  EXPECT_TRUE(set.not_enlargeable);
  EXPECT_EQ(set.num_objects, 10u);
  EXPECT_EQ(set.geometry->getNormals()->size(), entries);
  EXPECT_EQ(content(set), before);

  set.clear();
  EXPECT_FALSE(set.not_enlargeable);
  EXPECT_EQ(set.vertex_capacity, 500000u);
  EXPECT_EQ(set.geometry->getPositions(), ::osg::NullFC);
}

TYPED_TEST(Sets, FewerEntriesLeaveFewerElements) {
  ready<TypeParam> set(10);
  set.setVertexCapacity(4);
  EXPECT_EQ(set.vertex_count, 4u);
  EXPECT_EQ(set.num_objects, 4u);
  set.calcBoundingBox();
  EXPECT_EQ(content(set).size() % 4, 0u);
}

TEST(Geoset, NormalsAreMadeWhereThereAreNone) {
  std::mt19937 random(7);
  osg_geoset set;
  fill(set, 50, random);
  set.geometry->setNormals(::osg::NullFC);
  set.setup();
  ASSERT_EQ(set.geometry->getNormals()->size(), set.geometry->getPositions()->size());
  const auto p = [&](unsigned i) { return set.geometry->getPositions()->getValue(i); };
  for (unsigned i = 0; i < 150; i += 3) {
    ::osg::Vec3f normal = (p(i + 1) - p(i)).cross(p(i + 2) - p(i));
    normal.normalize();
    const ::osg::Vec3f made = set.geometry->getNormals()->getValue(i + i % 3);
    EXPECT_GT(made.dot(normal), 0.9999f) << i;
  }
}

TEST(Geoset, ElementsBeyondTheLastAreTheLast) {
  ready<osg_geoset> set(3);
  osg::prepared_element element;
  said lines;
  set.PrepareTriangle(element, 3);
  lines.end();
  EXPECT_EQ(lines.out, "Morlu::osg::osg_geoset: Index Error in PrepareTriangle.\n");
  EXPECT_EQ(element.position[2], set.geometry->getPositions()->getValue(8));
}

TYPED_TEST(CuttableSets, GrowthKeepsWhatThereIsAndAlwaysMakesRoom) {
  std::mt19937 random(7);
  for (const unsigned start : {0u, 1u, 2u, 9u, 10u}) {
    TypeParam set;
    fill(set, start, random);
    set.setup();
    if constexpr (corners<TypeParam> == 3) set.buildTriangles();
    for (unsigned n = start; n < 40; ++n) {
      const auto before = content(set);
      const std::uint64_t capacity = set.object_capacity;
      ASSERT_TRUE(append(set, static_cast<float>(n), n / 2));
      EXPECT_EQ(set.num_objects, n + 1);
      EXPECT_EQ(set.object_capacity, n + 1 < capacity ? capacity : std::max(capacity * 2, n + 1ul));
      EXPECT_EQ(set.low(n, 0), static_cast<float>(n));
      EXPECT_EQ(set.high(n, 0), static_cast<float>(n) + 1);
      EXPECT_EQ(set.geometry->getLengths()->getValue(0), (n + 1) * corners<TypeParam>);
      --set.num_objects;
      ASSERT_EQ(content(set), before);
      ++set.num_objects;
    }
    if constexpr (corners<TypeParam> == 3) {
      for (unsigned i = 0; i < 40 && set.triangles; ++i) {
        for (int axis = 0; axis < 3; ++axis)
          ASSERT_EQ(set.triangles[i].high(axis), set.high(i, axis)) << i;
      }
    }
  }
}

TYPED_TEST(CuttableSets, LargeSetsGrowByLess) {
  std::mt19937 random(7);
  for (const auto& [elements, capacity] : {std::pair(999, 1998u), {1000, 1300u}, {2000, 2600u}}) {
    TypeParam set;
    fill(set, static_cast<std::size_t>(elements), random);
    set.setup();
    ASSERT_TRUE(append(set, 0, 0));
    EXPECT_EQ(set.object_capacity, capacity);
  }
}

TYPED_TEST(CuttableSets, ASecondSetUpKeepsWhatWasAppendedStored) {
  ready<TypeParam> set(1);
  if constexpr (corners<TypeParam> == 3) set.buildTriangles();
  for (int i = 0; i < 20; ++i) append(set, static_cast<float>(i), 0);
  set.geometry->getPositions()->setValue({9, 9, 9}, 0);
  const auto before = content(set);
  set.setup();
  EXPECT_EQ(set.num_objects, 1u);
  EXPECT_EQ(set.high(0, 0), 9);
  if constexpr (corners<TypeParam> == 3) {
    EXPECT_EQ(set.triangles[0].high(0), 9);
  }
  ASSERT_GE(set.geometry->getPositions()->size(), 21 * corners<TypeParam>);
  set.num_objects = 21;
  EXPECT_EQ(content(set), before);
}

/// Runs `work` on sets that `prepared` makes, with the first, the second, ... request for memory
/// failing and perhaps all later ones, until it needs no more; `check` sees what is left.
template <class Set, class Prepare, class Work, class Check>
void at_every_failure(Prepare prepare, Work work, Check check) {
  for (const bool all_later : {false, true}) {
    int met = 0;
    for (int nth = 0;; ++nth) {
      SCOPED_TRACE(testing::Message() << "request " << nth << (all_later ? " and later" : ""));
      Set set;
      prepare(set);
      bool result = false;
      const auto done = test::with_failing_memory(
          nth, [&] { result = work(set); }, all_later);
      EXPECT_FALSE(done.thrown);
      check(set, done.met, result, done);
      if (!done.met) break;
      ++met;
    }
    EXPECT_GT(met, 5) << "the failures were not met";
  }
}

TYPED_TEST(CuttableSets, GrowthThatFindsNoMemoryChangesNothing) {
  std::vector<float> before;
  bool froze = false;
  at_every_failure<TypeParam>(
      [&](TypeParam& set) {
        std::mt19937 random(7);
        fill(set, 1, random);
        set.setup();
        if constexpr (corners<TypeParam> == 3) set.buildTriangles();
        for (int i = 0; i < 30; ++i) append(set, static_cast<float>(i), 0);
        ASSERT_EQ(set.object_capacity, 32u) << "full but for the slot that stays free";
        before = content(set);
      },
      [](TypeParam& set) { return append(set, 100, 0); },
      [&](TypeParam& set, bool failed, bool result, const test::hindered& lines) {
        EXPECT_EQ(result, !failed);
        if (!failed) return;
        EXPECT_EQ(set.num_objects, 31u);
        EXPECT_EQ(set.object_capacity, 32u);
        EXPECT_EQ(content(set), before);
        EXPECT_EQ(set.geometry->getLengths()->getValue(0), 31 * corners<TypeParam>);
        if (set.not_enlargeable) {
          froze = true;
          EXPECT_EQ(lines.out, "Error while resizing FieldContainers.\n");
          EXPECT_EQ(lines.err, "Error occured in Geoset.AddObject().\n");
        } else {
          EXPECT_EQ(lines.err,
                    "bad_alloc caught in Extract geometry in Geoset.AddObject(): t: "
                    "std::bad_alloc\n");
          EXPECT_TRUE(append(set, 100, 0)) << "once there is memory again";
        }
      });
  EXPECT_TRUE(froze);
}

TYPED_TEST(CuttableSets, SetUpThatFindsNoMemoryLeavesAnEmptySetOrAFrozenOne) {
  at_every_failure<TypeParam>(
      [](TypeParam& set) {
        std::mt19937 random(7);
        fill(set, 40, random);
        set.geometry->setNormals(::osg::NullFC);
      },
      [](TypeParam& set) {
        set.setup();
        return set.num_objects == 40;
      },
      [](TypeParam& set, bool failed, bool whole, const test::hindered& lines) {
        EXPECT_EQ(failed, !(lines.out + lines.err).empty());
        EXPECT_EQ(set.not_enlargeable && whole, !lines.out.empty() && lines.err.empty());
        if (whole) {
          EXPECT_GE(set.geometry->getPositions()->size(), 40 * corners<TypeParam>);
          return;
        }
        EXPECT_EQ(lines.err, "bad_alloc caught in Geoset.setup(): std::bad_alloc\n");
        EXPECT_EQ(set.object_capacity + set.vertex_count + set.num_objects, 0u);
        EXPECT_EQ(set.vertex_capacity, 500000u);
        EXPECT_FALSE(set.not_enlargeable);
        set.clear();
        ASSERT_TRUE(set.geometry);
        EXPECT_FALSE(set.geometry->getPositions());
      });
}

}  // namespace
}  // namespace morlu::tests
