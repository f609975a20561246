// Scenes with fewer triangles, as users get them.
#include <gtest/gtest.h>

#include <osg/scene_file_handler.h>

#include "morlu/primitives.h"
#include "program/run_program.h"
#include "support/scene_parts.h"

namespace {

namespace fs = std::filesystem;

/// A hilly sheet of 2 * n * n triangles, the last two of which stand behind it, as high as it is
/// wide; in kilometres, so that edges are short beside any number.
osg::GeometryPtr sheet(int n) {
  std::vector<osg::Pnt3f> corners;
  for (int i = 0; i < n * n; ++i)
    for (const auto& [dx, dy] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}})
      corners.push_back(i == n * n - 1 ? osg::Pnt3f(n * dx, 2 * n, n * dy)
                                       : osg::Pnt3f(i % n + dx, i / n + dy, std::sin(i % n + dx)));
  for (osg::Pnt3f& corner : corners)
    for (osg::UInt32 k = 0; k < 3; ++k) corner[k] *= 1e-3f;
  return triangles(corners);
}

class Simplify : public ProgramTest {
 protected:
  /// Two nodes with one hill, a dale, and a fence of triangles and lines.
  Simplify() {
    const auto hill = sheet(20), fence = sheet(10);
    osg::setName(hill, "earth");
    hill->setAttachmentField("soil", "loam");
    fence->getTypes()->push_back(osg::kLines);
    fence->getLengths()->push_back(2);
    for (const float x : {0, 1}) fence->getPositions()->push_back({x, 0, 9});
    save(node_with(osg::Group::create(),
                   {named("hill", node_with(hill)), named("twin", node_with(hill)),
                    named("dale", node_with(sheet(10))), named("fence", node_with(fence))}),
         folder_ / "in.osb");
    write("simple.osb", "mine");
  }
  /// Nothing is left in users' folders, and nothing of theirs is touched.
  ~Simplify() override {
    EXPECT_LE(std::distance(fs::directory_iterator(folder_), {}),
              5);  // two more are the test's own
    EXPECT_EQ(content_of(folder_ / "simple.osb"), "mine");
  }

  std::vector<int> triangles_of_out() const {
    const auto read = osg::SceneFileHandler::the().read((folder_ / "out.osb").string());
    EXPECT_TRUE(read) << read.error;
    std::vector<int> counts;
    for (const auto& node : read.root->getChildren()) {
      counts.push_back(morlu::osg::count_triangles(osg::Geometry::dcast(node->getCore())));
      EXPECT_GT(node->getVolume(true).getMax()[2], 9e-3f);  // the wide ones behind go last
    }
    const auto hill = read.root->getChild(0)->getCore();
    EXPECT_EQ(hill, read.root->getChild(1)->getCore());
    EXPECT_STREQ(osg::getName(hill), "earth");
    EXPECT_EQ(hill->getAttachmentField("soil"), "loam");
    return counts;
  }
};

TEST_F(Simplify, TakesTrianglesFromWhatIsAskedFor) {
  const Outcome all = run("simplify in.osb -o out.osb --triangles 150");
  EXPECT_EQ(all.exit_code, 0);
  for (const char* text : {"fence: stays as it is", "2 of 3 geometries made simpler, 1,000 tri"})
    EXPECT_NE(all.err.find(text), std::string::npos) << all.err;
  const auto few = triangles_of_out();
  EXPECT_LT(few[0], 250);
  EXPECT_LT(few[2], 200);
  EXPECT_EQ(few[3], 200);

  setenv("TMPDIR", "nowhere", 1);
  done("simplify in.osb -o out.osb --share 0.25 --name earth");
  unsetenv("TMPDIR");
  const auto one = triangles_of_out();
  EXPECT_LT(one[0], 500);
  EXPECT_EQ(one[2], 200);
  EXPECT_EQ(one[3], 200);
}

TEST_F(Simplify, EndsWithTheExitCodeOfWhatWentWrong) {
  const std::pair<const char*, int> endings[] = {{"in.osb -o out.osb --share 1", 0},
                                                 {"in.osb -o out.osb", 2},
                                                 {"in.osb -o out.osb --share 0.5 --triangles 9", 2},
                                                 {"in.osb -o out.osb --share nan", 2},
                                                 {"in.osb -o out.osb --triangles 0", 2},
                                                 {"in.osb -o out.osb --share 1 --name moon", 2},
                                                 {"simple.osb -o out.osb --share 1", 3},
                                                 {"in.osb -o nowhere/out.osb --share 1", 4}};
  for (const auto& [arguments, code] : endings)
    EXPECT_EQ(run("simplify " + std::string(arguments)).exit_code, code) << arguments;
}

}  // namespace
