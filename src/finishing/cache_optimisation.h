#pragma once

#include <osg/node.h>

namespace morlu::osg {

struct cache_result {
  ::osg::NodePtr node;
  bool is_whole = true;  // false: a failure has cut it short, and a line has told of it
};

/// What `optimizeCache` does, for who goes on with the node itself where that fails.
cache_result orderForCache(const ::osg::NodePtr& node, bool& was_split, unsigned limit,
                           bool multi_index);

}  // namespace morlu::osg
