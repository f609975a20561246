// Collisions of two subgraphs, yes or no with the first contact, and the builds of their trees,
// beside FCL on one thread.
//
// A row holds encounters of one answer, touching or just apart, which every run has to give again.
// For balls the answer is known: they overlap by 0.002 to 0.02 of their radius, or stand as far
// apart. For parts both sides have to agree. Pairs that they see differently are left out, and may
// be one in 10, each for one of two reasons that is looked for: ours is the answer of brute force
// by the same segment tests, which see an edge only when it runs from the front of a triangle to
// its back; or the contact is a matter of rounding, and our answer changes when a part is moved by
// 1e-4 of the smaller one's diagonal.

#include <osg/cores.h>
#include <osg/geometry.h>

#include <cmath>
#include <list>
#include <random>

#include "bench/collision_peer.h"
#include "bench/figure.h"
#include "bench/ray_scenes.h"
#include "ray/attachment.h"
#include "ray/triangle_pairs.h"
#include "sample/sample_assembly.h"

namespace {

using namespace morlu::bench;

bool our_answer(const osg::NodePtr& a, const osg::NodePtr& b) {
  morlu::osg::CollisionResults results;
  return morlu::osg::collision(a, b, {}, results);
}

/// One question, for both sides.
struct encounter {
  osg::NodePtr a, b;
  std::size_t mesh_a = 0, pose_a = 0, mesh_b = 0, pose_b = 0;

  bool ours() const { return our_answer(a, b); }
  bool theirs(const collision_peer& peer) const {
    return peer.collide(mesh_a, pose_a, mesh_b, pose_b);
  }
};

struct encounters {
  std::unique_ptr<collision_peer> peer = collision_peer::make();  // null: not installed
  osg::NodePtr root = osg::NullFC;  // what the chosen ones are parts of, if they are
  std::vector<encounter> chosen;
  std::string fault;  // why they are none to measure with
};

osg::NodePtr node_of(const osg::NodeCorePtr& core) {
  auto node = osg::Node::create();
  node->setCore(core);
  return node;
}

/// `inner` moved and turned.
osg::NodePtr placed(const osg::NodePtr& inner, const osg::Matrix& world) {
  const auto transform = osg::Transform::create();
  transform->setMatrix(world);
  auto node = node_of(transform);
  node->addChild(inner);
  return node;
}

contest contest_of(const std::shared_ptr<encounters>& those, bool touching) {
  const auto side = [=](const std::function<bool(const encounter&)>& answer) {
    const auto hits = std::make_shared<std::size_t>(0);
    return contender{.run =
                         [=] {
                           *hits = 0;
                           for (const encounter& each : those->chosen) *hits += answer(each);
                         },
                     .fault =
                         [=] {
                           if (!those->fault.empty()) return those->fault;
                           const std::size_t all = those->chosen.size();
                           if (all == 0) return std::string("there is no encounter");
                           if (*hits == (touching ? all : 0)) return std::string();
                           return std::to_string(*hits) + " of " + std::to_string(all) + " touch";
                         }};
  };
  contest match{.ours = side([](const encounter& each) { return each.ours(); }),
                .work = static_cast<double>(those->chosen.size()) * 1e-3};
  if (those->peer) {
    match.peer = side([=](const encounter& each) { return each.theirs(*those->peer); });
    match.peer->name = those->peer->name();
  }
  return match;
}

// --- Balls ---------------------------------------------------------------------------------------

class numbers {
 public:
  float between(float low, float high) {
    return low + (high - low) * static_cast<float>(engine_() >> 8) * 0x1p-24f;
  }
  osg::Vec3f direction() {
    for (;;) {
      const osg::Vec3f v(between(-1, 1), between(-1, 1), between(-1, 1));
      if (v.length() > 0.1f && v.length() < 1) return v * (1 / v.length());
    }
  }

 private:
  std::mt19937 engine_{7};
};

contest open_balls(bool touching) {
  const auto those = std::make_shared<encounters>();
  const mesh ball = make_icosphere(6);
  const osg::NodeCorePtr core = make_node(ball)->getCore();
  if (those->peer) those->peer->add_mesh(ball);
  numbers random;
  for (int i = 0; i < 256; ++i) {
    const float gap = random.between(0.002f, 0.02f) * (touching ? -1.0f : 1.0f);
    encounter each;
    for (const bool second : {false, true}) {
      osg::Matrix world = osg::Matrix::rotation(random.direction(), random.between(0, 6.28f));
      if (second) world.setTranslation(random.direction() * (2 + gap));
      (second ? each.b : each.a) = placed(node_of(core), world);
      if (those->peer) (second ? each.pose_b : each.pose_a) = those->peer->add_pose(world);
    }
    those->chosen.push_back(each);
  }
  return contest_of(those, touching);
}

/// All that collisions want of a mesh: our volumes would be made at the first one otherwise.
contest open_build(const mesh& from) {
  const auto source = std::make_shared<const mesh>(from);
  const auto node = make_node(*source);
  contest match{
      .ours = {.prepare =
                   [=] { node->getCore()->subAttachment(osg::MorluBIHAttachment::getClassType()); },
               .run =
                   [=] {
                     morlu::osg::attach_bih(node);
                     const auto* const made = morlu::osg::usable_payload(node);
                     morlu::volumes_of(*made->tree, *made->geo_set);
                   },
               .fault =
                   [=] {
                     const auto other = node_of(node->getCore());
                     return our_answer(node, other) ? "" : "it doesn't touch itself";
                   }}};
  const std::shared_ptr<collision_peer> peer = collision_peer::make();
  if (!peer) return match;
  const std::size_t here = peer->add_pose(osg::Matrix());
  match.peer = contender{
      .name = peer->name(),
      .prepare = [=] { peer->drop_meshes(); },
      .run = [=] { peer->add_mesh(*source); },
      .fault = [=] { return peer->collide(0, here, 0, here) ? "" : "it doesn't touch itself"; }};
  return match;
}

// --- Parts of an assembly ------------------------------------------------------------------------

osg::NodePtr sample() {
  return morlu::sample::make_sample_assembly({.parts = 1000});
}

bool boxes_overlap(const std::array<vector3, 2>& a, const std::array<vector3, 2>& b) {
  for (std::size_t axis = 0; axis < 3; ++axis)
    if (b[0][axis] > a[1][axis] || a[0][axis] > b[1][axis]) return false;
  return true;
}

/// What the segment tests say on all pairs of triangles.
bool brute_force_answer(const osg::NodePtr& a, const osg::NodePtr& b) {
  const osg::Matrix a_from_b = a->getToWorld().inverse() * b->getToWorld();
  std::vector<morlu::triangle> carried;
  for (morlu::triangle each : morlu::osg::usable_payload(b)->geo_set->all()) {
    for (vector3& corner : each.corners) {
      osg::Pnt3f p;
      morlu::osg::set(p, corner);
      morlu::osg::set(corner, a_from_b.transformPoint(p));
    }
    carried.push_back(each);
  }
  for (const morlu::triangle& in_a : morlu::osg::usable_payload(a)->geo_set->all())
    for (const morlu::triangle& in_b : carried)
      if (morlu::triangles_intersect(in_a, in_b)) return true;
  return false;
}

/// Whether our answer changes when b is moved by `reach` along some axis.
bool within_rounding(const osg::NodePtr& a, const osg::NodePtr& b, float reach) {
  const bool unmoved = our_answer(a, b);
  for (unsigned axis = 0; axis < 3; ++axis)
    for (const float step : {reach, -reach}) {
      osg::Vec3f move(0, 0, 0);
      move[axis] = step;
      const osg::Matrix world = osg::Matrix::translation(move) * b->getToWorld();
      if (our_answer(a, placed(node_of(b->getCore()), world)) != unmoved) return true;
    }
  return false;
}

/// Pairs of parts whose boxes in the world overlap, of those that touch or those that don't.
contest open_parts(bool touching) {
  constexpr std::size_t most_pairs = 3000;
  const auto those = std::make_shared<encounters>();
  std::list<osg::NodePtr> parts;
  those->root = sample();
  morlu::osg::collect_geo_nodes(those->root, parts);
  const std::vector<osg::NodePtr> nodes(parts.begin(), parts.end());
  std::vector<mesh> meshes;
  std::vector<std::array<vector3, 2>> boxes;
  for (const osg::NodePtr& node : nodes) {
    meshes.push_back(flatten(node));
    boxes.push_back(meshes.back().bounds());
    if (those->peer) those->peer->add_mesh(meshes.back());
  }
  if (those->peer) those->peer->add_pose(osg::Matrix());
  std::size_t pairs = 0, disputed = 0;
  for (std::size_t a = 0; a < nodes.size(); ++a)
    for (std::size_t b = a + 1; b < nodes.size(); ++b) {
      if (!boxes_overlap(boxes[a], boxes[b])) continue;
      const encounter pair{nodes[a], nodes[b], a, 0, b, 0};
      const bool ours = pair.ours();
      ++pairs;
      if (!those->peer || pair.theirs(*those->peer) == ours) {
        if (ours == touching && those->chosen.size() < most_pairs) those->chosen.push_back(pair);
        continue;
      }
      ++disputed;
      const float smaller = std::min(meshes[a].diagonal(), meshes[b].diagonal());
      if (brute_force_answer(nodes[a], nodes[b]) != ours &&
          !within_rounding(nodes[a], nodes[b], 1e-4f * smaller))
        those->fault = "parts " + std::to_string(a) + " and " + std::to_string(b) +
                       (ours ? " don't touch" : " touch");
    }
  if (disputed * 10 > pairs) those->fault = std::to_string(disputed) + " pairs are disputed";
  return contest_of(those, touching);
}

// --- A whole assembly against a moved copy -------------------------------------------------------

/// The copy turned by 45 degrees about the vertical through `centre` and moved along a diagonal of
/// the plan, so that its box still overlaps that of the assembly when no part touches any more.
osg::Matrix copy_pose(const vector3& centre, bool other_diagonal, float distance) {
  const float half = std::sqrt(0.5f);
  const osg::Vec3f along(half, other_diagonal ? -half : half, 0);
  const osg::Vec3f to_centre(centre[0], centre[1], 0);
  return osg::Matrix::translation(to_centre + along * distance) *
         osg::Matrix::rotation(osg::Vec3f(0, 0, 1), std::atan(1.0f)) *
         osg::Matrix::translation(to_centre * -1);
}

/// The least distance at which the copy is free, as far as halving finds it, and a thousandth of
/// the size on top.
float free_distance(const osg::NodeCorePtr& whole, const vector3& centre, bool other_diagonal,
                    float size) {
  const auto touch = [&](float distance) {
    return our_answer(node_of(whole),
                      placed(node_of(whole), copy_pose(centre, other_diagonal, distance)));
  };
  float low = 0, high = 2 * size;
  while (high - low > 1e-4f * size) (touch((low + high) / 2) ? low : high) = (low + high) / 2;
  while (touch(high + 1e-3f * size)) high += 1e-3f * size;
  return high + 1e-3f * size;
}

/// In one geometry, or as graphs of parts. The peer knows the whole as one mesh.
contest open_whole(bool touching, bool as_parts) {
  const auto those = std::make_shared<encounters>();
  const mesh whole = flatten(sample());
  const osg::NodeCorePtr core = make_node(whole)->getCore();
  if (those->peer) {
    those->peer->add_mesh(whole);
    those->peer->add_pose(osg::Matrix());
  }
  const auto box = whole.bounds();
  const vector3 centre = (box[0] + box[1]) * 0.5f;
  const float size = whole.diagonal();
  for (const bool other_diagonal : {false, true}) {
    const std::vector<float> distances =
        touching ? std::vector{0.01f * size, 0.1f * size, 0.3f * size}
                 : std::vector{free_distance(core, centre, other_diagonal, size)};
    for (const float distance : distances) {
      const osg::Matrix world = copy_pose(centre, other_diagonal, distance);
      encounter each{as_parts ? sample() : node_of(core),
                     placed(as_parts ? sample() : node_of(core), world)};
      if (those->peer) each.pose_b = those->peer->add_pose(world);
      those->chosen.push_back(each);
    }
  }
  return contest_of(those, touching);
}

const registration figures({
    {"collision", "icosphere 80k", "touching", "k/s", [] { return open_balls(true); }},
    {"collision", "icosphere 80k", "near miss", "k/s", [] { return open_balls(false); }},
    {"collision", "icosphere 80k", "build", "ms", [] { return open_build(make_icosphere(6)); }},
    {"collision", "assembly 1k parts", "pairs touching", "k/s", [] { return open_parts(true); }},
    {"collision", "assembly 1k parts", "pairs near miss", "k/s", [] { return open_parts(false); }},
    {"collision", "assembly 1k parts", "whole touching", "k/s",
     [] { return open_whole(true, false); }},
    {"collision", "assembly 1k parts", "whole near miss", "k/s",
     [] { return open_whole(false, false); }},
    {"collision", "assembly 1k parts", "graphs touching", "k/s",
     [] { return open_whole(true, true); }},
    {"collision", "assembly 1k parts", "graphs near miss", "k/s",
     [] { return open_whole(false, true); }},
    {"collision", "assembly 1k parts", "build", "ms", [] { return open_build(flatten(sample())); }},
});

}  // namespace
