#pragma once

#include "osg/base_types.h"

namespace osg::io {

/// The attribute and the extension that carry feature ids.
inline constexpr const char* kFeatureIds = "_FEATURE_ID_0";
inline constexpr const char* kMeshFeatures = "EXT_mesh_features";

/// What is written for vertices without an id: the first number that is none.
inline constexpr Int32 kNullFeatureId = 16777216;

}  // namespace osg::io
