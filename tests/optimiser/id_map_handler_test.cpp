#include "optimiser/id_map_handler.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/run_threads.h"

namespace morlu::osg {
namespace {

using point = id_map_handler::point;

std::uint32_t add(id_map_handler& handler, const std::string& name,
                  const ::osg::MaterialPtr& material = ::osg::NullFC) {
  return handler.addName(name, {0, 0, 0}, {1, 1, 1}, material);
}

// The one test that uses the counters of the process: it says where they start.
TEST(IdMapHandler, NamesRunOnForTheLifeOfTheProcess) {
  id_map_handler& handler = getIdMapHandler();
  EXPECT_EQ(&handler, &getIdMapHandler());
  handler.prefix = "car";
  EXPECT_EQ(handler.nextGeometryName(), "car_G_1");
  EXPECT_EQ(handler.nextMergedName(), "MG_0");
  handler.merged = true;
  handler.tree.emplace_back();
  handler.mapping[3] = {"MG_0"};
  handler.texcoord_slots["MG_0"] = "TC1";
  add(handler, "wheel");
  handler.reset();
  EXPECT_EQ(handler.nextGeometryName(), "_G_2");
  EXPECT_EQ(handler.nextMergedName(), "MG_1");
  EXPECT_EQ(handler.max_geo_count(), 2u);
  EXPECT_FALSE(handler.merged);
  EXPECT_TRUE(handler.tree.empty() && handler.mapping.empty() && handler.texcoord_slots.empty());
  EXPECT_TRUE(handler.names().empty() && handler.mins().empty() && handler.maxs().empty());
  EXPECT_TRUE(handler.appearance_names().empty() && handler.appearances().empty());
  EXPECT_EQ(add(handler, "wheel"), 0u) << "the index of names is forgotten too";
  EXPECT_EQ(handler.appearance_names(), std::vector<std::string>{"__App_0"});
  handler.reset();
}

TEST(IdMapHandler, EqualNamesShareAnIdABoxAndTheFirstAppearance) {
  id_map_handler handler;
  const auto red = ::osg::SimpleMaterial::create();
  const auto blue = ::osg::SimpleMaterial::create();
  EXPECT_EQ(handler.addName("wheel", {0, 0, 0}, {1, 1, 1}, blue), 0u);
  EXPECT_EQ(handler.addName("door", {0, 0, 0}, {1, 1, 1}, ::osg::NullFC), 1u);
  // Its corners the wrong way round: both count.
  EXPECT_EQ(handler.addName("wheel", {2, 0.5f, -1}, {-3, 0.5f, 0}, red), 0u);
  EXPECT_EQ(add(handler, "Wheel", blue), 2u);
  EXPECT_EQ(add(handler, "", red), 3u) << "the empty text is a name too";
  EXPECT_EQ(handler.names(), (std::vector<std::string>{"wheel", "door", "Wheel", ""}));
  EXPECT_EQ(handler.mins()[0], point(-3, 0, -1));
  EXPECT_EQ(handler.maxs()[0], point(2, 1, 1));
  EXPECT_EQ(handler.appearance_names(),
            (std::vector<std::string>{"__App_0", "__App_1", "__App_0", "__App_2"}));
  // By serial, null first, whatever the order of use.
  std::vector<std::string> in_order;
  for (const auto& [material, name] : handler.appearances()) in_order.push_back(name);
  EXPECT_EQ(in_order, (std::vector<std::string>{"__App_1", "__App_2", "__App_0"}));

  const float nan = std::nanf("");
  handler.addName("hull", {nan, 0, 0}, {nan, 0, 0}, red);
  handler.addName("hull", {1, nan, 0}, {2, 0, nan}, red);
  EXPECT_EQ(handler.mins()[4], point(1, 0, 0));
  EXPECT_EQ(handler.maxs()[4], point(2, 0, 0));
}

// Searching the list for each of these names would take minutes.
TEST(IdMapHandler, ManyNamesFromManyThreadsAreAllThereOnce) {
  constexpr unsigned names = 100000, threads = 4;
  id_map_handler handler;
  std::vector<std::vector<std::uint32_t>> ids(threads, std::vector<std::uint32_t>(names));
  std::vector<std::set<std::string>> fresh(threads);
  support::run_threads(threads, [&](int thread) {
    const auto t = static_cast<unsigned>(thread);
    for (unsigned i = 0; i < names; ++i) {
      const unsigned of = (i + t * 1000) % names;
      ids[t][of] = add(handler, "part " + std::to_string(of));
      if (i % 100 == 0) fresh[t].insert(handler.nextMergedName());
      if (i % 100 == 0) fresh[t].insert(handler.nextGeometryName());
    }
  });
  ASSERT_EQ(handler.names().size(), names);
  for (unsigned of = 0; of < names; ++of) {
    ASSERT_EQ(handler.names()[ids[0][of]], "part " + std::to_string(of));
    for (unsigned t = 1; t < threads; ++t) ASSERT_EQ(ids[t][of], ids[0][of]);
  }
  std::set<std::string> all;
  for (const auto& some : fresh) all.insert(some.begin(), some.end());
  EXPECT_EQ(all.size(), threads * names / 50) << "a name was given twice";
}

}  // namespace
}  // namespace morlu::osg
