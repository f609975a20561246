// What takes the place of the layer's own ray test.

#include <osg/geometry.h>
#include <osg/intersect_action.h>

#include <atomic>

#include "ray/attachment.h"
#include "ray/trace.h"

namespace morlu::osg {

namespace {

using ::osg::Action;

/// Whether the node's stored volume, if it is known, is missed.
bool misses_volume(const ::osg::NodePtr& node, const ::osg::Line& line) {
  const auto volume = node->getVolume();
  return volume.isValid() && !volume.intersect(line);
}

Action::ResultE pick_enter(::osg::CNodePtr& core, Action* action) {
  auto* const intersect = dynamic_cast<::osg::IntersectAction*>(action);
  if (!intersect) return Action::Continue;
  const ::osg::NodePtr node = intersect->getActNode();
  if (misses_volume(node, intersect->getLine())) return Action::Skip;
  if (!find_payload(core)) attach_bih(node);
  if (!find_payload(core)) return Action::Continue;
  std::atomic_ref(num_picktests()).fetch_add(1, std::memory_order_relaxed);
  const BIHAttachPayload* const payload = usable_payload(node);
  if (!payload) return Action::Continue;

  math::vector3 origin, direction;
  set(origin, intersect->getLine().getPosition());
  set(direction, intersect->getLine().getDirection());
  ray_hit hit;
  empty_trace_statistics nothing;
  trace(*payload->tree, *payload->geo_set, origin, direction, hit, nothing);
  if (!hit.hit) return Action::Continue;
  ::osg::Vec3f normal;
  set(normal, hit.normal);
  intersect->setHit(hit.t, node, static_cast<::osg::Int32>(hit.index), normal);
  return Action::Continue;
}

Action::ResultE bbox_enter(::osg::CNodePtr& core, Action* action) {
  auto* const intersect = dynamic_cast<::osg::IntersectAction*>(action);
  if (!intersect) return Action::Continue;
  const ::osg::NodePtr node = intersect->getActNode();
  const auto volume = node->getVolume();
  ::osg::Real32 enter = 0, exit = 0;
  if (volume.isValid() && !volume.intersect(intersect->getLine(), enter, exit)) return Action::Skip;
  const auto geometry = ::osg::Geometry::dcast(core);
  if (!geometry) return Action::Continue;
  const auto first = geometry->beginTriangles();
  if (first != geometry->endTriangles())
    intersect->setHit(enter, node, static_cast<::osg::Int32>(first.getIndex()), {0, 0, 1});
  return Action::Continue;
}

void register_enter(const Action::Functor& functor) {
  ::osg::IntersectAction::registerEnterDefault(::osg::Geometry::getClassType(), functor);
}

unsigned int& num_tests() {
  static unsigned int count = 0;
  return count;
}

}  // namespace

void register_morlu_intersect() {
  register_enter(::osg::makeFunctor(&pick_enter));
}
void register_bbox_intersect() {
  register_enter(::osg::makeFunctor(&bbox_enter));
}
void unregister_morlu_intersect() {
  register_enter(::osg::makeMethodFunctor(&::osg::Geometry::intersect));
}

unsigned int& num_picktests() {
  return num_tests();
}
unsigned int& num_colltests() {
  return num_tests();
}

}  // namespace morlu::osg
