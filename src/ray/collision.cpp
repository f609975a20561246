// Collision of two subgraphs: coarse boxes, then pairs of geometries, then pairs of trees.

#include <osg/volume.h>

#include <atomic>
#include <optional>

#include "ray/attachment.h"
#include "ray/pair_descent.h"
#include "ray/placed_graph.h"

namespace morlu::osg {

namespace {

/// The box of the eight corners of `from`, transformed.
axis_box transformed(const axis_box& from, const ::osg::Matrix& m) {
  axis_box box;
  for (unsigned corner = 0; corner < 8; ++corner) {
    ::osg::Pnt3f p;
    for (unsigned axis = 0; axis < 3; ++axis)
      p[axis] = (corner >> axis & 1) ? from.max[axis] : from.min[axis];
    p = m.transformPoint(p);
    for (unsigned axis = 0; axis < 3; ++axis) {
      if (corner == 0 || p[axis] < box.min[axis]) box.min[axis] = p[axis];
      if (corner == 0 || p[axis] > box.max[axis]) box.max[axis] = p[axis];
    }
  }
  return box;
}

/// A geometry of the first subgraph, with what all its pairs have in common.
class first_geometry {
 public:
  explicit first_geometry(const placed_graph::placed& at)
      : at_(at), from_world_(at.world.inverse()), volume_(stored_volume(*at.node)) {}

  /// Whether it touches a geometry of the second subgraph; then `point` is a contact in the world.
  bool touches(const placed_graph::placed& other, ::osg::Pnt3f& point) {
    const ::osg::Matrix a_from_b = from_world_ * other.world;
    if (apart(volume_, transformed(stored_volume(*other.node), a_from_b))) return false;
    if (!in_a_) in_a_ = usable_payload(*at_.node);
    if (!in_a_) return false;
    const BIHAttachPayload* const in_b = usable_payload(*other.node);
    if (!in_b) return false;
    math::transformation_matrix<float> matrix;
    set(matrix, a_from_b);
    pair_descent pair({*in_a_->tree, *in_a_->geo_set}, {*in_b->tree, *in_b->geo_set}, matrix);
    if (!pair.run()) return false;
    ::osg::Pnt3f in_space_of_a;
    set(in_space_of_a, pair.point());
    point = at_.world.transformPoint(in_space_of_a);
    return true;
  }

 private:
  const placed_graph::placed& at_;
  ::osg::Matrix from_world_;
  axis_box volume_;
  const BIHAttachPayload* in_a_ = nullptr;  // once it was wanted
};

/// The first pair of geometry nodes that touch, in the order of both subgraphs, the first one's
/// before the second one's.
bool collide_graphs(const ::osg::NodePtr& a, const ::osg::NodePtr& b, CollisionResults& results) {
  placed_graph graph_a(a), graph_b(b);
  return graph_a.any_geometry(everywhere(), [&](const placed_graph::placed& in_a) {
    std::optional<first_geometry> first;
    return graph_b.any_geometry(reach_of(in_a), [&](const placed_graph::placed& in_b) {
      if (!first) first.emplace(in_a);
      if (!first->touches(in_b, results.point)) return false;
      results.node_a = *in_a.node;
      results.node_b = *in_b.node;
      return true;
    });
  });
}

}  // namespace

CollisionParam::CollisionParam() : tolerance(0.01f) {}
CollisionParam& CollisionParam::operator=(const CollisionParam& other) = default;

CollisionResults::CollisionResults() : hit(false) {}
CollisionResults::CollisionResults(const CollisionResults& other) = default;
CollisionResults& CollisionResults::operator=(const CollisionResults& other) = default;
CollisionResults::~CollisionResults() = default;

bool collision(::osg::NodePtr a, ::osg::NodePtr b, const CollisionParam& param,
               CollisionResults& results) {
  std::atomic_ref(num_colltests()).fetch_add(1, std::memory_order_relaxed);
  if (!a || !b) return false;
  ::osg::DynamicVolume around_a, around_b;
  a->getWorldVolume(around_a);
  b->getWorldVolume(around_b);
  if (!around_a.isValid() || !around_b.isValid()) return false;
  results.hit = false;
  if (around_a.isEmpty() || around_b.isEmpty()) return false;  // nothing drawn on one side
  const ::osg::Vec3f margin(param.tolerance, param.tolerance, param.tolerance);
  ::osg::Pnt3f min, max;
  around_a.getBounds(min, max);
  around_a.extendBy(min - margin);
  around_a.extendBy(max + margin);
  if (!around_a.intersect(around_b)) return false;

  results.hit = collide_graphs(a, b, results);
  return results.hit;
}

}  // namespace morlu::osg
