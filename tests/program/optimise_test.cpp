// Optimises scenes as users do, and looks at what is written.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <set>

#include <osg/scene_file_handler.h>

#include "program/read_picture.h"
#include "program/run_program.h"
#include "support/model_truth.h"
#include "support/scene_parts.h"
#include "support/surface_measure.h"

namespace {

namespace fs = std::filesystem;
using morlu::test::surface_measure;
using nlohmann::json;

const char* const param_strings[] = {"opt(1),maxtris(5000)",
                                     "opt(0),maxtris(300)",
                                     "opt(2),maxtris(100000)",
                                     "opt(3),maxtris(2000)",
                                     "cacheopt(1)",
                                     "cacheopt(1),opt(2)",
                                     "opt(1),maxtris(1000),flat(0)",
                                     "opt(1),maxtris(5000),idmap(ids)",
                                     "opt(1),maxtris(5000),calcnormals(1)",
                                     "opt(1),maxtris(2000),mergehierarchy(1)",
                                     "opt(1),maxtris(5000),mergesamename(1)",
                                     "opt(1),maxtris(5000),alphageometry(1),numthreads(4)",
                                     "flat(1)"};

/// What a file shows, area by a colour that stands for a material: files don't keep handles.
struct Shown {
  std::map<std::string, double> area_of_color;
  surface_measure measure;
  std::size_t lines = 0, points = 0;
};

std::string color_of(const osg::MaterialPtr& material) {
  const auto chunks = osg::ChunkMaterial::dcast(material);
  const auto colors = chunks ? chunks->findFirstChunk<osg::MaterialChunk>() : osg::NullFC;
  if (!colors) return "none";
  std::ostringstream text;
  for (osg::UInt32 k = 0; k < 4; ++k) text << colors->getDiffuse()[k] << ' ';
  return text.str();
}

void add(const osg::NodePtr& node, Shown& shown) {
  if (const auto geometry = osg::Geometry::dcast(node->getCore())) {
    const osg::Matrix world = node->getToWorld();
    shown.measure.add(geometry, geometry->getMaterial(), world,
                      [](const auto&, const auto&, const auto&) { return false; });
    for (auto at = geometry->beginPrimitives(); !at.isAtEnd(); ++at) {
      shown.lines += osg::lineCount(at.getType(), at.getLength());
      if (at.getType() == osg::kPoints) shown.points += at.getLength();
    }
  }
  for (const osg::NodePtr& child : node->getChildren()) add(child, shown);
}

Shown shown_by(const fs::path& file) {
  const auto read = osg::SceneFileHandler::the().read(file.string());
  EXPECT_TRUE(read) << read.error;
  Shown shown;
  add(read.root, shown);
  for (const auto& [material, area] : shown.measure.area_of_material)
    shown.area_of_color[color_of(material)] += area;
  return shown;
}

void expect_same(const Shown& before, const Shown& after) {
  EXPECT_EQ(after.lines, before.lines);
  EXPECT_EQ(after.points, before.points);
  ASSERT_EQ(after.area_of_color.size(), before.area_of_color.size());
  for (const auto& [color, area] : before.area_of_color) {
    ASSERT_TRUE(after.area_of_color.contains(color)) << color;
    EXPECT_NEAR(after.area_of_color.at(color), area, 1e-4 * area) << color;
  }
  for (std::size_t k = 0; k < 3; ++k) {
    const double tolerance = 1e-5 * (before.measure.high[k] - before.measure.low[k]);
    EXPECT_NEAR(after.measure.low[k], before.measure.low[k], tolerance);
    EXPECT_NEAR(after.measure.high[k], before.measure.high[k], tolerance);
  }
}

/// What shows most of a scene in those bounds, from the right, above and before; to be given to all
/// files whose pictures are compared, since boxes of their own differ by rounding.
std::string view_of(const json& bounds) {
  constexpr double to_eye[] = {0.7, 0.55, 0.85};
  double middle[3], diagonal = 0;
  for (std::size_t k = 0; k < 3; ++k) {
    const double low = bounds["min"][k], high = bounds["max"][k];
    middle[k] = (low + high) / 2;
    diagonal = std::hypot(diagonal, high - low);
  }
  std::ostringstream eye, target;
  for (std::size_t k = 0; k < 3; ++k) {
    eye << (k ? "," : "") << middle[k] + to_eye[k] * diagonal;
    target << (k ? "," : "") << middle[k];
  }
  return " --size 128x128 --eye=" + eye.str() + " --target=" + target.str();
}

/// The share of channels that differ by more than 4 of 255, which no eye tells apart.
double differing_share(const Picture& a, const Picture& b) {
  EXPECT_EQ(a.bytes.size(), b.bytes.size());
  if (a.bytes.size() != b.bytes.size()) return 1;
  std::size_t differing = 0;
  for (std::size_t i = 0; i < a.bytes.size(); ++i)
    differing += std::abs(int{a.bytes[i]} - int{b.bytes[i]}) > 4;
  return static_cast<double>(differing) / static_cast<double>(3 * a.width * a.height);
}

class Optimise : public ProgramTest {
 protected:
  Picture drawn(const std::string& file, const std::string& view) const {
    done("render " + file + " -o drawn.png" + view);
    return read_picture(folder_ / "drawn.png");
  }
  /// Nearly all models give the same bytes. Normals of parts that are scaled by different factors
  /// are turned only, which shows on few pixels, as does a pixel on an edge that rounding moved.
  void expect_drawn_as(const Picture& before, const std::string& file, const std::string& view,
                       double share = 0.001) const {
    Picture nothing = before;
    for (std::size_t i = 4; i < nothing.bytes.size(); ++i) nothing.bytes[i] = nothing.bytes[i - 4];
    EXPECT_GT(differing_share(before, nothing), 0.03);
    EXPECT_LE(differing_share(before, drawn(file, view)), share) << file;
  }
};

// Merged, cut, ordered or left alone: the surface of each material stays where it is, and shows.
TEST_F(Optimise, KeepsTheSurfaceWithAnyParameters) {
  done("generate in.osb --parts 250 --materials 12 --textures 4 --lines --points --seed 3");
  const Shown before = shown_by(folder_ / "in.osb");
  ASSERT_GT(before.measure.triangles, 10000u);
  ASSERT_GT(before.area_of_color.size(), 3u);
  const std::string view = view_of(info("in.osb")["bounds"]);
  const Picture picture = drawn("in.osb", view);
  for (const std::string params : param_strings) {
    SCOPED_TRACE(params);
    for (const char* out : {"out.osb", "out.glb"}) {
      const json report = json::parse(
          done(std::string("optimise in.osb --json -o ") + out + " --params '" + params + "'"));
      expect_same(before, shown_by(folder_ / out));
      // Each part of the sample has a name of its own.
      const bool merges = params.find("maxtris") != params.npos;
      const bool has_fewer = report["output"]["geometry_nodes"] < report["input"]["geometry_nodes"];
      EXPECT_TRUE(has_fewer || !merges || params.find("mergesamename") != params.npos);
    }
    expect_drawn_as(picture, "out.glb", view);
  }
}

// What is taken away is what was asked for, and no failure.
TEST_F(Optimise, BakesReducesAndPacks) {
  done("generate in.glb --parts 60 --materials 8 --textures 5");
  const json before = info("in.glb");
  const auto optimised = [&](const std::string& params) {
    return json::parse(
        done("optimise in.glb -o out.glb --json --params '" + params + "'"))["output"];
  };

  const json baked = optimised("maxtris(5000),ambientocclusion(2)");
  EXPECT_GE(baked["triangles"], before["triangles"]);
  EXPECT_EQ(baked["images"], 0);

  EXPECT_EQ(optimised("maxtris(1000),buildhull(1)")["triangles"], 999);
  // Equal brightness rounds in two ways, so that some more may stay.
  const json bright = optimised("maxtris(500),ambientocclusion(2),buildhullwithcolors(1)");
  EXPECT_GE(bright["triangles"], 499);
  EXPECT_LT(bright["triangles"], 600);
  const json rest = optimised("opt(1),ambientgutout(1)");
  EXPECT_LE(rest["triangles"], before["triangles"]);
  EXPECT_GT(rest["triangles"], 0);

  const json packed = optimised("maxtris(5000),maxtexturesize(1024)");
  EXPECT_LT(packed["materials"], before["materials"]);
  EXPECT_LT(packed["images"], before["images"]);
  EXPECT_GT(packed["images"], 0);
}

TEST_F(Optimise, ReportsInJsonAndAsATable) {
  done("generate in.glb --parts 100");
  const Outcome run_once = run("optimise in.glb -o out.glb --json --report report.json");
  ASSERT_EQ(run_once.exit_code, 0) << run_once.err;
  EXPECT_NE(run_once.err.find("Optimizing Tree..."), std::string::npos) << run_once.err;
  const json report = json::parse(run_once.out);
  EXPECT_EQ(report, json::parse(content_of(folder_ / "report.json")));

  std::set<std::string> keys;
  for (const auto& [key, value] : report.items()) keys.insert(key);
  EXPECT_EQ(keys, (std::set<std::string>{"schema", "input", "output", "params", "seconds",
                                         "peak_memory_bytes"}));
  EXPECT_EQ(report["schema"], 1);
  EXPECT_EQ(report["input"], info("in.glb"));
  EXPECT_EQ(report["output"], info("out.glb"));
  EXPECT_EQ(report["params"], "opt(1),maxtris(5000),optimizetc(0)");
  EXPECT_GT(report["peak_memory_bytes"], 1000000);
  for (const char* step : {"read", "optimise", "write"}) EXPECT_GT(report["seconds"][step], 0.0);

  const std::string table = done("optimize in.glb -o again.glb --table");
  EXPECT_NE(table.find("draw calls"), std::string::npos) << table;
  EXPECT_EQ(content_of(folder_ / "out.glb"), content_of(folder_ / "again.glb"));
}

TEST_F(Optimise, TellsWhatHasNoEffect) {
  done("generate in.osb --parts 5");
  const Outcome odd =
      run("optimise in.osb -o out.osb --params 'opt(1),maxtris(50),polish(1),flat,maxtris(7)'");
  EXPECT_EQ(odd.exit_code, 0);
  EXPECT_EQ(odd.out, "");
  for (const char* words :
       {"'polish(1)' is no option", "'flat' is not of the form", "'maxtris(7)' was given before"})
    EXPECT_NE(odd.err.find(words), std::string::npos) << odd.err;
  EXPECT_EQ(done("optimise in.osb -o out.osb"), "");
}

TEST_F(Optimise, EndsWithTheExitCodeOfWhatWentWrong) {
  done("generate in.osb --parts 5");
  write("broken.glb", "this is no scene");
  const std::pair<const char*, int> failures[] = {
      {"in.osb", 2},
      {"in.osb -o out.osb --json --table", 2},
      {"in.osb -o out.osb --idmap-strict", 2},
      {"in.osb -o out.osb --idmap-strict --params 'opt(1),maxtris(9),idmap()'", 2},
      {"missing.osb -o out.osb", 3},
      {"broken.glb -o out.osb", 3},
      {"in.osb -o out.stl", 4},
      {"in.osb -o nowhere/out.osb", 4},
      {"in.osb -o out.osb --params 'maxtris(9),buildhullwithcolors(1)'", 1},
      {"in.osb -o out.osb --report nowhere/report.json", 4},
      {"in.osb -o out.osb --report .", 4},
      {"in.osb -o out.osb --params 'maxtris(9),idmap(nowhere/ids)'", 4}};
  for (const auto& [arguments, code] : failures) {
    const Outcome outcome = run("optimise " + std::string(arguments));
    EXPECT_EQ(outcome.exit_code, code) << arguments << outcome.err;
    EXPECT_NE(outcome.err.find("morlu: "), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.out, "") << arguments;
    EXPECT_FALSE(fs::exists(folder_ / "out.osb")) << arguments;
  }
  EXPECT_EQ(run("optimise in.osb -o out.osb --json >/dev/full; echo $?").out, "4\n");
}

TEST_F(Optimise, RebuildTellsWhatIsLostAndWhatIsNotThere) {
  done("generate in.osb --parts 30 --textures 3 --lines");
  const Outcome outcome = run("rebuild in.osb -o out.osb --leaf 500");
  EXPECT_NE(outcome.err.find("parts have a material that is more"), std::string::npos);
  EXPECT_EQ(info("out.osb")["lines"], info("in.osb")["lines"]);
  save(node_with(triangles(box_corners())), folder_ / "top.osb");
  done("rebuild top.osb -o out.osb");
  EXPECT_EQ(info("out.osb")["triangles"], 12);
  save(node_with(osg::Group::create()), folder_ / "empty.osb");
  EXPECT_EQ(run("rebuild empty.osb -o out.osb").exit_code, 1);
  EXPECT_EQ(run("rebuild in.osb -o out.osb --leaf 0").exit_code, 2);
}

TEST_F(Optimise, WritesIdMapsThatParse) {
  const auto part = named("a \"quoted\"\nname", node_with(triangles(box_corners())));
  save(node_with(osg::Group::create(), {part}), folder_ / "in.osb");
  done("optimise in.osb -o out.glb --idmap-strict --params 'opt(1),maxtris(50),IDmap(ids)'");
  EXPECT_FALSE(content_of(folder_ / "ids.json").empty());
  const json strict = json::parse(content_of(folder_ / "ids.strict.json"));
  EXPECT_NE(strict.dump().find("a \\\"quoted\\\"\\nname"), std::string::npos) << strict;
  EXPECT_NE(content_of(folder_ / "out.glb").find("_FEATURE_ID_0"), std::string::npos);
}

// Coordinates without a base colour texture serve others, a normal map for one.
TEST_F(Optimise, KeepsCoordinatesThatOtherTexturesUse) {
  const auto image = osg::Image::create();
  const osg::UInt8 pixel[] = {128, 128, 255};
  ASSERT_TRUE(image->set(osg::gl::kRGB, 1, 1, 1, 1, 1, 0, pixel));
  const auto pbr = osg::PBRChunk::create();
  pbr->setDefinition(R"({"normalTexture":{"index":0}})");
  pbr->setImages({image});
  const auto material = shining({1, 0, 0});
  material->addChunk(pbr);
  const auto core = triangles(box_corners());
  const auto coordinates = osg::GeoTexCoords2f::create();
  for (osg::UInt32 i = 0; i < core->getPositions()->size(); ++i)
    coordinates->push_back({0.25f, 0.5f});
  core->setTexCoords(coordinates);
  core->setMaterial(material);
  save(node_with(osg::Group::create(), {node_with(core)}), folder_ / "in.osb");

  const auto has_coordinates = [&] {
    const auto read = osg::SceneFileHandler::the().read((folder_ / "out.osb").string());
    bool found = false;
    std::vector<osg::NodePtr> pending{read.root};
    while (!pending.empty()) {
      const osg::NodePtr node = pending.back();
      pending.pop_back();
      if (const auto geometry = osg::Geometry::dcast(node->getCore()))
        found |= geometry->getTexCoords() && !geometry->getTexCoords()->empty();
      pending.insert(pending.end(), node->getChildren().begin(), node->getChildren().end());
    }
    return found;
  };
  const json kept = json::parse(done("optimise in.osb -o out.osb --json"));
  EXPECT_EQ(kept["params"], "opt(1),maxtris(5000),optimizetc(0),deleteunusedtc(0)");
  EXPECT_TRUE(has_coordinates());
  const Outcome dropped =
      run("optimise in.osb -o out.osb --params 'maxtris(50),DeleteUnusedTC(1)'");
  EXPECT_FALSE(has_coordinates());
  EXPECT_NE(dropped.err.find("warning: texture coordinates are lost at 36 of 36"),
            std::string::npos)
      << dropped.err;
}

// Cutting for the cache keeps no secondary colours, and hidden geometry takes no part.
TEST_F(Optimise, WarnsOfWhatARunLoses) {
  std::vector<osg::Pnt3f> corners;
  for (int i = 0; i < 30000; ++i)
    for (const osg::Pnt3f& offset : {osg::Pnt3f(0, 0, 0), osg::Pnt3f(1, 0, 0), osg::Pnt3f(0, 1, 2)})
      corners.emplace_back(offset[0] + static_cast<float>(i), offset[1], offset[2]);
  const auto core = triangles(corners);
  const auto colors = osg::GeoColors3f::create();
  for (std::size_t i = 0; i < corners.size(); ++i) colors->push_back({0.5f, 0, 0});
  core->setSecondaryColors(colors);
  const auto hidden = node_with(triangles(box_corners()));
  hidden->setTravMask(0);
  save(node_with(osg::Group::create(), {node_with(core), hidden}), folder_ / "in.osb");

  const Outcome cut = run("optimise in.osb -o out.osb --params 'cacheopt(1),keeprenderfalse(1)'");
  EXPECT_EQ(cut.exit_code, 0) << cut.err;
  EXPECT_NE(cut.err.find("warning: secondary colours are lost at 90,000 of 90,000 corners"),
            std::string::npos)
      << cut.err;
  EXPECT_EQ(cut.err.find("take no part"), std::string::npos) << cut.err;
  const Outcome merged = run("optimise in.osb -o out.osb");
  EXPECT_NE(merged.err.find("warning: 1 geometry nodes take no part"), std::string::npos)
      << merged.err;
  EXPECT_EQ(merged.err.find("are lost"), std::string::npos) << merged.err;
}

// Coordinates past the picture's edge are not the same as those within where textures clamp.
TEST_F(Optimise, DrawsTexturesAsBefore) {
  const fs::path model = support::models_folder() / "texture_settings/TextureSettingsTest.glb";
  if (!fs::exists(model)) GTEST_SKIP() << "no models";
  const std::string in = std::string("'").append(fs::absolute(model).string()).append("'");
  done("optimise " + in + " -o out.glb");
  const std::string view = " --eye 0,0,15 --target 0,0,0 --size 200x200";
  const Picture before = drawn(in, view);
  EXPECT_EQ(drawn("out.glb", view).bytes, before.bytes);
  const Outcome shifted = run("optimise " + in + " -o out.glb --params 'maxtris(5000)'");
  EXPECT_NE(shifted.err.find("6 parts have textures that clamp or mirror"), std::string::npos)
      << shifted.err;
  EXPECT_GT(differing_share(before, drawn("out.glb", view)), 0.001);
}

// --- Real models ---------------------------------------------------------------------------------

class OptimiseModels : public Optimise, public testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    if (GetParam().empty()) GTEST_SKIP() << "no models";
    const fs::path path = fs::absolute(support::models_folder() / GetParam());
    model_ = std::string("'").append(path.string()).append("'");
    in_ = support::model_truth()[GetParam()];
    view_ = view_of(in_["bbox_world"]);
    if (in_["triangles"] > 0) picture_ = drawn(model_, view_);
  }

  /// Runs a command on the model: each usable triangle, all lines and points are there, in the same
  /// bounds, and the picture is the same but for a share. Returns what the file holds.
  json expect_kept(const std::string& command, double share = 0.001) const {
    SCOPED_TRACE(command);
    const Outcome outcome = run(command + ' ' + model_ + " -o out.glb");
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    const bool has_loss = outcome.err.find("more than its texture") != std::string::npos;
    EXPECT_TRUE(has_loss || outcome.err.find("are lost") == std::string::npos) << outcome.err;
    const json out = info("out.glb"), &box = in_["bbox_world"];
    const std::size_t rogue = std::max(in_["rogue_object"], in_["rogue_world"]);
    // rounding may decide on some
    EXPECT_GE(out["triangles"].get<std::size_t>() + 2, in_["triangles"].get<std::size_t>() - rogue);
    EXPECT_EQ(out["lines"], in_["lines"]);
    EXPECT_EQ(out["points"], in_["points"]);
    double extent = 0;
    for (int k = 0; k < 3; ++k)
      extent = std::max(extent, box["max"][k].get<double>() - box["min"][k].get<double>());
    for (const char* side : {"min", "max"})
      for (int k = 0; k < 3; ++k) EXPECT_NEAR(out["bounds"][side][k], box[side][k], 1e-5 * extent);
    if (in_["triangles"] > 0) expect_drawn_as(picture_, "out.glb", view_, has_loss ? 0.12 : share);
    return out;
  }

  std::string model_, view_;
  json in_;
  Picture picture_;
};

std::vector<std::string> readable_models() {
  auto names = support::models_with({".gltf", ".glb", ".obj", ".ply", ".stl", ".dae", ".3ds"});
  if (names.empty()) names.push_back("");
  return names;
}

TEST_P(OptimiseModels, KeepAllUsableTriangles) {
  for (const std::string form : {"opt(2),maxtris(3000000)", "opt(1),maxtris(5000)"}) {
    const json out = expect_kept("optimise --params '" + form + ",optimizetc(0)'");
    EXPECT_LE(out["triangles"], in_["triangles"]);
  }
}

// Cut for atlases; cores that are cut or have an atlas get new normals, which show.
TEST_P(OptimiseModels, AreRebuiltAndOptimisedWithoutOptions) {
  expect_kept("rebuild --hierarchy --leaf 3000", 0.12);
  expect_kept("optimise --params ''");
}

INSTANTIATE_TEST_SUITE_P(All, OptimiseModels, testing::ValuesIn(readable_models()),
                         [](const auto& model) {
                           return model.param.empty() ? "none" : support::test_name(model.param);
                         });

}  // namespace
