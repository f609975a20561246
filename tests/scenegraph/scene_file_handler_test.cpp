// Scene files: which format reads and writes what, and what stands on the disk when it fails.

#include "osg/scene_file_handler.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "osg/geometry.h"
#include "support/run_threads.h"
#include "support/scene_parts.h"
#include "support/scene_text.h"
#include "support/short_files.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using osg::NodePtr;
using osg::SceneFileHandler;

/// An empty folder of its own for each test.
class SceneFiles : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  static std::string content(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  const support::TempFolder folder_;
};

/// A node with a geometry of that many positions.
NodePtr make_scene(osg::UInt32 positions) {
  const auto geometry = osg::Geometry::create();
  geometry->setPositions(osg::GeoPositions3f::create());
  for (osg::UInt32 i = 0; i < positions; ++i)
    geometry->getPositions()->push_back(osg::Pnt3f(static_cast<float>(i), 1, 2));
  return named("scene", node_with(geometry));
}

TEST_F(SceneFiles, WriteAndRead) {
  const auto& handler = SceneFileHandler::the();
  // Smaller and larger than what is passed to the system in one piece, and many small objects.
  NodePtr many = osg::Node::create();
  for (int i = 0; i < 20000; ++i) many->addChild(make_scene(1));
  for (const NodePtr& scene : {make_scene(3), make_scene(1000000), many}) {
    EXPECT_TRUE(handler.write(scene, path("simple.osb").c_str(), false));
    const auto result = handler.read(path("simple.osb"));
    ASSERT_TRUE(result) << result.error;
    EXPECT_TRUE(support::scene_text(result.root) == support::scene_text(scene));
  }
  EXPECT_TRUE(handler.writeScene(make_scene(3), path("UPPER.OSB")));
  EXPECT_TRUE(handler.read(path("UPPER.OSB")));
  EXPECT_EQ(files(), (std::vector<std::string>{"UPPER.OSB", "simple.osb"}));

  // Compression is never done, a null node or name never written.
  EXPECT_TRUE(handler.write(make_scene(3), path("simple.osb").c_str(), true));
  EXPECT_EQ(content(path("simple.osb")), content(path("UPPER.OSB")));
  EXPECT_FALSE(handler.write(osg::NullFC, path("null.osb").c_str(), false));
  EXPECT_FALSE(handler.write(make_scene(1), nullptr, false));
  EXPECT_FALSE(fs::exists(path("null.osb")));
}

TEST_F(SceneFiles, MessagesNameFileAndReason) {
  const auto& handler = SceneFileHandler::the();
  std::ofstream(path("broken.osb")) << "no scene";
  std::ofstream(path("empty.osb")) << "";
  fs::create_directory(path("folder.osb"));
  const std::pair<std::string, const char*> unreadable[] = {
      {path("broken.osb"), "byte 0: this is not an .osb file"},
      {path("empty.osb"), "byte 0: this is not an .osb file"},
      {path("missing.osb"), "No such file"},
      {path("folder.osb"), "not a regular file"},
      {path("nosuchfolder/a.osb"), "No such file"},
      {path("a.unknown"), "files of suffix 'unknown' can't be read"},
      {path("nosuffix"), "no suffix"},
      {path("dir.osb/nosuffix"), "no suffix"},
      {"", "no suffix"},
  };
  for (const auto& [file, reason] : unreadable) {
    const auto result = handler.read(file);
    EXPECT_TRUE(result.root.isNull());
    EXPECT_EQ(result.error.find(file + ": "), 0u) << result.error;
    EXPECT_NE(result.error.find(reason), std::string::npos) << result.error;
  }
  for (const std::string& file :
       {path("folder.osb"), path("nosuchfolder/a.osb"), path("a.unknown"), path("nosuffix")}) {
    const auto result = handler.writeScene(make_scene(1), file);
    EXPECT_FALSE(result.written);
    EXPECT_EQ(result.error.find(file + ": "), 0u) << result.error;
  }
  EXPECT_EQ(files(), (std::vector<std::string>{"broken.osb", "empty.osb", "folder.osb"}));
}

TEST_F(SceneFiles, NoHalfFileStays) {
  const auto& handler = SceneFileHandler::the();
  ASSERT_TRUE(handler.writeScene(make_scene(3), path("old.osb")));
  const std::string old = content(path("old.osb"));
  {
    const support::ShortFiles limit(100000);
    for (const char* name : {"new.osb", "old.osb"}) {
      const auto result = handler.writeScene(make_scene(1000000), path(name));
      EXPECT_FALSE(result.written);
      EXPECT_NE(result.error.find("it can't be written: "), std::string::npos) << result.error;
    }
  }
  EXPECT_EQ(files(), std::vector<std::string>{"old.osb"});
  EXPECT_EQ(content(path("old.osb")), old);
  // A folder that takes no files, not even from root.
  EXPECT_NE(handler.writeScene(make_scene(1), "/proc/new.osb").error.find("to its folder: "),
            std::string::npos);
}

TEST_F(SceneFiles, ReplacingKeepsLinkAndPermissions) {
  const auto& handler = SceneFileHandler::the();
  std::ofstream(path("real.osb")) << "old";
  fs::permissions(path("real.osb"), fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink("real.osb", path("link.osb"));
  std::ofstream(path(".unfinished-0.osb")) << "of a writer that died";
  ASSERT_TRUE(handler.writeScene(make_scene(3), path("link.osb")));
  EXPECT_TRUE(fs::is_symlink(path("link.osb")));
  EXPECT_TRUE(handler.read(path("real.osb")));
  EXPECT_EQ(fs::status(path("real.osb")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(content(path(".unfinished-0.osb")), "of a writer that died");
  EXPECT_EQ(files().size(), 3u);
}

TEST_F(SceneFiles, RegisteredFormatsCount) {
  auto& handler = SceneFileHandler::the();
  ASSERT_FALSE(handler.findFormat("a.tst"));
  handler.registerFormat({"first", {"tst", "tst2"}, {}, {}});
  const auto* first = handler.findFormat("a.tst");
  handler.registerFormat({"second",
                          {"tst"},
                          [](const std::string&) -> osg::SceneReadResult {
                            throw std::runtime_error("a parser gave up");
                          },
                          {}});
  ASSERT_TRUE(first && handler.findFormat("x/y.z.TsT"));
  EXPECT_EQ(handler.findFormat("x/y.z.TsT")->name, "second");
  EXPECT_EQ(handler.findFormat("a.tst2"), first);
  EXPECT_EQ(first->name, "first");
  EXPECT_EQ(handler.read("a.tst").error, "a.tst: a parser gave up");
  EXPECT_EQ(handler.read("a.tst2").error, "a.tst2: files of suffix 'tst2' can't be read");
  EXPECT_FALSE(handler.write(make_scene(1), "a.tst", false));
  const auto formats = handler.getFormats();
  ASSERT_GE(formats.size(), 3u);
  EXPECT_EQ(formats.front()->suffixes, std::vector<std::string>{"osb"});
  EXPECT_EQ(formats[formats.size() - 2], first);
}

TEST_F(SceneFiles, ThreadsWriteSideBySide) {
  support::run_threads(4, [this](int k) {
    const NodePtr scene = make_scene(1000);
    for (int i = 0; i < 20; ++i)  // two threads a file
      EXPECT_TRUE(SceneFileHandler::the().writeScene(scene, path(k % 2 ? "odd.osb" : "even.osb")));
  });
  EXPECT_EQ(files(), (std::vector<std::string>{"even.osb", "odd.osb"}));
  EXPECT_TRUE(SceneFileHandler::the().read(path("odd.osb")));
}

}  // namespace
