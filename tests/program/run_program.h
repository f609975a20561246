#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <nlohmann/json.hpp>

#include "support/temp_folder.h"

inline std::string content_of(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// What became of a run of the program.
struct Outcome {
  int exit_code;  // -1 for a crash
  std::string out, err;
};

/// Each test works in an empty folder of its own, which is the program's working directory.
class ProgramTest : public testing::Test {
 protected:
  /// Runs the program with arguments as a shell takes them. What it says begins at a line's begin.
  Outcome run(const std::string& arguments) const {
    const std::string out = (folder_ / ".out").string(), err = (folder_ / ".err").string();
    const std::string command = "cd '" + folder_.string() + "' && '" MORLU_PROGRAM "' " +
                                arguments + " >'" + out + "' 2>'" + err + "' </dev/null";
    const int status = std::system(command.c_str());
    Outcome outcome{WIFEXITED(status) ? WEXITSTATUS(status) : -1, content_of(out), content_of(err)};
    const std::string& text = outcome.err;
    for (auto at = text.find("morlu: "); at != text.npos; at = text.find("morlu: ", at + 1))
      EXPECT_TRUE(at == 0 || text[at - 1] == '\n') << arguments << ": " << text;
    return outcome;
  }
  /// The results of a command that is expected to do its work.
  std::string done(const std::string& arguments) const {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exit_code, 0) << arguments << ": " << outcome.err;
    return outcome.out;
  }
  nlohmann::json info(const std::string& files) const {
    return nlohmann::json::parse(done("info --json " + files));
  }
  void write(const std::string& file, const std::string& content) const {
    std::ofstream(folder_ / file, std::ios::binary) << content;
  }

  const support::TempFolder folder_;
};
