#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <list>
#include <stdexcept>
#include <thread>

#include <osg/cores.h>

#include "morlu/morlu.h"
#include "support/scene_parts.h"
#include "support/temp_folder.h"

namespace {

using vector3 = morlu::math::vector<float, 3>;

[[gnu::noinline]] void through_float(const double* in, float* narrow, double* out) {
  for (int i = 0; i < 3; ++i) narrow[i] = static_cast<float>(in[i]);
  for (int i = 0; i < 3; ++i) out[i] = static_cast<double>(narrow[i]);
}

// A compiler that skips the rounding changes results; the build's flags have to prevent it.
TEST(Arithmetic, FloatsAreRounded) {
  const double in[3] = {0.1, 0.2, 0.3};
  float narrow[3];
  double out[3];
  through_float(in, narrow, out);
  for (int i = 0; i < 3; ++i) EXPECT_NE(out[i], in[i]);
}

TEST(Values, LengthAddsSquaresInOrderInSinglePrecision) {
  // 1 + 2^-24 rounds back to 1, so small squares count only where they come first.
  EXPECT_EQ(morlu::math::length(vector3{1.0f, 0x1p-12f, 0x1p-12f}), 1.0f);
  EXPECT_EQ(morlu::math::length(vector3{0x1p-12f, 0x1p-12f, 1.0f}), std::sqrt(1.0f + 0x1p-23f));
  EXPECT_TRUE(std::isinf(morlu::math::length(vector3{3e30f, 0.0f, 0.0f})));
}

class SpecialGeometry
    : public osg::ContainerClass<"SpecialGeometry", SpecialGeometry, osg::Geometry> {};

TEST(CollectGeoNodes, ExactTypeDepthFirstBehindWhatIsThere) {
  //          root (group)
  //   left (geometry)      null core     special   right (geometry, same core as left)
  //     below (geometry)     deep (geometry)
  const auto shared = osg::Geometry::create();
  const auto below = node_with(osg::Geometry::create()), deep = node_with(osg::Geometry::create()),
             left = node_with(shared, {below}), right = node_with(shared),
             coreless = node_with(osg::NullFC, {deep}), earlier = osg::Node::create();
  const auto root = node_with(osg::Group::create(),
                              {left, coreless, node_with(SpecialGeometry::create()), right});

  std::list<osg::NodePtr> found{earlier};
  morlu::osg::collect_geo_nodes(root, found);
  EXPECT_EQ(found, (std::list<osg::NodePtr>{earlier, left, below, deep, right}));
  morlu::osg::collect_geo_nodes(below, found);
  EXPECT_EQ(found.size(), 6u);
  EXPECT_EQ(found.back(), below);
  morlu::osg::collect_geo_nodes(osg::NullFC, found);
  EXPECT_EQ(found.size(), 6u);
}

TEST(CollectGeoNodes, SurvivesDeepGraphs) {
  auto root = node_with(osg::Geometry::create());
  for (int depth = 0; depth < 100000; ++depth) root = node_with(osg::NullFC, {root});
  std::list<osg::NodePtr> found;
  morlu::osg::collect_geo_nodes(root, found);
  EXPECT_EQ(found.size(), 1u);
}

TEST(GetMs, CountsMilliseconds) {
  using namespace std::chrono;
  const auto start = steady_clock::now();
  const unsigned before = morlu::get_ms();
  std::this_thread::sleep_for(milliseconds(30));
  const unsigned counted = morlu::get_ms() - before;  // right across a wrap
  const auto passed = duration_cast<milliseconds>(steady_clock::now() - start).count();
  EXPECT_GE(counted, 29u);
  EXPECT_LE(counted, passed + 1);
}

class CreateDir : public testing::Test {
 protected:
  static void create(const std::filesystem::path& path) {
    std::string text = path.string();
    morlu::createDir(text.data());
  }
  const support::TempFolder folder_;
};

TEST_F(CreateDir, MakesOneLevelAndLeavesWhatIsThere) {
  create(folder_ / "new");
  EXPECT_TRUE(std::filesystem::is_directory(folder_ / "new"));
  std::ofstream(folder_ / "new" / "content") << "kept";
  create(folder_ / "new");
  EXPECT_TRUE(std::filesystem::exists(folder_ / "new" / "content"));

  std::ofstream(folder_ / "file") << "kept";
  create(folder_ / "file");
  EXPECT_TRUE(std::filesystem::is_regular_file(folder_ / "file"));
}

TEST_F(CreateDir, FailuresLeaveAsExceptions) {
  EXPECT_THROW(create(folder_ / "no" / "parents"), std::runtime_error);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "no"));
  std::ofstream(folder_ / "file") << "in the way";
  EXPECT_THROW(create(folder_ / "file" / "below"), std::runtime_error);
  EXPECT_THROW(create(""), std::runtime_error);
  EXPECT_THROW(morlu::createDir(nullptr), std::runtime_error);
}

}  // namespace
