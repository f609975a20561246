// Clean-up and placement as commands: on scenes of each kind, on real models, on wrong arguments.
#include <gtest/gtest.h>

#include "program/run_program.h"
#include "support/model_truth.h"
#include "support/scene_parts.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class Clean : public ProgramTest {};

osg::NodePtr part(const char* name) {
  return named(name, node_with(triangles(box_corners())));
}

TEST_F(Clean, RunsWhatIsAskedForInItsOrder) {
  const auto choice = osg::Switch::create();
  choice->setChoice(1);
  const auto hidden = part("hidden");
  hidden->setTravMask(0);
  const auto clear = part("clear");
  osg::Geometry::dcast(clear->getCore())->setMaterial(shining({1, 1, 1}, 0.001f));
  const auto scene = node_with(
      osg::DistanceLOD::create(),
      {node_with(
           osg::Group::create(),
           {node_with(choice, {part("a"), part("b")}), node_with(osg::Group::create(), {hidden}),
            clear, node_with(osg::Group::create()), part("b"),
            node_with(osg::Group::create(), {node_with(osg::Group::create(), {part("c")})})}),
       part("far")});
  save(scene, folder_ / "in.osb");
  const struct {
    const char* flags;
    int nodes, geometry;
  } cases[] = {{"", 14, 7},
               {"--lod", 12, 6},
               {"--switch", 12, 6},
               {"--hidden", 12, 6},
               {"--invisible", 13, 6},
               {"--empty", 14, 7},
               {"--lod --empty", 11, 6},
               {"--lod --switch --hidden --invisible --empty --collapse --unique-names", 4, 3}};
  for (const auto& [flags, nodes, geometry] : cases) {
    SCOPED_TRACE(flags);
    const Outcome outcome = run(std::string("clean in.osb -o out.osb ") + flags);
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.err.find("out.osb: " + std::to_string(nodes) + " nodes, " +
                               std::to_string(geometry) + " with geometry\n"),
              std::string::npos)
        << outcome.err;
  }
  const auto read = osg::SceneFileHandler::the().read((folder_ / "out.osb").string());
  ASSERT_TRUE(read) << read.error;
  std::string names;
  for (const osg::NodePtr& child : read.root->getChildren())
    names += std::string(osg::getName(child)) + ' ';
  EXPECT_EQ(names, "b_0 b_1 c ");

  save(part("alone"), folder_ / "in.osb");
  done("clean in.osb -o out.osb --empty --collapse --hidden");
  EXPECT_EQ(info("out.osb")["geometry_nodes"], 1);
  hidden->setTravMask(0);
  save(node_with(osg::Group::create(), {hidden}), folder_ / "in.osb");
  done("clean in.osb -o out.osb --hidden --empty --collapse");
  EXPECT_EQ(info("out.osb")["nodes"], 1);
}

/// Lower and upper corner of what is drawn.
std::vector<double> bounds_of(const json& about) {
  std::vector<double> all;
  for (const char* corner : {"min", "max"})
    for (const json& number : about["bounds"][corner]) all.push_back(number);
  return all;
}

TEST_F(Clean, RealModelsKeepWhatIsDrawnAndComeToLieWhereAsked) {
  done("generate in.osb --parts 60 --seed 2");
  std::vector<fs::path> files{"in.osb"};
  if (!support::model_truth().is_null())
    for (const char* model :
         {"small_city/scene.gltf", "spider/spider.obj", "negative_scale/NegativeScaleTest.glb"})
      files.push_back(fs::absolute(support::models_folder() / model));
  for (const fs::path& file : files) {
    SCOPED_TRACE(file);
    const std::string quoted = '\'' + file.string() + '\'', in = quoted + " -o out.osb ";
    const json before = info(quoted);
    done("clean " + in + "--lod --switch --invisible --empty --hidden --collapse --unique-names");
    const json cleaned = info("out.osb");
    for (const char* same : {"triangles", "lines", "points", "geometry_nodes", "cores"})
      EXPECT_EQ(cleaned[same], before[same]) << same;
    EXPECT_LE(cleaned["nodes"], before["nodes"]);
    EXPECT_EQ(bounds_of(cleaned), bounds_of(before));

    done("place " + in + "--center 1:2:-3");
    const json centred = info("out.osb");
    for (const char* same : {"triangles", "lines", "points", "geometry_nodes"})
      EXPECT_EQ(centred[same], before[same]) << same;
    const auto was = bounds_of(before);
    const double size =
        std::abs(was[3] - was[0]) + std::abs(was[4] - was[1]) + std::abs(was[5] - was[2]);
    for (unsigned axis = 0; axis < 3; ++axis) {
      const auto now = bounds_of(centred);
      // loose boxes of turned parts: the centre of their volume is not that of their corners
      EXPECT_NEAR(now[3 + axis] - now[axis], was[3 + axis] - was[axis], 1e-4 * size);
    }
    done("place out.osb -o box.osb --box=-1:0:1:1:2:3");
    const auto box = bounds_of(info("box.osb"));
    for (unsigned axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(box[axis], -1.0 + axis, 1e-5);
      EXPECT_LE(box[3 + axis], 1.0 + axis + 1e-5);
    }
    EXPECT_NEAR(std::max({box[3] - 1, box[4] - 2, box[5] - 3}), 0, 1e-5);
    done("place out.osb -o base.osb --base");
    const auto base = bounds_of(info("base.osb"));
    for (unsigned axis = 0; axis < 3; ++axis) EXPECT_TRUE(base[axis] >= 0 && base[axis] < 1);
  }
}

TEST_F(Clean, EndsWithTheExitCodeOfWhatWentWrong) {
  save(part("box"), folder_ / "in.osb");
  save(node_with(osg::Group::create()), folder_ / "empty.osb");
  save(node_with(triangles(std::vector<osg::Pnt3f>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}})),
       folder_ / "flat.osb");
  save(node_with(transform(osg::Matrix::translation(1, 2, 3)), {part("box")}),
       folder_ / "moved.osb");
  save(node_with(transform(osg::Matrix::translation(HUGE_VALF, 2, 3)), {part("box")}),
       folder_ / "endless.osb");
  save(node_with(osg::Switch::create(), {part("box")}), folder_ / "switched.osb");
  const std::pair<const char*, int> endings[] = {{"clean in.osb -o out.osb", 0},
                                                 {"clean in.osb", 2},
                                                 {"clean in.osb -o out.osb --all", 2},
                                                 {"clean missing.osb -o out.osb --lod", 3},
                                                 {"clean in.osb -o nowhere/out.osb --lod", 4},
                                                 {"clean in.osb -o out.obj --lod", 4},
                                                 {"place in.osb -o out.osb --size 2", 0},
                                                 {"place moved.osb -o out.osb --size 2", 0},
                                                 {"place in.osb -o out.osb", 2},
                                                 {"place in.osb -o out.osb --base --size 2", 2},
                                                 {"place in.osb -o out.osb --size 0", 2},
                                                 {"place in.osb -o out.osb --size inf", 2},
                                                 {"place in.osb -o out.osb --center 1:2", 2},
                                                 {"place in.osb -o out.osb --center 1:2:3x", 2},
                                                 {"place in.osb -o out.osb --center 1:2:3:4", 2},
                                                 {"place in.osb -o out.osb --center ''", 2},
                                                 {"place in.osb -o out.osb --box 0:0:0:1:0:1", 2},
                                                 {"place in.osb -o out.osb --box 0:0:0:1:1", 2},
                                                 {"place empty.osb -o out.osb --base", 1},
                                                 {"place flat.osb -o out.osb --size 1", 1},
                                                 {"place moved.osb -o out.osb --base", 1},
                                                 {"place switched.osb -o out.osb --base", 1},
                                                 {"place endless.osb -o out.osb --center 1:2:3", 1},
                                                 {"place missing.osb -o out.osb --base", 3},
                                                 {"place in.osb -o nowhere/out.osb --base", 4}};
  for (const auto& [arguments, code] : endings) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exit_code, code) << arguments << outcome.err;
    EXPECT_EQ(outcome.out, "") << arguments;
    EXPECT_NE(outcome.err.find("morlu: "), std::string::npos) << outcome.err;
  }
}

}  // namespace
