#include "bench/index_peer.h"
#include "bench/peer_process.h"

namespace morlu::bench {

std::optional<contender> index_visitor_peer(const std::shared_ptr<const flat_corners>& of) {
  if (!peer_process::is_there()) return {};
  const auto peer = std::make_shared<peer_process>("index_mesh");
  const std::uint32_t corners = of->size();
  peer->send(&corners, sizeof(corners));
  peer->send(of->rows.data(), of->rows.size() * sizeof(float));
  return contender{.name = "osgUtil",
                   .prepare = [=] { peer->ask('p'); },
                   .run = [=] { peer->ask('r'); },
                   .fault = [=] { return peer->ask('v') == of->vertices ? "" : "other vertices"; }};
}

}  // namespace morlu::bench
