#pragma once

#include <string>

#include "osg/attachment.h"

struct aiMetadata;

namespace osg::io {

/// Makes the entries the container's attribute map, see `attach_extras`; those that only tell which
/// importer was at work, or say `name` once more, are left out. Null adds nothing.
void attach_metadata(const AttachmentContainerPtr& container, const aiMetadata* metadata,
                     const std::string& name);

}  // namespace osg::io
