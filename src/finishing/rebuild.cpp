#include "finishing/rebuild.h"

#include <osg/material.h>

#include <algorithm>

#include "geoset/extract.h"
#include "geoset/source.h"
#include "kd/compile_tree.h"
#include "kd/strategies.h"
#include "optimiser/scene_queries.h"
#include "primitives/rogue.h"

namespace morlu::osg {

using ::osg::GeometryPtr;
using ::osg::NodePtr;

namespace {

element_counts promised(const ::osg::Geometry& geometry) {
  element_counts counts;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    counts.triangles += ::osg::triangleCount(it.getType(), it.getLength());
    counts.lines += ::osg::lineCount(it.getType(), it.getLength());
    if (it.getType() == ::osg::kPoints) counts.points += it.getLength();
  }
  return counts;
}

std::uint64_t delivered_triangles(const ::osg::Geometry& geometry) {
  std::uint64_t count = 0;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it) ++count;
  return count;
}

}  // namespace

bool rebuild(const NodePtr& node, const kd_build_setup& kd, rebuilt& out) {
  const GeometryPtr source = plain_geometry(node);
  if (!source) return false;
  const element_counts counts = promised(*source);
  if (counts.triangles == 0 || counts.lines + counts.points > 0) return false;
  out.set.setVertexCapacity(3 * counts.triangles);
  const bool drops_unused = !may_use_tex_coords(node);
  const int refused = extract(node, out.set, false, false, false, true, drops_unused);
  out.taken = out.set.num_objects;
  const auto seen = out.taken + static_cast<std::uint64_t>(refused);
  if (out.taken == 0 || seen < delivered_triangles(*source)) return false;
  compile_tree(out.set, out.tree, kd, kd_strategy_ObjMedian());
  return true;
}

element_counts usable_elements(const ::osg::Geometry& geometry) {
  element_counts counts;
  for (auto it = geometry.beginTriangles(); !it.isAtEnd(); ++it)
    counts.triangles +=
        !rogue_filter::is_rogue(it.getPosition(0), it.getPosition(1), it.getPosition(2));
  for (auto it = geometry.beginLines(); !it.isAtEnd(); ++it)
    counts.lines += !rogue_filter::coincide(it.getPosition(0), it.getPosition(1));
  counts.points = promised(geometry).points;
  return counts;
}

element_counts elements_below(const NodePtr& node) {
  element_counts counts;
  if (!node) return counts;
  if (const auto geometry = ::osg::Geometry::dcast(node->getCore())) counts = promised(*geometry);
  for (const NodePtr& child : node->getChildren()) {
    const element_counts below = elements_below(child);
    counts.triangles += below.triangles;
    counts.lines += below.lines;
    counts.points += below.points;
  }
  return counts;
}

NodePtr if_complete(const NodePtr& result, const rebuilt& from) {
  return elements_below(result).triangles >= from.set.num_objects ? result : NodePtr();
}

bool may_use_tex_coords(const NodePtr& node) {
  if (!::osg::Geometry::dcast(node->getCore())->getAttachmentFields().empty()) return true;
  if (hasMaterialImage(node)) return true;
  const auto chunks = ::osg::ChunkMaterial::dcast(getEffectiveMaterial(node));
  const auto pbr = chunks ? chunks->findFirstChunk<::osg::PBRChunk>() : ::osg::NullFC;
  return pbr && !pbr->getImages().empty();
}

}  // namespace morlu::osg
