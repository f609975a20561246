#include "osg/field_container.h"

#include <vector>

#include "osg/handle.h"
#include "osg/type.h"

namespace osg {

namespace {

UInt64 next_serial() {
  static std::atomic<UInt64> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace

FieldContainer::FieldContainer() : serial_(next_serial()) {}

FieldContainer::FieldContainer(const FieldContainer&) : serial_(next_serial()) {}

FieldContainer::~FieldContainer() = default;

FieldContainerType& FieldContainer::getClassType() {
  static FieldContainerType& type = FieldContainerType::declare("FieldContainer", [] {
    return new FieldContainerType("FieldContainer", "", "", nullptr, nullptr);
  });
  return type;
}

FieldContainerType& FieldContainer::getType() {
  return getClassType();
}
const FieldContainerType& FieldContainer::getType() const {
  return getClassType();
}
UInt32 FieldContainer::getContainerSize() const {
  return sizeof(FieldContainer);
}
FCPtr<FieldContainer> FieldContainer::shallowCopy() const {
  return NullFC;
}
UInt64 FieldContainer::getBinSize(FieldMask) const {
  return 0;
}
void FieldContainer::copyToBin(BinaryDataHandler&, FieldMask) const {}
void FieldContainer::copyFromBin(BinaryDataHandler&, FieldMask) {}
void FieldContainer::changed(FieldMask, ChangeOrigin) {}
void FieldContainer::dump(UInt32, FieldMask) const {}
void FieldContainer::onDestroy() {}
void FieldContainer::executeSync(FieldContainer&, FieldMask) {}

/// What dies because of an object's death waits until that one is gone, so that chains of any
/// length need no stack. The list is that of the thread's outermost call.
void FieldContainer::destroy() const {
  thread_local std::vector<FieldContainer*>* waiting = nullptr;
  const auto finish = [](FieldContainer* object) {
    object->onDestroy();
    delete object;
  };
  auto* const self = const_cast<FieldContainer*>(this);
  if (waiting) {
    try {
      waiting->push_back(self);
    } catch (...) {
      finish(self);  // deeper, but without memory
    }
    return;
  }
  std::vector<FieldContainer*> list;
  waiting = &list;
  finish(self);
  while (!list.empty()) {
    FieldContainer* const next = list.back();
    list.pop_back();
    finish(next);
  }
  waiting = nullptr;
}

}  // namespace osg
