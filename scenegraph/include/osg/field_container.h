#pragma once

#include <atomic>
#include <cstdint>

#include "osg/base_types.h"
#include "osg/export.h"

namespace osg {

class FieldContainerType;
class FieldContainerPtrBase;
class BinaryDataHandler;
template <class T>
class FCPtr;

/// One bit a field of a container; the fields of a class count from 1, their mask is `1 << id`.
using FieldMask = UInt64;
inline constexpr FieldMask kAllFields = ~FieldMask{0};

/// Who caused a change; the layer itself only knows local edits.
enum class ChangeOrigin : UInt8 { External, Sync };

/// Root of everything that lives in a scene: counted, typed and numbered.
///
/// Objects live on the heap, are made by `create()` of their class and die with the last handle or
/// field that holds them; the count is atomic, so handles may be copied and dropped on any thread.
/// Each object carries a serial number that is never used twice. Ordered containers of handles
/// order by it, so that results don't depend on addresses.
class OSG_API FieldContainer {
 public:
  static FieldContainerType& getClassType();

  virtual FieldContainerType& getType();
  virtual const FieldContainerType& getType() const;
  /// Bytes of the object itself, without what its fields point to.
  virtual UInt32 getContainerSize() const;
  /// A new object with the same field values; what fields refer to is shared. Null for a class that
  /// can't be instantiated.
  virtual FCPtr<FieldContainer> shallowCopy() const;
  /// Bytes that the fields of `mask` take in the remote aspect's stream; 0 unless a class says
  /// more.
  virtual UInt64 getBinSize(FieldMask mask) const;
  virtual void copyToBin(BinaryDataHandler& out, FieldMask mask) const;
  virtual void copyFromBin(BinaryDataHandler& in, FieldMask mask);
  /// Called by `endEditCP`: fields of `mask` may have been written. Cheap, takes no lock unless a
  /// volume that depends on this object has to be marked stale.
  virtual void changed(FieldMask mask, ChangeOrigin origin);
  virtual void dump(UInt32 indent, FieldMask mask) const;

 protected:
  virtual ~FieldContainer();

 public:
  /// Runs once, right before the object is freed.
  virtual void onDestroy();
  /// Takes over the fields of `mask` from `other`, which is of the same class.
  virtual void executeSync(FieldContainer& other, FieldMask mask);

  /// Creation number, from 1 upward, unique in the process.
  UInt64 getSerial() const { return serial_; }
  /// Handles and hand-made counts that hold the object now. Other threads may change it any time.
  UInt32 getReferenceCount() const { return references_.load(std::memory_order_relaxed); }

  FieldContainer& operator=(const FieldContainer&) = delete;

 protected:
  FieldContainer();
  /// The copy is an object of its own: new serial, no references yet.
  FieldContainer(const FieldContainer&);

 private:
  friend class FieldContainerPtrBase;

  void add_reference() const { references_.fetch_add(1, std::memory_order_relaxed); }
  void sub_reference() const {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy();
  }
  void destroy() const;

  const UInt64 serial_;
  mutable std::atomic<UInt32> references_{0};
};

}  // namespace osg
