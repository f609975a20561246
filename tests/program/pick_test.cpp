// What rays meet and what touches, as the program tells it.
#include <gtest/gtest.h>

#include <filesystem>

#include "run_program.h"
#include "scene_parts.h"

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
