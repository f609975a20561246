// What rays meet and what touches, as the program tells it.
#include <gtest/gtest.h>

#include <filesystem>

#include "feature_ids.h"
#include "morlu/optimiser.h"
#include "run_program.h"
#include "support/scene_parts.h"

namespace {

using nlohmann::json;
using osg::Matrix;

//   y          turned and stretched:     mirrored:
//   |   box    x 9..11 y -2..2 z -3..3   x -11..-9 y -2..2 z -1..1
//   +-- x
class Pick : public ProgramTest {
 protected:
  Pick() {
    const auto box = triangles(box_corners());
    const Matrix turned = Matrix::translation(10, 0, 0) *
                          Matrix::rotation({0, 0, 1}, 1.57079632679f) * Matrix::scale(2, 1, 3);
    const Matrix mirrored = Matrix::translation(-10, 0, 0) * Matrix::scale(-1, 2, 1);
    const auto right = named("right", node_with(transform(turned), {named("box", node_with(box))}));
    const auto left = named("left", node_with(transform(mirrored), {node_with(box)}));
    save(named("plant", node_with(osg::Group::create(), {right, left})), folder_ / "s.osb");
  }

  json pick(const std::string& origin, const std::string& direction) const {
    return json::parse(
        done("pick s.osb --json --origin '" + origin + "' --direction '" + direction + "'"));
  }
};

void expect_near(const json& found, const std::array<double, 3>& expected) {
  ASSERT_EQ(found.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(found[i], expected[i], 2e-6) << i << found;
}

TEST_F(Pick, TellsTheNearestTriangleInTheWorld) {
  const json side = pick("0,0.5,0.25", "5,0,0");
  EXPECT_EQ(side["schema"], 1);
  EXPECT_EQ(side["hit"], true);
  EXPECT_EQ(side["node"], "box");
  EXPECT_EQ(side["path"], "plant/right/box");
  EXPECT_EQ(side["triangle"].get<int>() / 2, 3);  // the box's side y
  EXPECT_NEAR(side["distance"], 9.0, 2e-6);
  expect_near(side["point"], {9, 0.5, 0.25});
  expect_near(side["normal"], {-1, 0, 0});

  // A direction too short for floats, numbers without digits before the dot.
  const json top = pick("10.5, 1, 20", "0,-.0e5,-1e-99");
  EXPECT_NEAR(top["distance"], 17.0, 2e-5);
  expect_near(top["point"], {10.5, 1, 3});
  expect_near(top["normal"], {0, 0, 1});

  const json mirrored = pick("-.5,1.5,0.5", "-1,0,0");
  EXPECT_EQ(mirrored["path"], "plant/left/");
  EXPECT_EQ(mirrored["triangle"].get<int>() / 2, 0);
  EXPECT_NEAR(mirrored["distance"], 8.5, 2e-6);
  expect_near(mirrored["normal"], {1, 0, 0});

  const std::string text = done("pick s.osb --origin 0,0,0 --direction 1,0.1,0");
  EXPECT_NE(text.find("plant/right/box"), std::string::npos) << text;
}

TEST_F(Pick, InventsNothingWithoutAHit) {
  for (const char* direction : {"0,1,0", "0,0,-1"}) {
    const json none = pick("0,0,0", direction);
    EXPECT_EQ(none["hit"], false);
    for (const char* key : {"node", "path", "triangle", "distance", "point", "normal"})
      EXPECT_TRUE(none.contains(key) && none[key].is_null()) << none;
  }
  EXPECT_EQ(pick("10,0,0", "0,1,0")["hit"], false);  // from inside there are backs alone
  EXPECT_EQ(done("pick s.osb --origin 0,0,0 --direction 0,1,0"), "no hit\n");
}

TEST_F(Pick, RefusesWhatIsNoVectorBeforeItReads) {
  for (const char* vector : {"1,2", "1,2,3,4", "1,2,x", "1,,2", "", "nan,0,0", "0,inf,0",
                             "1e39,0,0", "1 2 3", "1,2,3,"}) {
    for (const char* other : {" --origin '", " --direction '"}) {
      const std::string given = other + std::string(vector) + "'";
      const bool is_origin = given.find("origin") != std::string::npos;
      const Outcome result =
          run("pick none.osb" + given + (is_origin ? " --direction 1,0,0" : " --origin 1,0,0"));
      EXPECT_EQ(result.exit_code, 2) << given << result.err;
      EXPECT_NE(result.err.find(is_origin ? "--origin" : "--direction"), std::string::npos);
    }
  }
  EXPECT_EQ(run("pick none.osb --origin 1,0,0 --direction 0,-0,0").exit_code, 2);
  EXPECT_EQ(run("pick none.osb --origin 1,0,0").exit_code, 2);
  EXPECT_EQ(run("pick none.osb --origin 1,0,0 --direction 1,0,0").exit_code, 3);
}

// --- Sources of an optimised scene
// ----------------------------------------------------------------

//   flat, whose triangles are all unusable, has an id that the optimised scene is without
//   left x -11..-9, nameless x -1..1, right x 9..11; all in one geometry afterwards
class PickSource : public ProgramTest {
 protected:
  void SetUp() override {
    const auto root = node_with(osg::Group::create());
    const std::vector<osg::Pnt3f> flat(3, osg::Pnt3f(1, 2, 3));
    root->addChild(named("flat", node_with(triangles(flat))));
    root->addChild(part("left \xC3\xA4", -10));
    root->addChild(part("", 0));
    root->addChild(part("right", 10));
    optimise(root, "opt(1),maxtris(5000),deleteunusedtc(0),idmap(map)");
    save(optimised_, folder_ / "small.glb");
    save(optimised_, folder_ / "small.osb");
  }

  static osg::NodePtr part(const std::string& name, float x) {
    const auto core = triangles(box_corners());
    const auto coords = osg::GeoTexCoords2f::create();
    for (int i = 0; i < 36; ++i) coords->push_back(osg::Vec2f(0.25f, 0.5f));
    core->setTexCoords(coords);
    return node_with(transform(Matrix::translation(x, 0, 0)), {named(name, node_with(core))});
  }

  /// The id map is written where the process stands.
  void optimise(const osg::NodePtr& root, const std::string& params) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder_);
    testing::internal::CaptureStdout();
    optimised_ = morlu::osg::optTree(root, params);
    testing::internal::GetCapturedStdout();
    std::filesystem::current_path(before);
    morlu::program::mark_feature_ids(optimised_);
  }

  json pick(const std::string& file, int x) const {
    return json::parse(done("pick --json --idmap map.json --direction 0,0,-1 --origin " +
                            std::to_string(x) + ",0.5,20 " + file));
  }

  osg::NodePtr optimised_;
};

TEST_F(PickSource, TellsItByTheId) {
  ASSERT_EQ(json::parse(content_of(folder_ / "map.json"))["numberOfIDs"], 2);
  EXPECT_EQ(info("small.glb")["geometry_nodes"], 1);
  done("convert small.glb again.gltf");
  done("convert small.osb late.glb");
  for (const char* file : {"small.glb", "small.osb", "again.gltf", "late.glb"}) {
    SCOPED_TRACE(file);
    EXPECT_EQ(pick(file, -10)["source"], "left \xC3\xA4");
    EXPECT_EQ(pick(file, 10)["source"], "right");
    const json nameless = pick(file, 0), none = pick(file, 5);
    EXPECT_EQ(nameless["hit"], true);
    EXPECT_TRUE(nameless["source"].is_null()) << nameless;
    EXPECT_TRUE(!none["hit"] && none["source"].is_null()) << none;
  }
  const std::string ray = "pick small.glb --origin 10,0.5,20 --direction 0,0,-1";
  EXPECT_NE(done(ray + " --idmap map.json").find("source    right\n"), std::string::npos);
  EXPECT_EQ(done(ray).find("source"), std::string::npos);
}

TEST_F(PickSource, RefusesMapsThatAreNone) {
  write("empty.json", "");
  write("broken.json", content_of(folder_ / "map.json").substr(0, 300));
  write("list.json", "[]");
  write("nameless.json", R"({"mapping": [{"name": "a"}, {"min": "0 0 0"}]})");
  write("longer.json", R"({"mapping": [{"name": "a"}, {"name": "b"}, {"name": "c"}]})");
  write("deep.json", std::string(1000000, '['));
  std::filesystem::create_directory(folder_ / "folder.json");
  for (const char* map : {"none.json", "empty.json", "broken.json", "list.json", "nameless.json",
                          "longer.json", "deep.json", "folder.json"}) {
    const Outcome result =
        run("pick small.glb --origin 0,0,9 --direction 0,0,-1 --idmap " + std::string(map));
    EXPECT_EQ(result.exit_code, 3) << map;
    EXPECT_EQ(result.out, "") << map;
    EXPECT_NE(result.err.find(map), std::string::npos) << result.err;
  }
  save(node_with(triangles(box_corners())), folder_ / "plain.glb");  // without ids
  EXPECT_EQ(run("pick plain.glb --origin 0,0,9 --direction 0,0,-1 --idmap map.json").exit_code, 3);
}

class Collide : public ProgramTest {
 protected:
  void SetUp() override {
    const auto box = triangles(box_corners());
    save(named("a", node_with(box)), folder_ / "a.osb");
    // Another place in the file, so that the offset is seen to come on top.
    const auto inner = named("b", node_with(triangles(box_corners())));
    save(node_with(transform(Matrix::translation(0.5, 0.5, 0)), {inner}), folder_ / "b.osb");
    save(node_with(transform(Matrix::scale(0.5)), {node_with(box)}), folder_ / "small.osb");
  }
  json collide(const std::string& arguments) const {
    return json::parse(done("collide --json " + arguments));
  }
};

TEST_F(Collide, TellsWhereSurfacesCross) {
  const json both = collide("a.osb b.osb --offset 1,-0.2,0.3");  // b's x from 0.5, y -0.7, z -0.7
  EXPECT_EQ(both["hit"], true);
  EXPECT_EQ(both["node_a"], "a");
  EXPECT_EQ(both["node_b"], "b");
  const std::array<double, 3> low{0.5, -0.7, -0.7};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    EXPECT_GE(both["point"][axis], low[axis] - 1e-5);
    EXPECT_LE(both["point"][axis], 1.0 + 1e-5);
  }
  const std::string text = done("collide a.osb b.osb");
  EXPECT_NE(text.find("node b  b\n"), std::string::npos) << text;
}

TEST_F(Collide, TellsThatNothingTouches) {
  for (const char* apart : {"a.osb b.osb --offset 1.6,0,0", "a.osb b.osb --offset 0,-2.6,0",
                            "a.osb b.osb --offset 1.6,0,0 --tolerance 5", "a.osb small.osb"}) {
    const json none = collide(apart);
    EXPECT_EQ(none["hit"], false) << apart;
    for (const char* key : {"point", "node_a", "node_b"})
      EXPECT_TRUE(none.contains(key) && none[key].is_null()) << none;
  }
  EXPECT_EQ(done("collide a.osb small.osb"), "no collision\n");
}

TEST_F(Collide, RefusesWrongArguments) {
  for (const char* wrong : {"a.osb", "a.osb b.osb --offset 1,2", "a.osb b.osb --tolerance -1",
                            "a.osb b.osb --tolerance nan", "a.osb b.osb b.osb"})
    EXPECT_EQ(run(std::string("collide ") + wrong).exit_code, 2) << wrong;
  EXPECT_EQ(run("collide a.osb none.osb").exit_code, 3);
}

}  // namespace
