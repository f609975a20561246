// Whole programs, from .glb to .glb: `morlu optimise` beside gltfpack without quantization, which
// leaves instances as they are, and beside the same with -mm, which merges them into world space
// as ours does, but cuts nothing. Measured is the processor's time, all of it.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/figure.h"
#include "bench/temporary_file.h"
#include "morlu/primitives.h"
#include "osg/geometry.h"
#include "osg/io/model_files.h"
#include "sample/sample_assembly.h"

namespace {

using morlu::bench::contender;
using morlu::bench::contest;
using morlu::bench::temporary_file;

/// Starts a program whose output goes nowhere. Throws if it can't be started.
pid_t start(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t outputs;
  posix_spawn_file_actions_init(&outputs);
  for (const int output : {STDOUT_FILENO, STDERR_FILENO})
    posix_spawn_file_actions_addopen(&outputs, output, "/dev/null", O_WRONLY, 0);
  pid_t process;
  const int failure =
      posix_spawn(&process, arguments[0], &outputs, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&outputs);
  if (failure != 0) throw std::runtime_error("can't start " + words[0]);
  return process;
}

/// User and system seconds of a whole process. Throws if it fails.
double run_program(const std::vector<std::string>& words) {
  const pid_t process = start(words);
  int status = 0;
  rusage used{};
  if (wait4(process, &status, 0, &used) != process || status != 0)
    throw std::runtime_error(words[0] + " failed");
  const auto seconds = [](const timeval& of) {
    return static_cast<double>(of.tv_sec) + 1e-6 * static_cast<double>(of.tv_usec);
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

struct counts {
  std::size_t draws = 0, triangles = 0;

  explicit counts(const osg::NodePtr& root) {
    std::list<osg::NodePtr> nodes;
    morlu::osg::collect_geo_nodes(root, nodes);
    draws = nodes.size();
    for (const osg::NodePtr& node : nodes)
      triangles += static_cast<std::size_t>(
          morlu::osg::count_triangles(osg::Geometry::dcast(node->getCore())));
  }
};

struct input_file {
  temporary_file file{"program_in.glb"};
  counts has;

  explicit input_file(const osg::NodePtr& scene) : has(scene) {
    const auto written = osg::io::writeGltf(scene, file.path());
    if (!written) throw std::runtime_error(written.error);
  }
};

/// What is wrong with a file that was made of `input`.
std::string fault_of(const input_file& input, const std::string& output, bool merges) {
  const auto read = osg::io::readGltf(output);
  if (!read) return read.error;
  const counts has(read.root);
  if (has.triangles != input.has.triangles) return "other triangles";
  return merges && has.draws > input.has.draws / 10 ? "parts are not merged" : "";
}

/// `words` are followed by -o and the output's name.
contender program(const std::string& name, const std::shared_ptr<input_file>& input,
                  std::vector<std::string> words, bool merges) {
  const auto output = std::make_shared<temporary_file>(name.empty() ? "ours.glb" : "theirs.glb");
  const auto seconds = std::make_shared<double>();
  words.insert(words.end(), {"-o", output->path()});
  return {.name = name,
          .run = [=] { *seconds = run_program(words); },
          .took = [=] { return *seconds; },
          .fault = [=] { return fault_of(*input, output->path(), merges); }};
}

contest open(unsigned parts, bool peer_merges) {
  const auto input =
      std::make_shared<input_file>(morlu::sample::make_sample_assembly({.parts = parts}));
  const std::string in = input->file.path();
  contest opened{.ours = program("", input, {MORLU_BENCH_PROGRAM, "optimise", in}, true)};
#ifdef MORLU_BENCH_GLTFPACK
  std::vector<std::string> words{MORLU_BENCH_GLTFPACK, "-i", in, "-noq"};
  if (peer_merges) words.push_back("-mm");
  opened.peer =
      program(peer_merges ? "gltfpack -noq -mm" : "gltfpack -noq", input, words, peer_merges);
#else
  static_cast<void>(peer_merges);
#endif
  return opened;
}

const morlu::bench::registration figures({
    {"merge", "program, 1k parts", "CPU, beside gltfpack", "ms", [] { return open(1000, false); }},
    {"merge", "program, 1k parts", "CPU, beside gltfpack -mm", "ms",
     [] { return open(1000, true); }},
    {"merge", "program, 10k parts", "CPU, beside gltfpack", "ms",
     [] { return open(10'000, false); }},
    {"merge", "program, 10k parts", "CPU, beside gltfpack -mm", "ms",
     [] { return open(10'000, true); }},
});

}  // namespace
