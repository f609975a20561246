#include "assimp/attributes.h"

#include <assimp/commonMetaData.h>
#include <assimp/scene.h>

#include <nlohmann/json.hpp>

#include "attribute_json.h"

namespace osg::io {
namespace {

using nlohmann::json;

constexpr int kMaxDepth = 16;

json object_of(const aiMetadata& metadata, const std::string& name, int depth);

template <class T>
const T& value_of(const aiMetadataEntry& entry) {
  return *static_cast<const T*>(entry.mData);
}

/// Null for an entry without value.
json json_of(const aiMetadataEntry& entry, int depth) {
  if (!entry.mData) return nullptr;
  switch (entry.mType) {
    case AI_BOOL:
      return value_of<bool>(entry);
    case AI_INT32:
      return value_of<std::int32_t>(entry);
    case AI_UINT64:
      return value_of<std::uint64_t>(entry);
    case AI_FLOAT:
      return value_of<float>(entry);
    case AI_DOUBLE:
      return value_of<double>(entry);
    case AI_AISTRING:
      return value_of<aiString>(entry).C_Str();
    case AI_AIVECTOR3D: {
      const auto& v = value_of<aiVector3D>(entry);
      return {v.x, v.y, v.z};
    }
    case AI_AIMETADATA:
      return depth < kMaxDepth ? object_of(value_of<aiMetadata>(entry), "", depth + 1) : json();
    default:
      return nullptr;
  }
}

json object_of(const aiMetadata& metadata, const std::string& name, int depth) {
  json object = json::object();
  for (unsigned i = 0; i < metadata.mNumProperties; ++i) {
    const std::string key = metadata.mKeys[i].C_Str();
    if (key == AI_METADATA_SOURCE_FORMAT || key == "IsNull") continue;
    json value = json_of(metadata.mValues[i], depth);
    const bool says_nothing =
        value.is_null() || (value.is_string() && (value == "" || value == name));
    if (!says_nothing) object[key] = std::move(value);
  }
  return object;
}

}  // namespace

void attach_metadata(const AttachmentContainerPtr& container, const aiMetadata* metadata,
                     const std::string& name) {
  if (!metadata || metadata->mNumProperties == 0) return;
  attach_extras(container,
                object_of(*metadata, name, 0).dump(-1, ' ', false, json::error_handler_t::replace));
}

}  // namespace osg::io
