#include "assimp/node_names.h"

#include <filesystem>

namespace osg::io {

std::string node_name(std::string_view name) {
  const bool in_brackets = name.size() > 1 && name.front() == '<' && name.back() == '>';
  const bool made_up = in_brackets || name.starts_with("$ColladaAutoName$") ||
                       name == "defaultobject" || name == "$dummy_node";
  return made_up ? std::string() : std::string(name);
}

std::string mesh_name(std::string_view name, std::size_t index) {
  return name == std::to_string(index) ? std::string() : node_name(name);
}

std::string root_name(std::string_view name, std::string_view file) {
  const std::filesystem::path path(file);
  const bool made_up = name == file || name == path.filename().string() || name == "RootNode" ||
                       name == "ROOT" || name == "Root";
  return made_up ? std::string() : node_name(name);
}

}  // namespace osg::io
