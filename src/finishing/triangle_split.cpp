// Geometry of too many triangles, cut along a kd tree.

#include <algorithm>

#include "finishing/core_building.h"
#include "finishing/rebuild.h"
#include "finishing/replacement.h"
#include "finishing/snapshot_walk.h"
#include "kd/large_leaves.h"
#include "morlu/finishing.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

bool has_more_triangles(const ::osg::Geometry& geometry, unsigned limit) {
  std::uint64_t count = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    if (++count > limit) return true;
  return false;
}

NodePtr split_by_triangles(const NodePtr& node, unsigned limit, unsigned level) {
  rebuilt from;
  if (!rebuild(node, {.leaf_size = limit, .max_depth = 30, .strategy = 3}, from))
    return ::osg::NullFC;
  part_large_leaves(from.tree, from.set, limit);
  return if_complete(Splitmodel(from.tree, from.set, 0, limit, NodePtr(), level, true), from);
}

}  // namespace

void split_Geometries(NodePtr node, unsigned int maxTris, bool force, int level) {
  const unsigned limit = std::max(maxTris, 1u);
  shared_results results;
  for_each_of_snapshot(node, [&](const NodePtr& each) {
    const auto geometry = ::osg::Geometry::dcast(each->getCore());
    if (geometry && (force || has_more_triangles(*geometry, limit))) {
      const NodePtr result = results.of(each, level, [&] {
        return split_by_triangles(each, limit, static_cast<unsigned>(level));
      });
      if (result) put_in_place(each, result);
    }
    return !each->getCore().isNull();
  });
}

}  // namespace morlu::osg
