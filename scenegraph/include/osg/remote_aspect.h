#pragma once

#include "osg/field_container.h"

namespace osg {

/// What a remote copy of the scene would be told. The layer keeps the record of the filters; it has
/// no remote side of its own.
class OSG_API RemoteAspect {
 public:
  /// Fields of `mask` of containers of that type stay at home; masks of several calls add up.
  static void addFieldFilter(UInt32 type_id, FieldMask mask);
  /// All fields filtered for the type; 0 if there are none.
  static FieldMask getFieldFilter(UInt32 type_id);
};

}  // namespace osg
