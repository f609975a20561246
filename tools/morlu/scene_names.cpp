#include "scene_names.h"

#include <vector>

#include <osg/attachment.h>

namespace morlu::program {

std::string name_of(const ::osg::NodePtr& node) {
  const char* name = node ? ::osg::getName(*node) : nullptr;
  return name ? name : "";
}

std::string path_of(::osg::NodePtr node) {
  std::vector<std::string> names;
  for (; node; node = node->getParent()) names.push_back(name_of(node));
  std::string path;
  for (auto name = names.rbegin(); name != names.rend(); ++name)
    path.append(name == names.rbegin() ? "" : "/").append(*name);
  return path;
}

std::string name_text(const ::osg::NodePtr& node) {
  const std::string name = name_of(node);
  return name.empty() ? "(no name)" : name;
}

}  // namespace morlu::program
