#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace morlu::bench {

/// A peer in a process of its own, on the other end of a socket that is its standard input and
/// output: for those whose names clash with ours. The program in osgutil/ says what it wants.
class peer_process {
 public:
  /// `job`: osgutil/`job`.cpp. Throws std::runtime_error, as all do, if the peer doesn't play
  /// along.
  explicit peer_process(const std::string& job);
  ~peer_process();
  peer_process(const peer_process&) = delete;
  peer_process& operator=(const peer_process&) = delete;

  void send(const void* data, std::size_t bytes) const;
  /// Each command is answered by a number, when it is carried out.
  std::uint32_t ask(char command) const;

  /// Whether such peers are installed.
  static bool is_there();

 private:
  int end_;
  pid_t process_;
};

}  // namespace morlu::bench
