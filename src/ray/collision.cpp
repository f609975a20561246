// Collision of two subgraphs: coarse boxes, then pairs of geometries, then pairs of trees.

#include <osg/volume.h>

#include "ray/attachment.h"
#include "ray/pair_descent.h"

namespace morlu::osg {

namespace {

struct cell {
  math::vector3 min;
  math::vector3 max;
};

/// The node's stored volume, brought up to date.
cell volume_cell(const ::osg::NodePtr& node) {
  const auto volume = node->getVolume(true);
  cell bounds{};
  set(bounds.min, volume.getMin());
  set(bounds.max, volume.getMax());
  return bounds;
}

/// The box of the eight corners of `from`, transformed.
cell transformed(const cell& from, const ::osg::Matrix& m) {
  cell box{};
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

bool apart(const cell& a, const cell& b) {
  for (int axis = 0; axis < 3; ++axis)
    if (b.min[axis] > a.max[axis] || a.min[axis] > b.max[axis]) return true;
  return false;
}

bool collide_geometries(const ::osg::NodePtr& a, const ::osg::NodePtr& b,
                        CollisionResults& results) {
  const ::osg::Matrix world_from_a = a->getToWorld();
  const ::osg::Matrix a_from_b = world_from_a.inverse() * b->getToWorld();
  const cell a_cell = volume_cell(a);
  const cell b_cell = volume_cell(b);
  const cell b_box = transformed(b_cell, a_from_b);
  if (apart(a_cell, b_box)) return false;

  const BIHAttachPayload* const in_a = usable_payload(a);
  if (!in_a) return false;
  const BIHAttachPayload* const in_b = usable_payload(b);
  if (!in_b) return false;
  math::transformation_matrix<float> matrix;
  set(matrix, a_from_b);
  pair_descent pair({*in_a->tree, *in_a->geo_set}, {*in_b->tree, *in_b->geo_set}, matrix);
  if (!pair.run()) return false;
  ::osg::Pnt3f point;
  set(point, pair.point());
  results.point = world_from_a.transformPoint(point);
  return true;
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
  ++num_colltests();
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

  std::list<::osg::NodePtr> all_a, all_b;
  collect_geo_nodes(a, all_a);
  collect_geo_nodes(b, all_b);
  for (const ::osg::NodePtr& first : all_a) {
    for (const ::osg::NodePtr& second : all_b) {
      results.hit = collide_geometries(first, second, results);
      if (!results.hit) continue;
      results.node_a = first;
      results.node_b = second;
      return true;
    }
  }
  return false;
}

}  // namespace morlu::osg
