// The automated way and that around skipped geometry: each geometry once, whatever the scene holds.

#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "morlu/optimiser.h"
#include "optimiser/mixed_scene.h"
#include "support/scene_text.h"

namespace morlu::tests {
namespace {

using ::osg::NodePtr;

NodePtr automated(const NodePtr& root, std::string* out = nullptr) {
  test::said text;
  const NodePtr result = osg::optTree(root, "");
  text.end();
  EXPECT_EQ(text.err, "");
  if (out) *out = text.out;
  return result;
}

NodePtr around_skipped(const NodePtr& root, const osg::mergeGeo_setup& setup, bool drops = false) {
  test::said quiet;
  const NodePtr result = osg::optWithSkippedGeo(root, setup, {.leaf_size = 10}, true, drops);
  quiet.end();
  return result;
}

TEST(Automated, HasEachGeometryOnceInAnyScene) {
  for (unsigned kinds = 0; kinds <= all_kinds; ++kinds) {
    SCOPED_TRACE(kinds);
    const mixed_scene scene(kinds), other(kinds);
    const auto before = shown(scene.root);
    const auto parent = node_with(::osg::Group::create(), {scene.root});
    std::string out;
    const NodePtr result = automated(scene.root, &out);
    EXPECT_EQ(shown(result), before);
    EXPECT_EQ(parent->getNChildren(), 0u);
    EXPECT_FALSE(result->getParent());
    const bool skips = out.find("Optimizing: Some Nodes are skipped.\n") != out.npos;
    EXPECT_EQ(skips, (kinds & skipped) != 0);

    osg::mergeGeo_setup setup;
    setup.cacheopt = kinds % 3 == 0;
    setup.flat = kinds % 2;
    const auto above = node_with(transform(::osg::Matrix::translation(0, 9, 0)), {other.root});
    const auto moved = shown(above);
    EXPECT_EQ(shown(around_skipped(other.root, setup)), moved);
    EXPECT_TRUE(shown(above).empty());
  }
}

TEST(Automated, DropsWhatIsHiddenAndTheRestIfAsked) {
  const mixed_scene scene(switched | skipped | strokes), plain(strokes);
  const auto hidden = node_with(triangles(box_corners()));
  hidden->setTravMask(0);
  scene.root->addChild(hidden);
  EXPECT_EQ(shown(around_skipped(scene.root, {}, true)).size(), shown(plain.root).size());
  EXPECT_FALSE(around_skipped({}, {}, true));
  EXPECT_TRUE(shown(around_skipped(node_with(::osg::Group::create()), {})).empty());
  EXPECT_TRUE(shown(automated(node_with(::osg::Group::create()))).empty());

  // a scene that is a single geometry, with another below it, and one deep down
  const auto alone = node_with(triangles(box_corners()), {node_with(triangles(box_corners()))});
  EXPECT_EQ(shown(automated(alone)).size(), 24u);
  NodePtr deep = node_with(triangles(box_corners()));
  for (int i = 0; i < 100000; ++i) deep = node_with(::osg::Group::create(), {deep});
  deep->addChild(mixed_scene(skipped).root);
  EXPECT_EQ(shown(automated(deep)).size(), 20u);
}

/// Without the numbers of names that counters of the process give, and the lengths of such names.
std::string without_running_numbers(std::string text) {
  const auto is_digit = [&](std::size_t i) { return std::isdigit(text[i]) != 0; };
  for (const std::string& name : {std::string("MG_"), std::string("TexFiles/texture")})
    for (std::size_t at = 0; (at = text.find(name, at)) != text.npos;) {
      std::size_t begin = at - 1, end = at + name.size();
      while (is_digit(begin - 1)) --begin;
      while (is_digit(end)) ++end;
      text.erase(begin, end - begin);
      at = begin;
    }
  return text;
}

TEST(Automated, IsTheSameOnAnyNumberOfThreads) {
  std::string texts[2];
  for (int i = 0; i < 2; ++i) {
    osg::mergeGeo_setup setup;
    setup.numthreads = 1 + 3 * i;
    const mixed_scene scene(all_kinds);
    texts[i] = without_running_numbers(support::scene_text(around_skipped(scene.root, setup)));
  }
  EXPECT_TRUE(texts[0] == texts[1]) << texts[0].size() << ' ' << texts[1].size();
}

TEST(Automated, LosesNothingWhereMemoryRunsOut) {
  for (const unsigned kinds : {textured | glass | switched, all_kinds + 0u})
    expect_nothing_lost(kinds, [](const NodePtr& root, int) { return osg::optTree(root, ""); });
}

}  // namespace
}  // namespace morlu::tests
