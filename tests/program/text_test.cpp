#include <gtest/gtest.h>

#include <sstream>

#include "cli.h"
#include "text_table.h"

namespace {

using namespace morlu::program;

TEST(Text, NumbersReadEasily) {
  EXPECT_EQ(grouped(0), "0");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(1000), "1,000");
  EXPECT_EQ(grouped(12345678), "12,345,678");
  EXPECT_EQ(grouped(~std::uint64_t{0}), "18,446,744,073,709,551,615");
  EXPECT_EQ(size_text(0), "0 bytes");
  EXPECT_EQ(size_text(999), "999 bytes");
  EXPECT_EQ(size_text(1000), "1 kB");
  EXPECT_EQ(size_text(999'600), "1 MB");  // not 1e+03 kB
  EXPECT_EQ(size_text(12'345'678), "12.3 MB");
}

TEST(Text, TablesAlignAndGoOnBelow) {
  TextTable table{{"nodes", "triangles"},
                  {{"a.osb", {"7", "1,000"}}, {"long_name.osb", {"12", "3"}}}};
  std::ostringstream narrow;
  table.print(narrow);
  EXPECT_EQ(narrow.str(),
            "           a.osb  long_name.osb\n"
            "nodes          7             12\n"
            "triangles  1,000              3\n");

  const std::string path = "/a/folder/with/a/long/name/that/no/column/holds/scene.osb";
  table.columns.assign(4, {path, {"1", "2"}});
  std::ostringstream wide;
  table.print(wide);
  std::istringstream lines(wide.str());
  int titles = 0, blank = 0;
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), 100u);
    blank += line.empty();
    for (std::size_t at = 0; (at = line.find("holds/scene.osb", at)) != std::string::npos; ++at)
      ++titles;
  }
  EXPECT_EQ(titles, 4);
  EXPECT_EQ(blank, 1);  // two blocks
}

}  // namespace
