// Runs the program as its users do.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "run_program.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Program = ProgramTest;

void expect_failure(const Outcome& result, int exit_code,
                    std::initializer_list<const char*> words) {
  EXPECT_EQ(result.exit_code, exit_code) << result.err;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err.rfind("morlu: ", 0), 0u) << result.err;
  for (const char* word : words) EXPECT_NE(result.err.find(word), std::string::npos) << result.err;
}

TEST_F(Program, HelpsAndTellsItsVersion) {
  EXPECT_EQ(done("--version"), "morlu " MORLU_VERSION "\n");
  const std::string help = done("--help");
  for (const char* command :
       {"info", "convert", "generate", "optimise", "pick", "collide", "render"}) {
    EXPECT_NE(help.find(command), std::string::npos) << command;
    const std::string own = done(command + std::string(" --help"));
    EXPECT_NE(own.find("Examples:\n  morlu " + std::string(command)), std::string::npos) << own;
  }
}

TEST_F(Program, RefusesWrongCommandLines) {
  for (const char* arguments : {"", "polish x.osb", "info", "info --yaml x.osb", "convert x.osb",
                                "convert a.osb b.osb c.osb", "generate", "generate x.osb --parts 0",
                                "generate x.osb --parts -1", "generate x.osb --parts ten",
                                "generate x.osb --materials 3 --textures 4",
                                "generate x.osb --seed 1.5", "generate x.osb --seed ''"}) {
    expect_failure(run(arguments), 2, {});
    EXPECT_FALSE(fs::exists(folder_ / "x.osb")) << arguments;
  }
  expect_failure(run("polish x.osb"), 2, {"no command 'polish'", "Try: morlu --help"});
  expect_failure(run("--polish"), 2, {"no option '--polish'"});
  expect_failure(run("info"), 2, {"FILE is required", "Try: morlu info --help"});
}

TEST_F(Program, SaysWhyAFileCannotBeRead) {
  fs::create_directory(folder_ / "folder.glb");
  write("letter.txt", "Dear reader");
  write("broken.glb", "this is no scene");
  write("empty.osb", "");
  write("broken.gltf", "{\"asset\": {\"version\": \"2.0\"}, \"scenes\": [{\"nodes\": [7]}]");
  expect_failure(run("info missing.glb"), 3, {"missing.glb", "no such file"});
  expect_failure(run("info folder.glb"), 3, {"folder.glb", "directory"});
  expect_failure(run("info letter.txt"), 3, {"letter.txt", "'txt'", "osb", "gltf", "glb"});
  for (const char* file : {"broken.glb", "empty.osb", "broken.gltf"}) {
    expect_failure(run(std::string("info --json ") + file), 3, {file});
    expect_failure(run(std::string("convert ") + file + " out.osb"), 3, {file});
    EXPECT_FALSE(fs::exists(folder_ / "out.osb"));
  }
}

TEST_F(Program, SaysWhyAFileCannotBeWritten) {
  done("generate in.osb --parts 5");
  fs::create_directory(folder_ / "folder.osb");
  expect_failure(run("convert in.osb out.stl"), 4, {"out.stl", "'stl'", "osb"});
  expect_failure(run("convert in.osb out"), 4, {"out", "no suffix"});
  for (const char* suffix : {"osb", "glb", "gltf"}) {
    const std::string name = std::string("nowhere/out.") + suffix;
    expect_failure(run("convert in.osb " + name), 4, {name.c_str()});
    expect_failure(run("generate " + name), 4, {name.c_str()});
  }
  expect_failure(run("generate folder.osb"), 4, {"folder.osb"});
  EXPECT_TRUE(fs::is_empty(folder_ / "folder.osb"));
  if (fs::exists("/dev/full")) {
    fs::create_symlink("/dev/full", folder_ / "full.osb");
    expect_failure(run("generate full.osb"), 4, {"full.osb"});
  }
}

TEST_F(Program, InfoKeepsItsSchema) {
  done("generate plant.osb --parts 200 --materials 10 --textures 4 --lines --points");
  const json plant = info("plant.osb");
  std::set<std::string> keys;
  for (const auto& [key, value] : plant.items()) keys.insert(key);
  EXPECT_EQ(keys, (std::set<std::string>{"schema", "file", "nodes", "geometry_nodes", "cores",
                                         "triangles", "lines", "points", "unusable_triangles",
                                         "vertices", "index_entries", "materials", "images",
                                         "bounds", "acmr", "warnings"}));
  EXPECT_EQ(plant["schema"], 1);
  EXPECT_EQ(plant["file"], "plant.osb");
  EXPECT_EQ(plant["materials"], 10);
  EXPECT_EQ(plant["images"], 4);
  EXPECT_GT(plant["lines"], 0);
  EXPECT_GT(plant["points"], 0);
  EXPECT_TRUE(plant["acmr"].is_number_float());
  EXPECT_EQ(plant["bounds"]["min"].size(), 3u);
  EXPECT_LT(plant["bounds"]["min"][0], plant["bounds"]["max"][0]);
  EXPECT_EQ(plant["warnings"], json::array());

  write("empty.gltf", R"({"asset": {"version": "2.0"}})");
  const json both = info("plant.osb empty.gltf");
  ASSERT_TRUE(both.is_array());
  EXPECT_EQ(both[0], plant);
  EXPECT_EQ(both[1]["triangles"], 0);
  EXPECT_TRUE(both[1]["bounds"].is_null() && both[1]["acmr"].is_null());
  EXPECT_EQ(both[1]["warnings"].back(), "no geometry");
}

TEST_F(Program, InfoShowsWhatItCanOfSeveralFiles) {
  done("generate plant.osb --parts 1000");
  const Outcome table = run("info plant.osb missing.osb plant.osb");
  EXPECT_EQ(table.exit_code, 3);
  EXPECT_NE(table.err.find("missing.osb: no such file"), std::string::npos) << table.err;
  EXPECT_NE(table.out.find("geometry nodes"), std::string::npos);
  EXPECT_NE(table.out.find("  1,000"), std::string::npos) << table.out;
  const Outcome as_json = run("info --json plant.osb missing.osb");
  EXPECT_EQ(as_json.exit_code, 3);
  EXPECT_EQ(json::parse(as_json.out).size(), 1u);
}

TEST_F(Program, GeneratesTheSameBytesTwice) {
  for (const char* suffix : {"osb", "glb"}) {
    const std::string a = std::string("a.") + suffix, b = std::string("b.") + suffix;
    const std::string options = " --parts 300 --seed 4 --lines --points";
    done("generate " + a + options);
    done("generate " + b + options);
    EXPECT_GT(fs::file_size(folder_ / a), 100000u);
    EXPECT_EQ(content_of(folder_ / a), content_of(folder_ / b)) << suffix;
  }
}

// All figures but the file's name survive every way around.
TEST_F(Program, ConvertKeepsTheScene) {
  done("generate a.osb --parts 300 --materials 20 --textures 6 --lines --points");
  done("convert a.osb b.glb");
  done("convert b.glb c.osb");
  done("convert c.osb d.gltf");
  done("convert d.gltf e.OSB");
  json all = info("a.osb b.glb c.osb d.gltf e.OSB");
  for (json& one : all) {
    one.erase("file");
    EXPECT_EQ(one, all[0]);
  }
  EXPECT_EQ(all[0]["geometry_nodes"].get<int>() > 300, true);
  // The native format keeps everything, so that a second pass changes no byte.
  done("convert c.osb f.osb");
  EXPECT_EQ(content_of(folder_ / "c.osb"), content_of(folder_ / "f.osb"));
}

}  // namespace
