#include "bench/peer_process.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#ifndef MORLU_BENCH_OSGUTIL
#define MORLU_BENCH_OSGUTIL ""
#endif

namespace morlu::bench {

namespace {

[[noreturn]] void fail(const char* why) {
  throw std::runtime_error(std::string("osgUtil's process: ") + why);
}

}  // namespace

bool peer_process::is_there() {
  return *MORLU_BENCH_OSGUTIL != 0;
}

peer_process::peer_process(const std::string& job) {
  const std::string program = MORLU_BENCH_OSGUTIL + job;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) fail("no socket");
  end_ = ends[0];
  process_ = fork();
  if (process_ < 0) fail("no process");
  if (process_ > 0) {
    close(ends[1]);
    return;
  }
  dup2(ends[1], STDIN_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
  _exit(127);
}

peer_process::~peer_process() {
  close(end_);  // which is its sign to go
  waitpid(process_, nullptr, 0);
}

void peer_process::send(const void* data, std::size_t bytes) const {
  const auto* from = static_cast<const char*>(data);
  while (bytes > 0) {
    const ssize_t sent = ::send(end_, from, bytes, MSG_NOSIGNAL);
    if (sent <= 0) fail("it doesn't listen");
    from += sent;
    bytes -= static_cast<std::size_t>(sent);
  }
}

std::uint32_t peer_process::ask(char command) const {
  send(&command, 1);
  std::uint32_t answer;
  if (recv(end_, &answer, sizeof(answer), MSG_WAITALL) != sizeof(answer)) fail("no answer");
  return answer;
}

}  // namespace morlu::bench
