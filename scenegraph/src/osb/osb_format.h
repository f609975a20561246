#pragma once

#include "osg/scene_file_handler.h"

namespace osg::osb {

/// For `SceneFileFormat`; what `writeOsb` and `readOsb` do with bytes, with files.
SceneWriteResult write_file(const NodePtr& root, const std::string& file);
SceneReadResult read_file(const std::string& file);

}  // namespace osg::osb
