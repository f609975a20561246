#include "osg/remote_aspect.h"

#include <map>
#include <mutex>

namespace osg {

namespace {

struct FieldFilters {
  std::mutex mutex;
  std::map<UInt32, FieldMask> masks;

  static FieldFilters& the() {
    static auto* filters = new FieldFilters;
    return *filters;
  }
};

}  // namespace

void RemoteAspect::addFieldFilter(UInt32 type_id, FieldMask mask) {
  FieldFilters& filters = FieldFilters::the();
  const std::lock_guard lock(filters.mutex);
  filters.masks[type_id] |= mask;
}

FieldMask RemoteAspect::getFieldFilter(UInt32 type_id) {
  FieldFilters& filters = FieldFilters::the();
  const std::lock_guard lock(filters.mutex);
  const auto known = filters.masks.find(type_id);
  return known == filters.masks.end() ? 0 : known->second;
}

}  // namespace osg
