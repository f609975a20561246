#include "finishing/cache_optimisation.h"

#include <osg/cores.h>
#include <osg/geometry_tools.h>

#include <iostream>
#include <string>
#include <vector>

#include "finishing/cache_chunks.h"
#include "finishing/cache_order.h"
#include "geoset/extract.h"
#include "geoset/guard.h"
#include "morlu/finishing.h"
#include "optimiser/id_map_handler.h"
#include "optimiser/scene_queries.h"
#include "primitives/node_moves.h"
#include "primitives/progress.h"

namespace morlu::osg {

namespace {

using ::osg::Attribute;

::osg::NodePtr refused(const std::string& reason) {
  say("Cacheopt Return: " + reason + '\n');
  return {};
}

void give_name(const ::osg::NodePtr& node) {
  const std::string name = getIdMapHandler().nextGeometryName();
  ::osg::setName(node, name);
  ::osg::setName(node->getCore(), name);
}

/// No property that is looked at has more entries; texture coordinates 3 to 6 aren't.
bool fits(const ::osg::Geometry& geometry, unsigned limit) {
  const auto within = [limit](const ::osg::GeoProperty* property) {
    return !property || property->size() <= limit;
  };
  if (!within(geometry.getIndices().get())) return false;
  for (const Attribute attribute :
       {Attribute::Positions, Attribute::Normals, Attribute::Colors, Attribute::SecondaryColors,
        Attribute::TexCoords, Attribute::TexCoords1, Attribute::TexCoords2, Attribute::TexCoords7})
    if (!within(geometry.getAttribute(attribute))) return false;
  return true;
}

void index_only(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry, bool multi_index) {
  ::osg::createSharedIndex(geometry);
  if (!multi_index) ::osg::createSingleIndex(geometry);
  give_name(node);
}

template <unsigned Corners>
cache_result order_and_split(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry,
                             unsigned limit, bool multi_index) {
  ::osg::createSharedIndex(geometry);
  const ::osg::NodePtr result = ::osg::Node::create();
  const bool is_whole = guarded("Error occured in morlu_osg_cacheopt.", std::cerr, [&] {
    const cache_source source =
        Corners == 3 ? triangles_to_order(*geometry) : lines_to_order(*geometry);
    cache_chunks chunks(source, limit, multi_index);
    cache_order<Corners>(source.positions(), source.sizes().front()).run(chunks);
    result->setCore(::osg::Group::create());
    chunk_builder builder(source, Corners == 3 ? ::osg::kTriangles : ::osg::kLines,
                          getEffectiveMaterial(node));
    for (std::size_t k = 0; k < chunks.size(); ++k) {
      const ::osg::NodePtr child = ::osg::Node::create();
      child->setCore(builder.build(chunks[k]));
      give_name(child);
      result->addChild(child);
    }
  });
  return {result, is_whole};
}

}  // namespace

cache_result orderForCache(const ::osg::NodePtr& node, bool& was_split, unsigned limit,
                           bool multi_index) {
  was_split = false;
  if (!node) return {refused("geoNode == ::osg::NullFC")};
  const auto geometry = ::osg::Geometry::dcast(node->getCore());
  if (!geometry) return {refused("geo == ::osg::NullFC")};
  if (!geometry->getTypes() || geometry->getTypes()->empty()) return {refused("Empty Type")};
  if (fits(*geometry, limit)) {
    index_only(node, geometry, multi_index);
    return {node};
  }
  was_split = true;
  const auto begins_with = [&](::osg::UInt32 type) {
    return geometry->getTypes()->getValue(0) == type;
  };
  if (begins_with(::osg::kLines) || countPrimitiveLines(geometry) > 0)
    return order_and_split<2>(node, geometry, limit, multi_index);
  if (begins_with(::osg::kPoints) || countPrimitivePoints(geometry) > 0) return {node};
  return order_and_split<3>(node, geometry, limit, multi_index);
}

::osg::NodePtr optimizeCache(::osg::NodePtr node, bool& wasSplit, unsigned int maxEntries,
                             bool multiIndex) {
  return orderForCache(node, wasSplit, maxEntries, multiIndex).node;
}

::osg::NodePtr optimizeLineCache(::osg::NodePtr node, unsigned int maxEntries, bool multiIndex) {
  const auto geometry = node ? ::osg::Geometry::dcast(node->getCore()) : ::osg::GeometryPtr();
  if (!geometry) return {};
  return order_and_split<2>(node, geometry, maxEntries, multiIndex).node;
}

/// Nodes leave the tree when nothing can fail any more: each result has a seat by then.
::osg::NodePtr optimizeCacheForTree(::osg::NodePtr tree, unsigned int maxEntries, bool multiIndex,
                                    bool dropNormals) {
  const ::osg::NodePtr result = makeGroup();
  std::vector<::osg::NodePtr> nodes;
  getGeometryNodes(tree, nodes, false);
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    result->addChild(::osg::Node::create());
    if (dropNormals) ::osg::Geometry::dcast(nodes[i]->getCore())->setNormals({});
    bool was_split = false;
    nodes[i] = optimizeCache(nodes[i], was_split, maxEntries, multiIndex);
    say_share_done(i, nodes.size());
  }
  for (std::size_t i = nodes.size(); i-- > 0;)
    result->replaceChildBy(result->getChild(static_cast<::osg::UInt32>(i)), nodes[i]);
  return result;
}

}  // namespace morlu::osg
