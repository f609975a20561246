// Rows of values: what is in new entries, what wider and narrower storage makes of a value, and
// what survives growth, failure and copying.

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <random>
#include <stdexcept>
#include <utility>

#include "osg/geometry.h"

namespace {

using osg::Color3f;
using osg::Color4f;
using osg::Color4ub;
using osg::UInt32;
using osg::Vec2f;
using osg::Vec3f;

/// The components as numbers.
template <class Color>
std::vector<int> bytes_of(const Color& color) {
  return {color.getValues(), color.getValues() + Color::dimension};
}
using Bytes = std::vector<int>;

// Shrinking, clearing and reserving leave old bytes behind the last entry; none of them may show.
class GeoPropertySizes : public testing::TestWithParam<std::pair<int, UInt32>> {};
INSTANTIATE_TEST_SUITE_P(, GeoPropertySizes,
                         testing::Values(std::pair{4000, 1u}, std::pair{400, 1000u}));

TEST_P(GeoPropertySizes, NewEntriesAreZeroWhateverStoodThere) {
  const auto seed = 20260u;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  // Small blocks, and sizes to both sides of where blocks become pages of their own.
  const auto [steps, scale] = GetParam();
  auto property = osg::GeoIndicesUI32::create();
  std::vector<UInt32> expected;
  for (int step = 0; step < steps; ++step) {
    if (step % 8 == 0) {  // new ones grow into memory that the last one left dirty
      property = osg::GeoIndicesUI32::create();
      expected.clear();
    }
    const UInt32 count = random() % 300 * scale;
    switch (random() % 5) {
      case 0:
        property->clear();
        expected.clear();
        break;
      case 1:
        property->reserve(count);
        break;
      case 2:
        for (UInt32 i = 0; i < count; ++i) property->push_back(~i);
        for (UInt32 i = 0; i < count; ++i) expected.push_back(~i);
        break;
      case 3:
        for (UInt32 i = 0; i < expected.size(); ++i) property->setValue(expected[i] = ~i, i);
        break;
      default:
        property->resize(count);
        expected.resize(count);
    }
    ASSERT_EQ(property->size(), expected.size()) << "step " << step;
    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), property->values().begin()))
        << "step " << step;
  }
}

/// Megabytes of the process that are in memory.
std::size_t resident_megabytes() {
  std::size_t size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) >> 20;
}

TEST(GeoProperty, EntriesThatNobodyTouchesTakeNoMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers keep books of all memory";
#endif
  constexpr UInt32 many = 16'000'000;  // 192 megabytes, where a sixteenth is used
  constexpr UInt32 used = 1'000'000;
  const std::size_t before = resident_megabytes();
  const auto property = osg::GeoPositions3f::create();
  property->resize(many);
  for (UInt32 i = 0; i < used; ++i) property->setValue({1, 2, 3}, i);
  property->resize(many / 10 * 13);
  EXPECT_LT(resident_megabytes() - before, 30u);

  std::fill(property->values().begin(), property->values().end(), osg::Pnt3f(4, 5, 6));
  property->resize(used);
  EXPECT_LT(resident_megabytes() - before, 30u) << "given back";
  property->resize(many);
  EXPECT_EQ(property->getValue(used - 1), osg::Pnt3f(4, 5, 6));
  for (UInt32 i = used; i < many; i += 97) ASSERT_EQ(property->getValue(i), osg::Pnt3f()) << i;
}

TEST(GeoProperty, TooManyEntriesAreRefusedAndChangeNothing) {
  const auto property = osg::GeoNormals3f::create();
  property->push_back({1, 2, 3});
  const std::byte* data = property->getData();
  const std::size_t too_many = std::size_t{1} << 32;
  EXPECT_THROW(property->resize(too_many), std::length_error);
  EXPECT_THROW(property->reserve(too_many), std::length_error);
  EXPECT_THROW(property->resize(std::numeric_limits<std::size_t>::max()), std::length_error);
  EXPECT_EQ(property->size(), 1u);
  EXPECT_EQ(property->getData(), data);
  EXPECT_EQ(property->getValue(0), Vec3f(1, 2, 3));
}

TEST(GeoProperty, AValueOfItsOwnStorageCanBeAppended) {
  const auto property = osg::GeoNormals3f::create();
  property->push_back({1, 2, 3});
  for (int i = 0; i < 1000; ++i) property->push_back(property->values()[0]);
  for (const Vec3f& value : property->values()) ASSERT_EQ(value, Vec3f(1, 2, 3));
}

TEST(GeoProperty, CopiesHaveEntriesOfTheirOwn) {
  const auto original = osg::GeoColors4ub::create();
  original->push_back({1, 0, 0});
  original->reserve(100);
  const auto copy = osg::GeoColors4ub::dcast(original->shallowCopy());
  original->setValue({0, 0, 0}, 0);
  ASSERT_EQ(copy->size(), 1u);
  EXPECT_EQ(bytes_of(copy->values()[0]), (Bytes{255, 0, 0, 255}));
  copy->push_back({0, 1, 0});
  EXPECT_EQ(original->size(), 1u);
  EXPECT_EQ(osg::GeoColors4ub::dcast(osg::GeoColors4ub::create()->shallowCopy())->size(), 0u);
}

// Storage that is wider than the family's value: reads pass over the rest, writes keep it, and
// appending fills it up.
TEST(GeoProperty, WiderStorageKeepsWhatTheFamilyDoesNotSee) {
  const auto colors = osg::GeoColors4f::create();
  colors->push_back({0.1f, 0.2f, 0.3f});
  EXPECT_EQ(colors->values()[0], Color4f(0.1f, 0.2f, 0.3f, 1));
  colors->values()[0] = Color4f(0, 0, 0, 0.5f);
  colors->setValue({0.4f, 0.5f, 0.6f}, 0);
  EXPECT_EQ(colors->values()[0], Color4f(0.4f, 0.5f, 0.6f, 0.5f));
  EXPECT_EQ(colors->getValue(0), Color3f(0.4f, 0.5f, 0.6f));

  const auto bytes = osg::GeoColors4ub::create();
  bytes->push_back({0.0f, 0.5f, 1.0f});
  EXPECT_EQ(bytes_of(bytes->values()[0]), (Bytes{0, 128, 255, 255}));
  bytes->values()[0] = Color4ub(0, 0, 0, 7);
  bytes->setValue({-1.0f, 7.0f, std::numeric_limits<float>::quiet_NaN()}, 0);
  EXPECT_EQ(bytes_of(bytes->values()[0]), (Bytes{0, 255, 0, 7}));
  EXPECT_EQ(bytes->getValue(0), Color3f(0, 1, 0));

  const auto solid = osg::GeoTexCoords3f::create();
  solid->resize(1);
  solid->values()[0] = Vec3f(7, 8, 9);
  solid->setValue({1, 2}, 0);
  solid->push_back({3, 4});
  EXPECT_EQ(solid->values()[0], Vec3f(1, 2, 9));
  EXPECT_EQ(solid->values()[1], Vec3f(3, 4, 0));
  EXPECT_EQ(solid->getValue(1), Vec2f(3, 4));
}

TEST(GeoProperty, NarrowerStorageTakesTheFirstComponents) {
  const auto coords = osg::GeoTexCoords1f::create();
  coords->push_back({0.25f, 0.75f});
  coords->resize(2);
  coords->setValue({0.5f, 9.0f}, 1);
  EXPECT_EQ(coords->getValue(0), Vec2f(0.25f, 0.0f));
  EXPECT_EQ(coords->getValue(1), Vec2f(0.5f, 0.0f));
  const auto narrow = osg::GeoIndicesUI16::create();
  narrow->push_back(65535);
  EXPECT_EQ(narrow->getValue(0), 65535u);
}

// Every byte value survives being read as a share and written back.
TEST(GeoProperty, BytesRoundTrip) {
  const auto bytes = osg::GeoColors3ub::create();
  bytes->resize(256);
  const auto values = bytes->values();
  for (UInt32 i = 0; i < 256; ++i) values[i] = osg::Color3ub(i, 255 - i, 0);
  for (UInt32 i = 0; i < 256; ++i) bytes->setValue(bytes->getValue(i), i);
  for (UInt32 i = 0; i < 256; ++i)
    EXPECT_EQ(bytes_of(values[i]), bytes_of(osg::Color3ub(i, 255 - i, 0)));
}

}  // namespace
