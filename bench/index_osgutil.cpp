#include "bench/index_peer.h"

#ifdef MORLU_BENCH_OSGUTIL
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace morlu::bench {

namespace {

/// The peer's process, on the other end of a socket that is its standard input and output. The
/// program beside it in osgutil/ says what the bytes mean.
class peer_process {
 public:
  peer_process() {
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
    execl(MORLU_BENCH_OSGUTIL, MORLU_BENCH_OSGUTIL, static_cast<char*>(nullptr));
    _exit(127);
  }
  peer_process(const peer_process&) = delete;
  peer_process& operator=(const peer_process&) = delete;
  ~peer_process() {
    close(end_);  // which is its sign to go
    waitpid(process_, nullptr, 0);
  }

  void send(const void* data, std::size_t bytes) const {
    const auto* from = static_cast<const char*>(data);
    while (bytes > 0) {
      const ssize_t sent = ::send(end_, from, bytes, MSG_NOSIGNAL);
      if (sent <= 0) fail("it doesn't listen");
      from += sent;
      bytes -= static_cast<std::size_t>(sent);
    }
  }
  /// Each command is answered by a number, when it is carried out.
  std::uint32_t ask(char command) const {
    send(&command, 1);
    std::uint32_t answer;
    if (recv(end_, &answer, sizeof(answer), MSG_WAITALL) != sizeof(answer)) fail("no answer");
    return answer;
  }

 private:
  [[noreturn]] static void fail(const char* why) {
    throw std::runtime_error(std::string("osgUtil's process: ") + why);
  }

  int end_;
  pid_t process_;
};

}  // namespace

std::optional<contender> index_visitor_peer(const std::shared_ptr<const flat_corners>& of) {
  const auto peer = std::make_shared<peer_process>();
  const std::uint32_t corners = of->size();
  peer->send(&corners, sizeof(corners));
  peer->send(of->rows.data(), of->rows.size() * sizeof(float));
  return contender{.name = "osgUtil",
                   .prepare = [=] { peer->ask('p'); },
                   .run = [=] { peer->ask('r'); },
                   .fault = [=] { return peer->ask('v') == of->vertices ? "" : "other vertices"; }};
}

}  // namespace morlu::bench
#else
namespace morlu::bench {

std::optional<contender> index_visitor_peer(const std::shared_ptr<const flat_corners>&) {
  return {};
}

}  // namespace morlu::bench
#endif
