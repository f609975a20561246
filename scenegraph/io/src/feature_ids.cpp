#include "osg/io/feature_ids.h"

namespace osg::io {
namespace {

constexpr const char* kSetKey = "osg:featureIdSet";
constexpr Int32 kSets = static_cast<Int32>(kTexCoordSets);
static_assert(kTexCoordSets <= 10, "the mark is one digit");

}  // namespace

void setFeatureIdSet(const GeometryPtr& geometry, Int32 set) {
  if (!geometry || set < -1 || set >= kSets) return;
  if (set >= 0) return geometry->setAttachmentField(kSetKey, std::to_string(set));
  auto fields = geometry->getAttachmentFields();
  if (std::erase_if(fields, [](const auto& field) { return field.first == kSetKey; }) > 0)
    geometry->setAttachmentFields(std::move(fields));
}

Int32 getFeatureIdSet(const Geometry& geometry) {
  const std::string digit = geometry.getAttachmentField(kSetKey);
  if (digit.size() != 1 || digit[0] < '0' || digit[0] >= '0' + kSets) return -1;
  return digit[0] - '0';
}

Int32 featureIdOf(Real32 value) {
  constexpr Real32 end = 16777216;  // beyond it floats skip whole numbers
  return value >= 0 && value < end ? static_cast<Int32>(value) : -1;
}

}  // namespace osg::io
