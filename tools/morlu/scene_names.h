#pragma once

#include <string>

#include <osg/node.h>

namespace morlu::program {

/// The node's name; empty if it has none.
std::string name_of(const ::osg::NodePtr& node);
/// The names from the root down to the node, joined by "/".
std::string path_of(::osg::NodePtr node);

/// For people: the name, or that there is none.
std::string name_text(const ::osg::NodePtr& node);

}  // namespace morlu::program
