#include <list>
#include <map>
#include <memory>

#include "bench/merge_peer.h"
#include "bench/peer_process.h"
#include "morlu/primitives.h"
#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/material.h"

namespace morlu::bench {

namespace {

using ::osg::UInt32;

/// Numbers from 0 in the order of first use.
template <class Handle>
class numbering {
 public:
  UInt32 number(const Handle& of) {
    const auto [at, is_new] = numbers_.try_emplace(of.get(), size());
    if (is_new) all_.push_back(of);
    return at->second;
  }
  UInt32 size() const { return static_cast<UInt32>(all_.size()); }
  const std::vector<Handle>& all() const { return all_; }

 private:
  std::map<const void*, UInt32> numbers_;
  std::vector<Handle> all_;
};

class sender {
 public:
  explicit sender(const peer_process& to) : to_(to) {}

  void put(UInt32 number) const { to_.send(&number, sizeof(number)); }
  void put(const ::osg::Matrix& matrix) const { to_.send(matrix.getValues(), 16 * sizeof(float)); }
  template <class Property>
  void put_values(const Property& property, UInt32 width) const {
    std::vector<float> values;
    for (UInt32 i = 0; property && i < property->size(); ++i)
      for (UInt32 k = 0; k < width; ++k) values.push_back(property->getValue(i)[k]);
    to_.send(values.data(), values.size() * sizeof(float));
  }
  void put_corners(const ::osg::Geometry& geometry) const {
    std::vector<UInt32> corners(geometry.getIndices()->size());
    for (UInt32 i = 0; i < corners.size(); ++i) corners[i] = geometry.getIndices()->getValue(i);
    to_.send(corners.data(), corners.size() * sizeof(UInt32));
  }
  void put(const ::osg::Geometry& geometry, UInt32 material) const {
    put(material);
    put(geometry.getColors() ? 1 : 0);
    put(geometry.getTexCoords() ? 1 : 0);
    put(geometry.getPositions()->size());
    put(geometry.getIndices()->size());
    put_values(geometry.getPositions(), 3);
    put_values(geometry.getNormals(), 3);
    put_values(geometry.getColors(), 3);
    put_values(geometry.getTexCoords(), 2);
    put_corners(geometry);
  }

 private:
  const peer_process& to_;
};

struct sent {
  UInt32 parts, triangles;
};

/// Parts of the sample assembly: triangles with a single index.
sent send_parts(const ::osg::NodePtr& root, const peer_process& peer) {
  std::list<::osg::NodePtr> nodes;
  morlu::osg::collect_geo_nodes(root, nodes);
  numbering<::osg::GeometryPtr> cores;
  numbering<::osg::MaterialPtr> materials;
  UInt32 corners = 0;
  for (const ::osg::NodePtr& node : nodes) {
    const auto core = ::osg::Geometry::dcast(node->getCore());
    cores.number(core);
    materials.number(core->getMaterial());
    corners += core->getIndices()->size();
  }
  const sender to(peer);
  to.put(materials.size());
  to.put(cores.size());
  for (const ::osg::GeometryPtr& core : cores.all())
    to.put(*core, materials.number(core->getMaterial()));
  const auto parts = static_cast<UInt32>(nodes.size());
  to.put(parts);
  for (const ::osg::NodePtr& node : nodes) {
    to.put(cores.number(::osg::Geometry::dcast(node->getCore())));
    to.put(node->getToWorld());
  }
  return {parts, corners / 3};
}

}  // namespace

std::optional<contender> merging_visitors_peer(const ::osg::NodePtr& root, bool cache_order) {
  if (!peer_process::is_there()) return {};
  const auto peer = std::make_shared<peer_process>("merge_parts");
  const sent all = send_parts(root, *peer);
  return contender{
      .name = cache_order ? "osgUtil: merge, index, cache order" : "osgUtil: merge, index",
      .prepare = [=] { peer->ask('p'); },
      .run = [=] { peer->ask(cache_order ? 'c' : 'm'); },
      .fault = [=]() -> std::string {
        if (peer->ask('t') != all.triangles) return "other triangles";
        return peer->ask('d') < all.parts / 10 ? "" : "parts are not merged";
      }};
}

}  // namespace morlu::bench
