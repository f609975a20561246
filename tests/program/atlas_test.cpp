// The atlas and smaller images as commands, and pictures of textured scenes before and after.
#include <gtest/gtest.h>

#include <map>

#include <osg/scene_file_handler.h>

#include "morlu/materials.h"
#include "output_to_error.h"
#include "program/read_picture.h"
#include "program/run_program.h"
#include "support/model_truth.h"
#include "support/scene_parts.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class Atlas : public ProgramTest {
 protected:
  Picture drawn(const std::string& file) const {
    done("render " + file + " -o drawn.png --size 160x160");
    return read_picture(folder_ / "drawn.png");
  }
  /// Draws a scene before and after so many of its textures went into an atlas. Coordinates at the
  /// edges of textures move by a texel, and what is drawn small is blurred otherwise.
  void compare(const fs::path& file, unsigned images) const {
    SCOPED_TRACE(file);
    const auto read = osg::SceneFileHandler::the().read((folder_ / file).string());
    ASSERT_TRUE(read) << read.error;
    save(read.root, folder_ / "before.osb");
    {
      const morlu::program::OutputToError messages_aside;
      EXPECT_EQ(morlu::osg::createTextureAtlasForScene(read.root, 4096, 2, 2), images);
    }
    save(read.root, folder_ / "after.osb");
    expect_alike(0.01);
    const Outcome scaled = run("scale-images before.osb -o after.osb --min-side 8");
    EXPECT_EQ(scaled.exit_code, 0) << scaled.err;
    EXPECT_EQ(scaled.out, "");
    EXPECT_NE(scaled.err.find(" images scaled, pixels from "), std::string::npos);
    EXPECT_EQ(scaled.err.find(": 0 of "), std::string::npos) << scaled.err;
    expect_alike(0.03);
  }
  /// Few values of both pictures are `far` from each other.
  void expect_alike(double share_of_far) const {
    const Picture before = drawn("before.osb"), after = drawn("after.osb");
    ASSERT_EQ(before.bytes.size(), after.bytes.size());
    double sum = 0, far = 0;
    for (std::size_t i = 0; i < before.bytes.size(); ++i) {
      const int difference = std::abs(int{before.bytes[i]} - int{after.bytes[i]});
      sum += difference;
      far += difference > 32;
    }
    EXPECT_LT(sum, 1.5 * static_cast<double>(before.bytes.size()));
    EXPECT_LT(far, share_of_far * static_cast<double>(before.bytes.size()));
  }
};

TEST_F(Atlas, LeavesPicturesAsTheyAre) {
  done("generate in.osb --parts 250 --materials 12 --textures 8 --seed 3");
  compare("in.osb", 7);  // the eighth is the only transparent one
  if (support::model_truth().is_null()) GTEST_SKIP() << "no models";
  const std::pair<const char*, unsigned> models[] = {
      {"small_city/scene.gltf", 0},  // one image in eight files
      {"marbles/marble.gltf", 4},
      {"spider/spider.obj", 4},
      {"texture_settings/TextureSettingsTest.glb", 2},
      {"vertex_colors/VertexColorTest.glb", 2},
      {"negative_scale/NegativeScaleTest.glb", 2}};
  for (const auto& [model, images] : models)
    compare(fs::absolute(support::models_folder() / model), images);
}

/// A square with the image on it, `tiles` times from left to right.
osg::NodePtr square(const osg::ImagePtr& image, float tiles) {
  const auto material = osg::SimpleTexturedMaterial::create();
  material->setImage(image);
  const auto geometry = triangles(std::vector<osg::Pnt3f>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
  const auto coords = osg::GeoTexCoords2f::create();
  for (const osg::Vec2f& t : {osg::Vec2f(0, 0), osg::Vec2f(tiles, 0), osg::Vec2f(0, 1)})
    coords->push_back(t);
  geometry->setTexCoords(coords);
  geometry->setMaterial(material);
  return node_with(geometry);
}

TEST_F(Atlas, WritesPagesAndTiles) {
  std::map<std::string, osg::ImagePtr> images;
  const auto image = [&](const std::string& name, osg::UInt32 format, int width, int height) {
    const auto made = osg::Image::create();
    made->set(format, width, height);
    for (std::size_t i = 0; i < made->getSize(); ++i)
      made->getData()[i] = static_cast<osg::UInt8>(i * i + 40 * images.size());
    made->setName(name);
    return images[name] = made;
  };
  const auto wood = image("wood", osg::gl::kRGB, 12, 7);
  const auto stone = osg::Image::dcast(wood->shallowCopy());
  stone->setName("stone");
  stone->getData()[stone->getSize() - 1] ^= 1;
  const auto root = node_with(osg::Group::create(),
                              {square(wood, 2), square(image("tile", osg::gl::kRGB, 5, 9), 1),
                               square(stone, 1), square(image("leaf", osg::gl::kRGBA, 8, 8), 1),
                               square(image("net", osg::gl::kRGBA, 4, 8), 1)});
  save(root, folder_ / "in.osb");
  const Outcome outcome = run("atlas in.osb -o out --max-size 64 --json");
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.out, content_of(folder_ / "out/tiles.json"));
  EXPECT_NE(outcome.err.find("warning: in.osb: the image 'stone' begins as 'wood' does"),
            std::string::npos)
      << outcome.err;

  const json result = json::parse(outcome.out);
  EXPECT_EQ(result["input"], "in.osb");
  ASSERT_EQ(result["pages"].size(), 2u);
  ASSERT_EQ(result["tiles"].size(), 4u);
  for (const json& tile : result["tiles"]) {
    const json& page = result["pages"][tile["page"].get<std::size_t>()];
    const Picture picture = read_picture(folder_ / "out" / page["file"].get<std::string>());
    EXPECT_EQ(picture.width, page["width"]);
    EXPECT_EQ(picture.height, page["height"]);
    EXPECT_EQ(picture.channels == 4, page["alpha"]);
    const osg::ImagePtr& source = images.at(tile["image"]);
    const int width = source->getWidth(), height = source->getHeight();
    EXPECT_EQ(tile["width"], width);
    EXPECT_EQ(tile["height"], height);
    EXPECT_EQ(tile["repeats"], json::array({source == wood ? 2 : 1, 1}));
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width * tile["repeats"][0].get<int>(); ++x) {
        const auto* p = source->getData() + (y * width + x % width) * int(source->getBpp());
        const Pixel expected{p[0], p[1], p[2], source->getBpp() == 4 ? p[3] : 255};
        ASSERT_EQ(picture.at(tile["x"].get<int>() + x, tile["y"].get<int>() + y), expected);
      }
  }
}

TEST_F(Atlas, EndsWithTheExitCodeOfWhatWentWrong) {
  save(node_with(osg::Group::create()), folder_ / "in.osb");
  write("file", "");
  write("broken.glb", "glTF");
  const std::pair<const char*, int> endings[] = {
      {"atlas in.osb -o out", 0},
      {"atlas in.osb", 2},
      {"atlas in.osb -o out --max-size 31", 2},
      {"atlas in.osb -o out --max-size 8193", 2},
      {"atlas missing.osb -o new", 3},
      {"atlas in.osb -o file", 4},
      {"atlas in.osb -o nowhere/out", 4},
      {"scale-images in.osb -o out.osb --factor 1 --min-side 0", 0},
      {"scale-images in.osb", 2},
      {"scale-images in.osb -o out.osb --factor 0", 2},
      {"scale-images in.osb -o out.osb --factor 2147483648", 2},
      {"scale-images in.osb -o out.osb --min-side -1", 2},
      {"scale-images broken.glb -o out.osb", 3},
      {"scale-images in.osb -o out.obj", 4}};
  for (const auto& [arguments, code] : endings) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exit_code, code) << arguments << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.err.find("morlu: "), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(folder_ / "new"));
}

}  // namespace
