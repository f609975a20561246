#pragma once

#include <string>
#include <string_view>

namespace osg::io {

/// What a node is called in its file: nothing where the importer made the name up.
std::string node_name(std::string_view name);
/// The same for the mesh with that number.
std::string mesh_name(std::string_view name, std::size_t index);
/// The same for the root, which importers also name after the file.
std::string root_name(std::string_view name, std::string_view file);

}  // namespace osg::io
