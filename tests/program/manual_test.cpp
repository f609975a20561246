#include "manual.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "cli.h"
#include "run_program.h"

namespace {

class Manual : public ProgramTest {
 protected:
  Manual() { morlu::program::describe_program(program_); }

  /// What bash offers for the last of the words.
  std::string completed(const std::string& words) const {
    write("complete", morlu::program::bash_completion(program_) + "COMP_WORDS=(morlu " + words +
                          ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n" +
                          "_morlu\necho \"${COMPREPLY[@]}\"\n");
    const std::string out = (folder_ / "out").string();
    const std::string command = "bash -u '" + (folder_ / "complete").string() + "' >'" + out + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return content_of(out);
  }

  CLI::App program_;
};

TEST_F(Manual, BashCompletesCommandsAndOptions) {
  EXPECT_EQ(completed("gen"), "generate\n");
  EXPECT_EQ(completed("--v"), "--version\n");
  EXPECT_EQ(completed("generate out.osb --s"), "--seed\n");
  EXPECT_EQ(completed("info --j"), "--json\n");
  EXPECT_EQ(completed("info plant.gl"), "\n");  // left to the shell's own completion of files
}

TEST_F(Manual, PageTellsEveryCommandAndOption) {
  const std::string page = morlu::program::manual_page(program_, "1.2.3");
  for (const char* text :
       {".TH morlu 1 \"\" \"morlu 1.2.3\"\n", ".SS morlu convert [OPTIONS] IN OUT\n",
        ".SS morlu info [OPTIONS] FILE...\n",
        ".B \\-\\-parts N\nNumber of parts (1 to 10,000,000); 1000 if not given.\n",
        "Exit codes: 0 done"})
    EXPECT_NE(page.find(text), std::string::npos) << text;
  // A line that starts with a dot is a request: no text may begin one by accident.
  for (std::size_t at = page.find("\n."); at != std::string::npos; at = page.find("\n.", at + 1))
    EXPECT_TRUE(std::isupper(page[at + 2]) || page.compare(at + 2, 2, "nf") == 0 ||
                page.compare(at + 2, 2, "fi") == 0)
        << page.substr(at, 40);
}

}  // namespace
