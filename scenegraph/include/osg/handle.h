#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <utility>

#include "osg/field_container.h"

namespace osg {

/// The null handle: assignable to and comparable with every handle type.
struct NullFieldContainer {};
inline constexpr NullFieldContainer NullFC{};

/// What all handles share: the counted pointer, identity and order.
///
/// Two handles are equal if they hold the same object. The order is that of the objects' serials,
/// null first, and so the same from run to run.
class OSG_API FieldContainerPtrBase {
 public:
  FieldContainerPtrBase() = default;
  FieldContainerPtrBase(NullFieldContainer) {}
  explicit FieldContainerPtrBase(FieldContainer* object) : object_(object) { addRef(); }
  FieldContainerPtrBase(const FieldContainerPtrBase& other) : object_(other.object_) { addRef(); }
  FieldContainerPtrBase(FieldContainerPtrBase&& other) noexcept
      : object_(std::exchange(other.object_, nullptr)) {}
  ~FieldContainerPtrBase() { subRef(); }

  FieldContainerPtrBase& operator=(const FieldContainerPtrBase& other) {
    other.addRef();  // first, so that assigning a handle to itself never frees
    FieldContainer* old = std::exchange(object_, other.object_);
    if (old) old->sub_reference();
    return *this;
  }
  FieldContainerPtrBase& operator=(FieldContainerPtrBase&& other) noexcept {
    FieldContainerPtrBase moved(std::move(other));
    std::swap(object_, moved.object_);
    return *this;
  }

  /// One count by hand on top of those of the handles; null does nothing.
  void addRef() const {
    if (object_) object_->add_reference();
  }
  /// Takes back a count made by hand; the handle itself stays as it is.
  void subRef() const {
    if (object_) object_->sub_reference();
  }

  bool isNull() const { return object_ == nullptr; }
  explicit operator bool() const { return object_ != nullptr; }
  UInt64 getSerial() const { return object_ ? object_->getSerial() : 0; }
  FieldContainer* getContainer() const { return object_; }

  friend bool operator==(const FieldContainerPtrBase& a, const FieldContainerPtrBase& b) {
    return a.object_ == b.object_;
  }
  friend std::strong_ordering operator<=>(const FieldContainerPtrBase& a,
                                          const FieldContainerPtrBase& b) {
    return a.getSerial() <=> b.getSerial();
  }
  friend bool operator==(const FieldContainerPtrBase& a, NullFieldContainer) { return a.isNull(); }

 private:
  FieldContainer* object_ = nullptr;
};

/// Counted handle of a `T`; converts to handles of T's base classes. The way down is `T::dcast`.
template <class T>
class FCPtr : public FieldContainerPtrBase {
 public:
  using Object = T;

  FCPtr() = default;
  FCPtr(NullFieldContainer) {}
  explicit FCPtr(T* object) : FieldContainerPtrBase(object) {}
  template <class U>
  requires(!std::same_as<U, T> && std::derived_from<U, T>) FCPtr(const FCPtr<U>& other)
      : FieldContainerPtrBase(other) {}
  template <class U>
  requires(!std::same_as<U, T> && std::derived_from<U, T>) FCPtr(FCPtr<U>&& other)
  noexcept : FieldContainerPtrBase(std::move(other)) {}

  T* get() const { return static_cast<T*>(getContainer()); }
  T* operator->() const { return get(); }
  T& operator*() const { return *get(); }
};

using FieldContainerPtr = FCPtr<FieldContainer>;

/// A counted reference to what a handle refers to: handles count already, so it is the handle.
template <class Ptr>
using RefPtr = Ptr;

/// One explicit count more; a null handle does nothing.
inline void addRefCP(const FieldContainerPtrBase& handle) {
  handle.addRef();
}
/// One explicit count less; the handle is not set to null. A null handle does nothing.
inline void subRefCP(const FieldContainerPtrBase& handle) {
  handle.subRef();
}

/// Opens a write to a container. Brackets may nest, overlap or miss their partner.
inline void beginEditCP(const FieldContainerPtrBase&, FieldMask = kAllFields) {}
/// Closes a write: volumes that depend on the written fields become stale. Null does nothing.
inline void endEditCP(const FieldContainerPtrBase& handle, FieldMask mask = kAllFields) {
  if (FieldContainer* object = handle.getContainer()) object->changed(mask, ChangeOrigin::External);
}

}  // namespace osg

template <class T>
struct std::hash<osg::FCPtr<T>> {
  std::size_t operator()(const osg::FieldContainerPtrBase& handle) const noexcept {
    return std::hash<osg::UInt64>{}(handle.getSerial());
  }
};
