// Splitting as a command.
#include <gtest/gtest.h>

#include "run_program.h"
#include "support/scene_parts.h"

namespace {

using nlohmann::json;

class Split : public ProgramTest {};

TEST_F(Split, WritesTheSameSceneInPieces) {
  done("generate in.glb --parts 60 --seed 4");
  for (const char* limit : {"--triangles 40", "--indices 90", "--share 0.01 --depth 40"}) {
    SCOPED_TRACE(limit);
    const json result = json::parse(done("split in.glb -o out.glb --json " + std::string(limit)));
    const json written = info("out.glb");
    const json& before = result["input"];
    EXPECT_GT(written["geometry_nodes"], 2 * before["geometry_nodes"].get<int>());
    EXPECT_EQ(written["geometry_nodes"], result["output"]["geometry_nodes"]);
    for (const char* key : {"triangles", "materials", "images", "bounds"})
      EXPECT_EQ(written[key], before[key]) << key;
  }
}

TEST_F(Split, SplitsARootAndTellsWhatStaysAboveTheLimit) {
  const auto whole = triangles(box_corners());
  save(named("box", node_with(whole)), folder_ / "box.osb");
  EXPECT_EQ(json::parse(done("split box.osb -o out.osb --triangles 5 --json"))["above_limit"], 0);
  EXPECT_EQ(info("out.osb")["triangles"], 12);
  EXPECT_GT(info("out.osb")["geometry_nodes"], 2);
  whole->getTypes()->setValue(osg::kLineStrip, 0);
  save(node_with(whole), folder_ / "lines.osb");
  const Outcome outcome = run("split lines.osb -o out.osb --share 0.5 --json");
  EXPECT_EQ(json::parse(outcome.out)["above_limit"], 1);
  EXPECT_NE(outcome.err.find("warning: 1 geometry nodes stay above the limit"), std::string::npos);
  EXPECT_EQ(info("out.osb")["lines"], 35);
}

TEST_F(Split, EndsWithTheExitCodeOfWhatWentWrong) {
  save(node_with(osg::Group::create()), folder_ / "in.osb");
  const std::pair<const char*, int> endings[] = {{"in.osb -o out.osb --triangles 1", 0},
                                                 {"in.osb -o out.osb", 2},
                                                 {"in.osb --triangles 1", 2},
                                                 {"in.osb -o out.osb --triangles 0", 2},
                                                 {"in.osb -o out.osb --indices 0", 2},
                                                 {"in.osb -o out.osb --share 1.5", 2},
                                                 {"in.osb -o out.osb --share nan", 2},
                                                 {"in.osb -o out.osb --triangles 1 --share 1", 2},
                                                 {"in.osb -o out.osb --triangles 1 --depth 1", 2},
                                                 {"in.osb -o out.osb --indices 1 --level 4", 2},
                                                 {"missing.osb -o out.osb --indices 1", 3},
                                                 {"in.osb -o nowhere/out.osb --indices 1", 4}};
  for (const auto& [arguments, code] : endings)
    EXPECT_EQ(run("split " + std::string(arguments)).exit_code, code) << arguments;
}

}  // namespace
