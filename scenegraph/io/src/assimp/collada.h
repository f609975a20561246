#pragma once

#include <string_view>

#include "file_bytes.h"

namespace osg::io {

/// The name of the material that stands for none, see below.
inline constexpr std::string_view kNoColladaMaterial = "!none";

/// A Collada text to which a material is added that stands for none: assimp gives primitives
/// without a material the first of their geometry, or of the document, and whoever has none could
/// not be told from those that have this one. The added one is first in both, since assimp goes
/// through them sorted by name. Text that doesn't look like Collada stays as it is.
FileBytes with_material_for_none(FileBytes text);

}  // namespace osg::io
